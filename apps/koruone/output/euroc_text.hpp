#pragma once

#include <string>

#include "koruone/output/FrameTarget.hpp"

namespace koruone {

/// cam0/sensor.yaml: pose, rate, size, pinhole and lens. A lens that k1, k2, p1 and p2 describe is
/// "radial-tangential", as in the data set itself; any other "rational-thin-prism", with all twelve coefficients in the
/// order of CameraParameters::distortion.
std::string eurocCameraText(const oru::RecordingFacts& recorded, const FrameFacts& facts);

/// imu0/sensor.yaml: rate, noise densities and random walks, without a value where the sensor is not known.
std::string eurocInertialText(const FrameFacts& facts);

/// A line of imu0/data.csv, its numbers so long that reading them gives the recorded ones again.
std::string eurocSampleLine(const oru::RecordedSample& sample);

}  // namespace koruone
