#pragma once

#include <string>
#include <utility>

#include "oru/String.hpp"

namespace oru {

/// Who hands a calibration over.
enum class CalibrationOrigin { ATTACHED_CAMERA, RECORDING, STREAM };

/// Where a missing calibration file comes from: the attached camera, the open recording, the connected sender, a URL.
/// Threads: any.
class CalibrationSource {
public:
    virtual ~CalibrationSource() = default;

    /// Stores SN<serial>.conf where the search looks when given the same directory (possibly empty). True: it is there,
    /// whole. On failure nothing is left behind. Bounded in time.
    virtual bool downloadCalibFile(String directory, int serial_number) = 0;
    /// An attached camera's calibration is handed over.
    virtual void offer(int /*serial_number*/, std::string /*text*/) {}
    /// Reader and receiver hand over what they carry, inside open(): `place` is the file or the address, an empty text
    /// says that nothing is carried.
    virtual void offerFrom(CalibrationOrigin /*origin*/, const std::string& /*place*/, int serial_number,
                           std::string text) {
        if (!text.empty()) {
            offer(serial_number, std::move(text));
        }
    }
    /// The text last offered, else empty.
    virtual std::string text(int /*serial_number*/) { return {}; }
};

/// Asks the process default's source; false without one.
bool downloadCalibFile(String directory, int serial_number);

}  // namespace oru
