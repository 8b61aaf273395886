#include "oru/geometry.hpp"

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <limits>

namespace oru {
namespace {

using RowMajor3 = Eigen::Matrix<float, 3, 3, Eigen::RowMajor>;

RowMajor3 rotationBlock(const SquareMatrix<4>& matrix) {
    RowMajor3 block;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            block(row, column) = matrix(static_cast<std::size_t>(row), static_cast<std::size_t>(column));
        }
    }
    return block;
}

template <std::size_t N>
void storeRotationBlock(const Eigen::Matrix3f& block, SquareMatrix<N>& matrix) {
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            matrix(static_cast<std::size_t>(row), static_cast<std::size_t>(column)) = block(row, column);
        }
    }
}

Eigen::Matrix3f rotationOf(const Orientation& orientation) {
    return Eigen::Quaternionf(orientation[3], orientation[0], orientation[1], orientation[2]).toRotationMatrix();
}

}  // namespace

Matrix3f Matrix3f::inverse(const Matrix3f& matrix) {
    Eigen::Matrix3f values;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            values(row, column) = matrix(static_cast<std::size_t>(row), static_cast<std::size_t>(column));
        }
    }
    Matrix3f result;
    const bool isSingular = values.determinant() == 0.0F;
    storeRotationBlock(isSingular ? Eigen::Matrix3f::Constant(std::numeric_limits<float>::quiet_NaN()).eval()
                                  : values.inverse().eval(),
                       result);
    return result;
}

void Rotation::setOrientation(const Orientation& orientation) {
    storeRotationBlock(rotationOf(orientation), *this);
}

Transform Transform::inverse(const Transform& pose) {
    const RowMajor3 turnedBack = rotationBlock(pose).transpose();
    const Translation moved = pose.getTranslation();
    const Eigen::Vector3f back = -(turnedBack * Eigen::Vector3f(moved[0], moved[1], moved[2]));
    Transform result;
    storeRotationBlock(turnedBack, result);
    result.setTranslation(Translation(Vector3<float>(back.x(), back.y(), back.z())));
    return result;
}

Transform operator*(const Transform& left, const Transform& right) {
    Transform result;
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = 0; column < 4; ++column) {
            float sum = 0.0F;
            for (std::size_t i = 0; i < 4; ++i) {
                sum += left(row, i) * right(i, column);
            }
            result(row, column) = sum;
        }
    }
    return result;
}

Orientation Transform::getOrientation() const {
    const Eigen::Quaternionf quaternion(rotationBlock(*this));
    return Orientation(Vector4<float>(quaternion.x(), quaternion.y(), quaternion.z(), quaternion.w()));
}

Translation Transform::getTranslation() const {
    return Translation(Vector3<float>((*this)(0, 3), (*this)(1, 3), (*this)(2, 3)));
}

void Transform::setOrientation(const Orientation& orientation) {
    storeRotationBlock(rotationOf(orientation), *this);
}

void Transform::setTranslation(const Translation& translation) {
    for (std::size_t row = 0; row < 3; ++row) {
        (*this)(row, 3) = translation[row];
    }
}

}  // namespace oru
