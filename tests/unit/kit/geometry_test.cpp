#include "oru/geometry.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "collaborators/kit_functions.hpp"

namespace oru {
namespace {

Orientation orientation(float x, float y, float z, float w) {
    return Orientation(Vector4<float>(x, y, z, w));
}

void expectNear(const Orientation& actual, const Orientation& wanted) {
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(actual[i], wanted[i], 1e-6F) << i;
    }
}

TEST(Transform, GivesBackTheOrientationOfEveryBranch) {
    const float half = std::sqrt(0.5F);
    const Orientation cases[] = {orientation(0, 0, 0, 1),       orientation(half, 0, 0, half),
                                 orientation(1, 0, 0, 0),       orientation(0, 1, 0, 0),
                                 orientation(0, 0, 1, 0),       orientation(0.6F, 0.8F, 0, 0),
                                 orientation(0, 0.6F, 0.8F, 0), orientation(0.5F, -0.5F, 0.5F, 0.5F)};
    for (const Orientation& wanted : cases) {
        Transform transform;
        transform.setTranslation(Translation(Vector3<float>(1, 2, 3)));
        transform.setOrientation(wanted);

        expectNear(transform.getOrientation(), wanted);
        EXPECT_EQ(transform.getTranslation(), Translation(Vector3<float>(1, 2, 3)));
        EXPECT_TRUE(isTransformValid(transform));
    }
}

TEST(Transform, TurnsByTheRightHandRule) {
    const float half = std::sqrt(0.5F);
    Transform transform;
    Rotation rotation;
    transform.setOrientation(orientation(0, 0, half, half));
    rotation.setOrientation(orientation(0, 0, half, half));

    const float wanted[3][3] = {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            EXPECT_NEAR(transform(row, column), wanted[row][column], 1e-6F);
            EXPECT_NEAR(rotation(row, column), wanted[row][column], 1e-6F);
        }
    }
}

TEST(Matrix3f, InvertsAndShowsASingularMatrix) {
    Matrix3f matrix;
    const float values[3][3] = {{2, 1, 0}, {0, 4, 1}, {0, 0, 8}};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            matrix(row, column) = values[row][column];
        }
    }

    const Matrix3f inverse = Matrix3f::inverse(matrix);
    EXPECT_FLOAT_EQ(inverse(0, 0), 0.5F);
    EXPECT_FLOAT_EQ(inverse(0, 1), -0.125F);
    EXPECT_FLOAT_EQ(inverse(0, 2), 0.015625F);
    EXPECT_FLOAT_EQ(inverse(1, 2), -0.03125F);
    EXPECT_FLOAT_EQ(inverse(2, 0), 0.0F);
    EXPECT_FALSE(std::isfinite(Matrix3f::inverse(Matrix3f())(0, 0)));
}

TEST(IsTransformValid, AcceptsRigidTransformsOnly) {
    Transform valid;
    valid.setTranslation(Translation(Vector3<float>(-60.0F, 1e6F, 0)));
    valid(0, 0) = 1.0004F;
    EXPECT_TRUE(isTransformValid(valid));

    const struct {
        std::size_t row, column;
        float value;
    } defects[] = {{0, 0, 1.01F},        {0, 1, 0.01F}, {2, 2, -1.0F},
                   {3, 3, 0.0F},         {3, 0, 1e-3F}, {0, 3, std::numeric_limits<float>::infinity()},
                   {1, 1, std::nanf("")}};
    for (const auto& [row, column, value] : defects) {
        Transform transform;
        transform(row, column) = value;
        EXPECT_FALSE(isTransformValid(transform)) << row << ", " << column << " = " << value;
    }
    EXPECT_FALSE(isTransformValid(Matrix4f()));
}

TEST(CvtMatrix4f, KeepsRowsAndColumns) {
    Matrix4f matrix;
    for (std::size_t i = 0; i < 16; ++i) {
        matrix(i / 4, i % 4) = static_cast<float>(i);
    }
    Eigen::Matrix4f converted;
    Matrix4f back;

    cvtMatrix4f(matrix, converted);
    cvtMatrix4f(converted, back);

    EXPECT_EQ(converted(1, 3), 7.0F);
    EXPECT_EQ(converted(3, 1), 13.0F);
    EXPECT_EQ(back, matrix);
}

}  // namespace
}  // namespace oru
