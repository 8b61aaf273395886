#include "oru/frames.hpp"

namespace oru::frames {
namespace {

/// Which coordinate of the other frame each one is, and its sign.
struct Exchange {
    std::array<std::size_t, 3> from;
    std::array<float, 3> sign;
};

constexpr Exchange kToBody{{2, 0, 1}, {1, -1, -1}};
constexpr Exchange kToOptical{{1, 2, 0}, {-1, -1, 1}};

Matrix3f exchanged(const Exchange& axes, const Matrix3f& matrix) {
    Matrix3f result;
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            result(row, column) = axes.sign[row] * axes.sign[column] * matrix(axes.from[row], axes.from[column]);
        }
    }
    return result;
}

Transform exchanged(const Exchange& axes, const Transform& pose) {
    Transform result;
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            result(row, column) = axes.sign[row] * axes.sign[column] * pose(axes.from[row], axes.from[column]);
        }
        result(row, 3) = axes.sign[row] * pose(axes.from[row], 3);
    }
    return result;
}

/// The axis of a rotation is a vector, its angle stays: no frame here is mirrored.
Orientation exchanged(const Exchange& axes, const Orientation& orientation) {
    const auto part = [&](std::size_t i) { return axes.sign[i] * orientation[axes.from[i]]; };
    return Orientation(Vector4<float>(part(0), part(1), part(2), orientation[3]));
}

Covariance6 exchanged(const Exchange& axes, const Covariance6& covariance) {
    const auto from = [&](std::size_t i) { return i / 3 * 3 + axes.from[i % 3]; };
    const auto sign = [&](std::size_t i) { return static_cast<double>(axes.sign[i % 3]); };
    Covariance6 result{};
    for (std::size_t row = 0; row < 6; ++row) {
        for (std::size_t column = 0; column < 6; ++column) {
            result[row * 6 + column] = sign(row) * sign(column) * covariance[from(row) * 6 + from(column)];
        }
    }
    return result;
}

Matrix3f matrixOf(const std::array<float, 9>& rows) {
    Matrix3f matrix;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        matrix(i / 3, i % 3) = rows[i];
    }
    return matrix;
}

}  // namespace

Matrix3f opticalFromApplication(AXIS_CONVENTION convention) {
    switch (convention) {
        case AXIS_CONVENTION_1:
            return matrixOf({1, 0, 0, 0, -1, 0, 0, 0, 1});
        case AXIS_CONVENTION_2:
            return matrixOf({1, 0, 0, 0, -1, 0, 0, 0, -1});
        case AXIS_CONVENTION_3:
            return matrixOf({1, 0, 0, 0, 0, 1, 0, -1, 0});
        case AXIS_CONVENTION_4:
            return matrixOf({0, 0, 1, 1, 0, 0, 0, -1, 0});
        case AXIS_CONVENTION_5:
            return matrixOf({0, 0, 1, -1, 0, 0, 0, -1, 0});
        default:
            return matrixOf({1, 0, 0, 0, 1, 0, 0, 0, 1});
    }
}

Transform bodyFromOptical() {
    Transform transform;
    for (std::size_t row = 0; row < 3; ++row) {
        transform(row, row) = 0.0F;
        transform(row, kToBody.from[row]) = kToBody.sign[row];
    }
    return transform;
}

Orientation toBody(const Orientation& optical) {
    return exchanged(kToBody, optical);
}
Orientation toOptical(const Orientation& body) {
    return exchanged(kToOptical, body);
}
Transform toBody(const Transform& optical) {
    return exchanged(kToBody, optical);
}
Transform toOptical(const Transform& body) {
    return exchanged(kToOptical, body);
}
Matrix3f toBody(const Matrix3f& optical) {
    return exchanged(kToBody, optical);
}
Matrix3f toOptical(const Matrix3f& body) {
    return exchanged(kToOptical, body);
}
Covariance6 toBody(const Covariance6& optical) {
    return exchanged(kToBody, optical);
}
Covariance6 toOptical(const Covariance6& body) {
    return exchanged(kToOptical, body);
}

}  // namespace oru::frames
