#pragma once

#include <limits>
#include <vector>

#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/InputFacts.hpp"

namespace oru {

/// What differs between the inputs: one row an input, in the input's own file. What a row leaves out answers as a
/// camera without an input does.
struct CameraOneImpl::InputOperations {
    template <class Signature>
    using Operation = Signature*;

    INPUT_TYPE type = INPUT_TYPE_NONE;

    // open: the way to the input first, then what it says of itself
    Operation<ERROR_CODE(CameraOneImpl&)> connect = [](CameraOneImpl& camera) { return camera.connectLive(); };
    Operation<ERROR_CODE(CameraOneImpl&, InputFacts&)> ask = [](CameraOneImpl& camera, InputFacts& facts) {
        return camera.askLive(facts);
    };

    // grab: how often a frame is tried for, and after how many attempts without one the input has ended
    int cycles = 5000;
    int fast_fail_cycles = 5000;
    int cycles_to_end = std::numeric_limits<int>::max();
    Operation<FrameStatus(CameraOneImpl&, bool)> next_image = [](CameraOneImpl& camera, bool flag) {
        return camera.nextImageOfLive(flag);
    };
    /// Fills frameInfo where the frame's intake did not.
    Operation<void(CameraOneImpl&, Timestamp imageTime)> describe_frame = [](CameraOneImpl& camera, Timestamp time) {
        camera.frameInfo = {};
        camera.frameInfo.known = FrameInfo::CAPTURE_TIME;
        camera.frameInfo.capture_time = time;
    };
    Operation<FrameCounters(CameraOneImpl&)> counters = [](CameraOneImpl&) { return FrameCounters{}; };
    Operation<StreamInputStatus(CameraOneImpl&)> stream_status = [](CameraOneImpl&) { return StreamInputStatus{}; };
    Operation<float(const CameraOneImpl&)> frame_rate = [](const CameraOneImpl&) { return 120.0F; };
    /// What a sender of the input's frames counts with.
    Operation<uint32_t(const CameraOneImpl&)> source_fps = [](const CameraOneImpl&) { return 15U; };

    // sensors: the first two belong to the source of the samples, the others to the input
    Operation<std::vector<IMUPacket>(CameraOneImpl&, Timestamp imageTime)> take_imu_packets =
        [](CameraOneImpl&, Timestamp) { return std::vector<IMUPacket>(); };
    Operation<Eigen::Matrix4f(const CameraOneImpl&)> imu_to_camera = [](const CameraOneImpl&) -> Eigen::Matrix4f {
        return Eigen::Matrix4f::Identity();
    };
    Operation<bool(CameraOneImpl&)> gives_current_sample = [](CameraOneImpl&) { return true; };
    Operation<ERROR_CODE(CameraOneImpl&, IMUPacket&, Eigen::Matrix4f&)> fetch_current_sample =
        [](CameraOneImpl& camera, IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose) {
            return camera.fetchLiveSample(sample, imuToCameraPose);
        };
    Operation<bool(CameraOneImpl&, IMUPacket&)> fetch_metadata_sample = [](CameraOneImpl&, IMUPacket&) {
        return false;
    };

    // controls
    bool has_controls = true;
    bool has_range_controls = false;
    bool has_own_sharpness = false;  ///< of the grabber; else the factor that the input gave
    Operation<ERROR_CODE(CameraOneImpl&, VIDEO_SETTINGS, int& value)> read_setting = [](CameraOneImpl&, VIDEO_SETTINGS,
                                                                                        int&) { return INVALID_CALL; };
    Operation<ERROR_CODE(CameraOneImpl&, VIDEO_SETTINGS, int value, bool automatic)> write_setting =
        [](CameraOneImpl&, VIDEO_SETTINGS, int, bool) { return INVALID_CALL; };
    Operation<ERROR_CODE(CameraOneImpl&, Rect&)> read_region = [](CameraOneImpl&, Rect&) { return FAILURE; };
    Operation<ERROR_CODE(CameraOneImpl&, const Rect&, bool reset)> write_region = [](CameraOneImpl&, const Rect&,
                                                                                     bool) { return FAILURE; };
    Operation<String(CameraOneImpl&)> control_refusal = [](CameraOneImpl&) { return String(); };
};

}  // namespace oru
