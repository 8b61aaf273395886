#pragma once

#include <fstream>
#include <string>

#include "backends/virtual_bus/euroc.hpp"
#include "backends/virtual_bus/inertial_source.hpp"

namespace oru::virtual_bus {

/// Attitude from rate and force: the explicit complementary filter with bias correction of R. Mahony, T. Hamel and
/// J.-M. Pflimlin, "Nonlinear complementary filters on the special orthogonal group", IEEE Transactions on Automatic
/// Control 53(5), 2008. Heading is free and starts at zero.
class ComplementaryFilter {
public:
    /// Rate in rad/s, force in m/s^2, both in body axes; the first call levels the body.
    void update(const Eigen::Vector3d& rate, const Eigen::Vector3d& force, double seconds);
    /// Body axes to world axes (y down).
    [[nodiscard]] const Eigen::Quaterniond& orientation() const { return orientation_; }

private:
    bool levelled_ = false;
    Eigen::Quaterniond orientation_ = Eigen::Quaterniond::Identity();
    Eigen::Vector3d bias_ = Eigen::Vector3d::Zero();
};

/// The samples of a data set in real time, read as they are needed. They are turned into the camera's axes, so that the
/// pose of the camera in the IMU's frame is a translation alone.
class EurocInertial final : public InertialSource {
public:
    /// @param origin_ns the time of the data set that is 0 on the camera's axis
    /// @param span_ns the length of one round when it loops, else 0
    EurocInertial(const std::string& csv_path, const EurocCamera& camera, uint64_t origin_ns, uint64_t span_ns);

    bool next(uint64_t until, InertialSample& sample) override;
    InertialSample atPicture(uint64_t elapsed) override;
    [[nodiscard]] Mounting mounting() const override { return mounting_; }
    [[nodiscard]] ImuCalibration calibration() const override { return {}; }
    [[nodiscard]] Eigen::Vector3d rateVariance() const override;
    [[nodiscard]] Eigen::Vector3d forceVariance() const override;

private:
    [[nodiscard]] bool readAhead();
    [[nodiscard]] bool readLine(EurocSample& sample);
    [[nodiscard]] InertialSample convert(const EurocSample& sample);

    std::string path_;
    std::ifstream file_;
    Eigen::Matrix3d body_to_camera_ = Eigen::Matrix3d::Identity();
    Mounting mounting_;
    ComplementaryFilter filter_;
    uint64_t origin_ns_;
    uint64_t span_ns_;
    uint64_t round_ = 0;
    uint64_t last_elapsed_ = 0;
    bool any_ = false;
    bool ahead_valid_ = false;
    InertialSample ahead_;
    InertialSample latest_;
};

}  // namespace oru::virtual_bus
