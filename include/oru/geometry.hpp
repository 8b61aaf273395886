#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "oru/Lens.hpp"
#include "oru/export.hpp"
#include "oru/image.hpp"

namespace oru {

/// A fixed vector; zero when default-constructed.
template <class T, std::size_t N>
class VectorN {
public:
    VectorN() = default;

    [[nodiscard]] T& operator[](std::size_t index) { return elements[index]; }
    [[nodiscard]] const T& operator[](std::size_t index) const { return elements[index]; }
    [[nodiscard]] T* data() { return elements.data(); }
    [[nodiscard]] const T* data() const { return elements.data(); }

    friend bool operator==(const VectorN&, const VectorN&) = default;

protected:
    explicit VectorN(std::array<T, N> values) : elements(values) {}

private:
    std::array<T, N> elements{};
};

template <class T>
class Vector2 : public VectorN<T, 2> {
public:
    Vector2() = default;
    Vector2(T x, T y) : VectorN<T, 2>({x, y}) {}
};

template <class T>
class Vector3 : public VectorN<T, 3> {
public:
    Vector3() = default;
    Vector3(T x, T y, T z) : VectorN<T, 3>({x, y, z}) {}
};

template <class T>
class Vector4 : public VectorN<T, 4> {
public:
    Vector4() = default;
    Vector4(T x, T y, T z, T w) : VectorN<T, 4>({x, y, z, w}) {}
};

/// A square matrix addressed as (row, column); acts on column vectors. Zero when default-constructed.
template <std::size_t N>
class SquareMatrix {
public:
    [[nodiscard]] float& operator()(std::size_t row, std::size_t column) { return elements[row * N + column]; }
    [[nodiscard]] const float& operator()(std::size_t row, std::size_t column) const {
        return elements[row * N + column];
    }

    void setIdentity() {
        elements.fill(0.0F);
        for (std::size_t i = 0; i < N; ++i) {
            elements[i * N + i] = 1.0F;
        }
    }

    friend bool operator==(const SquareMatrix&, const SquareMatrix&) = default;

private:
    std::array<float, N * N> elements{};
};

class Matrix3f : public SquareMatrix<3> {
public:
    /// The inverse; not finite when the matrix is singular.
    [[nodiscard]] ORU_API static Matrix3f inverse(const Matrix3f& matrix);
};

class Matrix4f : public SquareMatrix<4> {};

/// A unit quaternion in the order x, y, z, w; identity when default-constructed.
class Orientation : public Vector4<float> {
public:
    Orientation() : Vector4<float>(0.0F, 0.0F, 0.0F, 1.0F) {}
    explicit Orientation(const Vector4<float>& quaternion) : Vector4<float>(quaternion) {}
};

class Translation : public Vector3<float> {
public:
    Translation() = default;
    explicit Translation(Vector3<float> vector) : Vector3<float>(vector) {}
};

/// A 3 x 3 rotation; identity when default-constructed.
class Rotation : public Matrix3f {
public:
    Rotation() { setIdentity(); }
    /// The rotation matrix of a unit quaternion.
    ORU_API void setOrientation(const Orientation& orientation);
};

/// A rigid pose: rotation in the upper-left 3 x 3 block, translation in the last column. Identity when
/// default-constructed.
class Transform : public Matrix4f {
public:
    Transform() { setIdentity(); }
    explicit Transform(const Matrix4f& matrix) : Matrix4f(matrix) {}

    /// Of a rigid pose.
    [[nodiscard]] ORU_API static Transform inverse(const Transform& pose);

    /// The quaternion of the rotation block, by the trace method (w >= 0 when the trace is positive).
    [[nodiscard]] ORU_API Orientation getOrientation() const;
    [[nodiscard]] ORU_API Translation getTranslation() const;
    /// Replaces the rotation block by the rotation of a unit quaternion; the rest stays.
    ORU_API void setOrientation(const Orientation& orientation);
    ORU_API void setTranslation(const Translation& translation);
};

/// First the right pose, then the left one.
[[nodiscard]] ORU_API Transform operator*(const Transform& left, const Transform& right);

struct CameraModeDescription;

/// Which pixel of a view shows what, exactly as views are drawn: a lens with distortion behind the unrectified views, a
/// pinhole behind the rectified ones. In double precision; whole numbers are pixel centres, (0, 0) is that of the first
/// pixel. Points and rays lie along the camera's axes (x right, y down, z forward). With a flipped image these are the
/// turned camera's, as for sensor vectors. A value; its operations are safe on any thread.
class ORU_API CameraGeometry {
public:
    /// @param configuration as getCameraInformation() gives it without a size: there it is exact, while one for a
    /// smaller
    ///   size was rounded on the way
    /// @param view the size of the views; 0: the camera's own
    /// @param flipped the image is delivered turned by 180 degrees
    explicit CameraGeometry(const CameraModeDescription& configuration, Resolution view = {}, bool flipped = false);

    /// The pixel that shows a point, which may lie outside the view; empty behind the camera and where the lens sees
    /// nothing.
    [[nodiscard]] std::optional<Point> project(VIEW view, const Vector3<double>& point) const;
    /// The ray (x, y, 1) that a pixel shows; empty where no ray leads to it.
    [[nodiscard]] std::optional<Point> unproject(VIEW view, Point pixel) const;
    /// From a pixel of an unrectified view to that of a rectified one that shows the same.
    [[nodiscard]] std::optional<Point> undistort(Point unrectified) const;
    /// From a pixel of a rectified view to that of an unrectified one that shows the same.
    [[nodiscard]] std::optional<Point> distort(Point rectified) const;

    /// The lens behind a view, at its size: without distortion for a rectified one.
    [[nodiscard]] const Lens& lens(VIEW view) const;

private:
    [[nodiscard]] std::optional<Point> projectRay(const Lens& lens, Point ray) const;

    Lens rectified;
    Lens unrectified;
    Resolution viewSize;
};

}  // namespace oru
