#pragma once

#include <limits>
#include <vector>

#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/InputFacts.hpp"

namespace oru {

/// What differs between the inputs: one row an input, in the input's own file. What a row leaves out answers as a
/// camera without an input does.
struct CameraOneImpl::InputOperations {
    INPUT_TYPE type = INPUT_TYPE_NONE;

    // open: the way to the input first, then what it says of itself
    ERROR_CODE (*connect)(CameraOneImpl&) = [](CameraOneImpl& camera) { return camera.connectLive(); };
    ERROR_CODE (*ask)
    (CameraOneImpl&, InputFacts&) = [](CameraOneImpl& camera, InputFacts& facts) { return camera.askLive(facts); };

    // grab: how often a frame is tried for, and after how many attempts without one the input has ended
    int cycles = 5000;
    int fast_fail_cycles = 5000;
    int cycles_to_end = std::numeric_limits<int>::max();
    FrameStatus (*nextImage)(CameraOneImpl&, bool) = [](CameraOneImpl& camera, bool flag) {
        return camera.nextImageOfLive(flag);
    };
    FrameCounters (*counters)(CameraOneImpl&) = [](CameraOneImpl&) { return FrameCounters{}; };
    float (*frameRate)(const CameraOneImpl&) = [](const CameraOneImpl&) { return 120.0F; };
    /// What a sender of the input's frames counts with.
    uint32_t (*sourceFps)(const CameraOneImpl&) = [](const CameraOneImpl&) { return 15U; };

    // sensors: the first two belong to the source of the samples, the others to the input
    std::vector<IMUPacket> (*takeImuPackets)(CameraOneImpl&, Timestamp imageTime) = [](CameraOneImpl&, Timestamp) {
        return std::vector<IMUPacket>();
    };
    Eigen::Matrix4f (*imuToCamera)(const CameraOneImpl&) = [](const CameraOneImpl&) -> Eigen::Matrix4f {
        return Eigen::Matrix4f::Identity();
    };
    bool (*givesCurrentSample)(CameraOneImpl&) = [](CameraOneImpl&) { return true; };
    ERROR_CODE (*fetchCurrentSample)
    (CameraOneImpl&, IMUPacket&, Eigen::Matrix4f&) =
        [](CameraOneImpl& camera, IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose) {
            return camera.fetchLiveSample(sample, imuToCameraPose);
        };
    bool (*fetchMetadataSample)(CameraOneImpl&, IMUPacket&) = [](CameraOneImpl&, IMUPacket&) { return false; };

    // controls
    bool has_controls = true;
    bool has_range_controls = false;
    bool has_own_sharpness = false;  ///< of the grabber; else the factor that the input gave
    ERROR_CODE (*readSetting)
    (CameraOneImpl&, VIDEO_SETTINGS, int& value) = [](CameraOneImpl&, VIDEO_SETTINGS, int&) { return INVALID_CALL; };
    ERROR_CODE (*writeSetting)
    (CameraOneImpl&, VIDEO_SETTINGS, int value, bool automatic) =
        [](CameraOneImpl&, VIDEO_SETTINGS, int, bool) { return INVALID_CALL; };
    ERROR_CODE (*readRegion)(CameraOneImpl&, Rect&) = [](CameraOneImpl&, Rect&) { return FAILURE; };
    ERROR_CODE (*writeRegion)
    (CameraOneImpl&, const Rect&, bool reset) = [](CameraOneImpl&, const Rect&, bool) { return FAILURE; };
    String (*controlRefusal)(CameraOneImpl&) = [](CameraOneImpl&) { return String(); };
};

}  // namespace oru
