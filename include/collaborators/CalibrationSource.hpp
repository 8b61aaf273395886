#pragma once

#include <string>

#include "oru/String.hpp"

namespace oru {

/// Where a missing calibration file comes from: the attached camera, the open recording, the connected sender, a URL.
/// Threads: any.
class CalibrationSource {
public:
    virtual ~CalibrationSource() = default;

    /// Stores SN<serial>.conf where the search looks when given the same directory (possibly empty). True: it is there,
    /// whole. On failure nothing is left behind. Bounded in time.
    virtual bool downloadCalibFile(String directory, int serial_number) = 0;
    /// Whoever knows a camera's calibration hands its text over.
    virtual void offer(int /*serial_number*/, std::string /*text*/) {}
    /// The text last offered, else empty.
    virtual std::string text(int /*serial_number*/) { return {}; }
};

/// Asks the process default's source; false without one.
bool downloadCalibFile(String directory, int serial_number);

}  // namespace oru
