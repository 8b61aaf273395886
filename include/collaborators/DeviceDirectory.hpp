#pragma once

#include <vector>

#include "oru/types.hpp"

namespace oru {

/// Which cameras are attached, and their reset. Threads: any.
class DeviceDirectory {
public:
    virtual ~DeviceDirectory() = default;

    /// The live cameras; the camera passes (true, false).
    virtual std::vector<DeviceProperties> getGMSLDevices(bool, bool) = 0;
    /// Every camera; the camera passes true.
    virtual std::vector<DeviceProperties> getGrabberList(bool) = 0;
    /// Why cameras are missing from the lists, in one sentence; empty when nothing is known to be wrong.
    virtual String problem() { return {}; }
    /// Resets a camera's micro-controller; returns without waiting for it to come back. The camera passes 1.
    virtual ERROR_CODE resetMCU(int index) = 0;
};

// The process default's directory; empty list and FAILURE without one.
namespace ArgusCamera {
std::vector<DeviceProperties> getGMSLDevices(bool first, bool second);
}
std::vector<DeviceProperties> getGrabberList(bool all);
namespace CameraMemberHandler {
ERROR_CODE resetMCU(int index);
}

}  // namespace oru
