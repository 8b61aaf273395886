#pragma once

#include <fstream>
#include <string>

#include "backends/virtual_bus/footage/euroc.hpp"
#include "backends/virtual_bus/inertial/inertial_source.hpp"
#include "kit/AttitudeFilter.hpp"

namespace oru::virtual_bus {

/// The samples of a data set in real time, read as they are needed, along the sensor's own axes. Its world is level
/// when the camera is: `worldToLevel` takes its coordinates to right, down, forward.
class EurocInertial final : public InertialSource {
public:
    /// @param firstImageNs the time of the data set that is 0 on the camera's axis
    /// @param roundNs the length of one round when it loops, else 0
    EurocInertial(const std::string& csvPath, const EurocCamera& camera, uint64_t firstImageNs, uint64_t roundNs);

    bool next(uint64_t until, InertialSample& sample) override;
    InertialSample atImage(uint64_t elapsed) override;
    [[nodiscard]] Mounting mounting() const override { return sensorMounting; }
    [[nodiscard]] Eigen::Quaterniond worldToLevel() const override { return sensorMounting.rotation.conjugate(); }
    [[nodiscard]] ImuCalibration calibration() const override { return {}; }
    [[nodiscard]] Eigen::Vector3d rateVariance() const override;
    [[nodiscard]] Eigen::Vector3d forceVariance() const override;

private:
    [[nodiscard]] bool readAhead();
    [[nodiscard]] bool readLine(EurocSample& sample);
    [[nodiscard]] InertialSample convert(const EurocSample& sample);

    std::string path;
    std::ifstream file;
    Mounting sensorMounting;
    AttitudeFilter filter;
    uint64_t originNs;
    uint64_t spanNs;
    uint64_t round = 0;
    uint64_t lastElapsed = 0;
    bool any = false;
    bool aheadValid = false;
    InertialSample ahead;
    InertialSample latest;
};

}  // namespace oru::virtual_bus
