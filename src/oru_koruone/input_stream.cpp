#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>

#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/relaxed.hpp"
#include "oru_koruone/report.hpp"
#include "oru_koruone/settings_kinds.hpp"
#include "tables/tables.hpp"

namespace oru {
namespace {

constexpr uint32_t kUnknownSourceFps = 15;
constexpr int kLastVersionWithoutPose = 4;

Eigen::Matrix4f announcedPose(UDPInput& receiver) {
    Eigen::Matrix4f pose = Eigen::Matrix4f::Identity();
    const StreamImuPose announced = receiver.announcedImuPose();
    const float size = std::abs(announced.w) + std::abs(announced.x) + std::abs(announced.y) + std::abs(announced.z);
    if (!(size > 0.0F) || receiver.versionByte() <= kLastVersionWithoutPose) {
        return pose;
    }
    pose.topLeftCorner<3, 3>() =
        Eigen::Quaternionf(announced.w, announced.x, announced.y, announced.z).toRotationMatrix();
    pose.block<3, 1>(0, 3) << announced.tx, announced.ty, announced.tz;
    return pose;
}

}  // namespace

constinit const CameraOneImpl::InputOperations CameraOneImpl::kStreamInput{
    .type = INPUT_TYPE_STREAM,
    .connect = [](CameraOneImpl& camera) { return camera.connectStream(); },
    .ask = [](CameraOneImpl& camera, InputFacts& facts) { return camera.askStream(facts); },
    .cycles = 250,
    .fast_fail_cycles = 250,
    .next_image = [](CameraOneImpl& camera, bool flag) { return camera.nextImageOfStream(flag); },
    .counters =
        [](CameraOneImpl& camera) { return camera.streamInput ? camera.streamInput->counters() : FrameCounters{}; },
    .stream_status =
        [](CameraOneImpl& camera) { return camera.streamInput ? camera.streamInput->status() : StreamInputStatus{}; },
    .frame_rate =
        [](const CameraOneImpl& camera) {
            return camera.streamInput ? static_cast<float>(camera.streamInput->announcedFps()) : 0.0F;
        },
    .source_fps =
        [](const CameraOneImpl& camera) {
            return camera.streamInput ? static_cast<uint32_t>(std::max(0, camera.streamInput->announcedFps()))
                                      : kUnknownSourceFps;
        },
    .take_imu_packets =
        [](CameraOneImpl& camera, Timestamp imageTime) {
            return camera.streamInput ? camera.streamInput->takeImuPacketsBefore(imageTime) : std::vector<IMUPacket>();
        },
    .imu_to_camera = [](const CameraOneImpl& camera) -> Eigen::Matrix4f {
        return camera.streamInput ? announcedPose(*camera.streamInput) : Eigen::Matrix4f(Eigen::Matrix4f::Identity());
    },
    .gives_current_sample =
        [](CameraOneImpl& camera) { return camera.streamInput && camera.streamInput->canSupplyCurrentImu(); },
    .fetch_current_sample =
        [](CameraOneImpl& camera, IMUPacket& sample, Eigen::Matrix4f&) {
            const bool fetched = camera.streamInput && camera.streamInput->getCurrentIMU(sample);
            return fetched ? SUCCESS : SENSOR_DATA_UNAVAILABLE;
        },
    .fetch_metadata_sample =
        [](CameraOneImpl& camera, IMUPacket& sample) {
            UDPInput* receiver = camera.streamInput.get();
            return receiver != nullptr && receiver->canSupplyCurrentImu() && receiver->getCurrentIMU(sample);
        },
    .read_setting = [](CameraOneImpl& camera, VIDEO_SETTINGS setting,
                       int& value) { return camera.readStreamSetting(setting, value); },
    .write_setting = [](CameraOneImpl& camera, VIDEO_SETTINGS setting, int value,
                        bool automatic) { return camera.writeStreamSetting(setting, value, automatic); },
    .read_region = [](CameraOneImpl& camera, Rect& region) { return camera.readStreamRegion(region); },
    .write_region = [](CameraOneImpl& camera, const Rect& region,
                       bool reset) { return camera.writeStreamRegion(region, reset); },
    .control_refusal =
        [](CameraOneImpl& camera) {
            return camera.streamInput ? String(camera.streamInput->controlRefusal()) : String();
        },
};

StreamInputStatus CameraOneImpl::getStreamInputStatus() {
    ORU_RETURN_IF_CLOSED(StreamInputStatus{});
    return input().stream_status(*this);
}

ERROR_CODE CameraOneImpl::askStream(InputFacts& facts) {
    const StreamDescription sender = streamInput->description();
    facts.serial_number = sender.serial_number;
    facts.model = sender.model;
    facts.described_model = sender.model;
    if (!isDrivenModel(sender.model)) {
        return NOT_SUPPORTED;
    }
    facts.camera_firmware = sender.camera_fw;
    facts.sensors_firmware = sender.sensors_fw;
    facts.image_size = {sender.width, sender.height};
    facts.resolution = resolutionOf(*facts.image_size);
    facts.has_imu = sender.has_imu;
    facts.sharpness_factor = static_cast<float>(1.0 + 0.5 * streamInput->getGrabberSettingsValue(SHARPNESS));
    facts.flipped = sender.flip_state != 0;
    facts.imu_calibration = streamInput->announcedImuCalibration();
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::readStreamSetting(VIDEO_SETTINGS setting, int& value) {
    if (!streamInput) {
        return INVALID_CALL;
    }
    value = streamInput->getGrabberSettingsValue(setting);
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::writeStreamSetting(VIDEO_SETTINGS setting, int value, bool automatic) {
    if (setting == SHARPNESS) {
        const int sent = automatic ? 0 : value;
        storeRelaxed(sharpnessFactor, sharpnessFactorOf(sent));
        if (streamInput) {
            (void)streamInput->setGrabberSettingsValue(SHARPNESS, sent, false);
        }
        settingsCache[SHARPNESS] = sent;
        return SUCCESS;
    }
    if (streamInput) {
        if (!isCached(setting, value)) {
            (void)streamInput->setGrabberSettingsValue(setting, value, automatic);
        }
        resetCacheSettings(setting, value, automatic);
    }
    settingsCache[setting] = value;
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::readStreamRegion(Rect& region) {
    if (!streamInput) {
        return FAILURE;
    }
    (void)streamInput->getGrabberSettingsValue(AEC_AGC_ROI, 0, region);
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::writeStreamRegion(const Rect& region, bool reset) {
    if (!streamInput) {
        return FAILURE;
    }
    (void)streamInput->setGrabberSettingsValue(AEC_AGC_ROI, 0, region, reset);
    return SUCCESS;
}

}  // namespace oru
