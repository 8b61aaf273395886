#include <algorithm>

#include "oru_koruone/input_operations.hpp"

namespace oru {

/// Before the first open(): the rate and the controls are those of a live camera whose device is not there yet.
constinit const CameraOneImpl::InputOperations CameraOneImpl::kNoInput{
    .frame_rate = [](const CameraOneImpl& camera) { return camera.liveFrameRate(); },
    .source_fps = [](const CameraOneImpl& camera) { return static_cast<uint32_t>(std::max(0, camera.cameraFps)); },
    .has_own_sharpness = true,
    .read_setting = [](CameraOneImpl& camera, VIDEO_SETTINGS setting,
                       int& value) { return camera.readLiveSetting(setting, value); },
    .write_setting = [](CameraOneImpl& camera, VIDEO_SETTINGS setting, int value,
                        bool automatic) { return camera.writeLiveSetting(setting, value, automatic); },
    .read_region = [](CameraOneImpl& camera, Rect& region) { return camera.readLiveRegion(region); },
    .write_region = [](CameraOneImpl& camera, const Rect& region,
                       bool reset) { return camera.writeLiveRegion(region, reset); },
};

constinit const CameraOneImpl::InputOperations CameraOneImpl::kUnknownInput{};

const CameraOneImpl::InputOperations& CameraOneImpl::operationsOf(InputMode mode) {
    switch (mode) {
        case INPUT_MODE_NONE:
            return kNoInput;
        case INPUT_MODE_LIVE:
            return kLiveInput;
        case INPUT_MODE_RECORDED:
            return kRecordedInput;
        case INPUT_MODE_STREAM:
            return kStreamInput;
        default:
            return kUnknownInput;
    }
}

}  // namespace oru
