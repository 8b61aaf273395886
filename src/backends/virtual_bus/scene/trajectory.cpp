#include "backends/virtual_bus/scene/trajectory.hpp"

#include <array>
#include <cmath>
#include <numbers>

namespace oru::virtual_bus {
namespace {

constexpr double kDegree = std::numbers::pi / 180.0;

struct Sine {
    double amplitude;
    double period_s;
    double phase;
};

struct Path {
    double centre;
    std::array<Sine, 2> sines;
};

struct Derivatives {
    double value;
    double first;
    double second;
};

constexpr Path kX{0.0, {{{0.55, 9.1, 0.0}, {0.12, 3.7, 1.0}}}};
constexpr Path kY{0.0, {{{0.10, 5.3, 0.5}, {0.02, 1.9, 0.0}}}};
constexpr Path kZ{-2.6, {{{0.50, 11.7, 1.2}, {0.06, 4.1, 2.0}}}};
constexpr Path kYaw{0.0, {{{22.0 * kDegree, 12.3, 0.3}, {3.0 * kDegree, 3.1, 0.9}}}};
constexpr Path kPitch{2.0 * kDegree, {{{4.5 * kDegree, 7.9, 1.7}, {0.8 * kDegree, 2.3, 0.2}}}};
constexpr Path kRoll{0.0, {{{3.5 * kDegree, 6.7, 2.1}, {0.6 * kDegree, 2.9, 1.1}}}};

Derivatives evaluate(const Path& path, double seconds, double speed) {
    Derivatives result{path.centre, 0.0, 0.0};
    for (const Sine& sine : path.sines) {
        const double omega = speed * 2.0 * std::numbers::pi / sine.period_s;
        const double angle = omega * seconds + sine.phase;
        result.value += sine.amplitude * std::sin(angle);
        result.first += sine.amplitude * omega * std::cos(angle);
        result.second -= sine.amplitude * omega * omega * std::sin(angle);
    }
    return result;
}

double speedOf(Motion motion) {
    switch (motion) {
        case Motion::GENTLE:
            return 1.0;
        case Motion::LIVELY:
            return 3.0;
        case Motion::REST:
            return 0.0;
    }
    return 1.0;
}

}  // namespace

MotionState Trajectory::at(double seconds) const {
    const double speed = speedOf(motionPattern);
    const Derivatives x = evaluate(kX, seconds, speed);
    const Derivatives y = evaluate(kY, seconds, speed);
    const Derivatives z = evaluate(kZ, seconds, speed);
    const Derivatives yaw = evaluate(kYaw, seconds, speed);
    const Derivatives pitch = evaluate(kPitch, seconds, speed);
    Derivatives roll = evaluate(kRoll, seconds, speed);
    roll.value += mountedUpsideDown ? std::numbers::pi : 0.0;

    MotionState state;
    state.position = {x.value, y.value, z.value};
    state.acceleration = {x.second, y.second, z.second};
    const Eigen::AngleAxisd turn(yaw.value, Eigen::Vector3d::UnitY());
    const Eigen::AngleAxisd nod(pitch.value, Eigen::Vector3d::UnitX());
    const Eigen::AngleAxisd tilt(roll.value, Eigen::Vector3d::UnitZ());
    state.orientation = turn * nod * tilt;
    // Rates of yaw, pitch and roll along their own axes, carried into the body: R = Ry(yaw) Rx(pitch) Rz(roll).
    const Eigen::Vector3d afterNod = nod.inverse() * Eigen::Vector3d(0.0, yaw.first, 0.0);
    state.angular_rate =
        tilt.inverse() * (afterNod + Eigen::Vector3d(pitch.first, 0.0, 0.0)) + Eigen::Vector3d(0.0, 0.0, roll.first);
    return state;
}

Mounting factoryMounting() {
    Mounting mounting;
    mounting.rotation = Eigen::AngleAxisd(0.62 * kDegree, Eigen::Vector3d::UnitX()) *
                        Eigen::AngleAxisd(-0.41 * kDegree, Eigen::Vector3d::UnitY()) *
                        Eigen::AngleAxisd(0.27 * kDegree, Eigen::Vector3d::UnitZ());
    mounting.translation = {-0.0123, 0.0021, -0.0046};
    return mounting;
}

Eigen::Vector3d specificForce(const MotionState& state) {
    const Eigen::Vector3d gravity(0.0, kGravity, 0.0);
    return state.orientation.conjugate() * (state.acceleration - gravity);
}

}  // namespace oru::virtual_bus
