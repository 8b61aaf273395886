#include <Eigen/LU>
#include <cmath>

#include "collaborators/kit_functions.hpp"

namespace oru {
namespace {

constexpr float kRigidTolerance = 1e-3F;

bool isNear(float value, float wanted) {
    return std::abs(value - wanted) <= kRigidTolerance;
}

}  // namespace

bool isTransformValid(const Matrix4f& transform) {
    Eigen::Matrix4f matrix;
    cvtMatrix4f(transform, matrix);
    if (!matrix.allFinite() || matrix.row(3) != Eigen::RowVector4f(0.0F, 0.0F, 0.0F, 1.0F)) {
        return false;
    }
    const Eigen::Matrix3f rotation = matrix.topLeftCorner<3, 3>();
    const Eigen::Matrix3f defect = rotation * rotation.transpose() - Eigen::Matrix3f::Identity();
    return defect.cwiseAbs().maxCoeff() <= kRigidTolerance && isNear(rotation.determinant(), 1.0F);
}

void cvtMatrix4f(const Eigen::Matrix<float, 4, 4>& from, Matrix4f& to) {
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            to(static_cast<std::size_t>(row), static_cast<std::size_t>(column)) = from(row, column);
        }
    }
}

void cvtMatrix4f(const Matrix4f& from, Eigen::Matrix<float, 4, 4>& to) {
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            to(row, column) = from(static_cast<std::size_t>(row), static_cast<std::size_t>(column));
        }
    }
}

}  // namespace oru
