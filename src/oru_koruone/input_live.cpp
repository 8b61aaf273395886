#include <algorithm>
#include <utility>

#include "collaborators/kit_functions.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "oru/controls.hpp"
#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/relaxed.hpp"
#include "oru_koruone/settings_kinds.hpp"

namespace oru {
namespace {

constexpr int kPoseSamples = 5;
constexpr int kPoseWaits = 400;  // 2 s in all
constexpr timespec kPoseWait{0, 5'000'000};
constexpr float kUpsideDown = -0.4F;
constexpr int kDefaultSharpness = 3;

/// The element in row 1, column 1 of the inverse rotation: the cosine between the camera's and the world's down.
float uprightness(const IMUPacket& packet) {
    const auto& q = packet.orientation;
    Rotation rotation;
    rotation.setOrientation(Orientation(Vector4<float>(q[0], q[1], q[2], q[3])));
    return Matrix3f::inverse(rotation)(1, 1);
}

/// Whether an interval lies within a size; a sum that wraps does not.
bool isInside(uint64_t start, uint64_t length, uint64_t size) {
    const uint64_t end = start + length;
    return end >= start && end <= size;
}

}  // namespace

constinit const CameraOneImpl::InputOperations CameraOneImpl::kLiveInput{
    .type = GMSL,
    .connect = [](CameraOneImpl& camera) { return camera.connectLive(); },
    .ask = [](CameraOneImpl& camera, InputFacts& facts) { return camera.askLive(facts); },
    .fast_fail_cycles = 50,
    .next_image = [](CameraOneImpl& camera, bool flag) { return camera.nextImageOfGMSL(flag); },
    .describe_frame = [](CameraOneImpl&, Timestamp) {},
    .counters = [](CameraOneImpl& camera) { return camera.grabber ? camera.grabber->counters() : FrameCounters{}; },
    .frame_rate = [](const CameraOneImpl& camera) { return camera.liveFrameRate(); },
    .source_fps = [](const CameraOneImpl& camera) { return static_cast<uint32_t>(std::max(0, camera.cameraFps)); },
    .take_imu_packets = [](CameraOneImpl& camera, Timestamp imageTime) { return camera.takeLivePackets(imageTime); },
    .imu_to_camera = [](const CameraOneImpl& camera) { return camera.liveImuToCamera(); },
    .fetch_current_sample = [](CameraOneImpl& camera, IMUPacket& sample,
                               Eigen::Matrix4f& pose) { return camera.fetchLiveSample(sample, pose); },
    .has_range_controls = true,
    .has_own_sharpness = true,
    .read_setting = [](CameraOneImpl& camera, VIDEO_SETTINGS setting,
                       int& value) { return camera.readLiveSetting(setting, value); },
    .write_setting = [](CameraOneImpl& camera, VIDEO_SETTINGS setting, int value,
                        bool automatic) { return camera.writeLiveSetting(setting, value, automatic); },
    .read_region = [](CameraOneImpl& camera, Rect& region) { return camera.readLiveRegion(region); },
    .write_region = [](CameraOneImpl& camera, const Rect& region,
                       bool reset) { return camera.writeLiveRegion(region, reset); },
};

ERROR_CODE CameraOneImpl::askLive(InputFacts& facts) {
    facts.image_size = {static_cast<uint64_t>(grabber->getEffectiveWidth()),
                        static_cast<uint64_t>(grabber->getEffectiveHeight())};
    facts.model = grabber->getCameraModel();
    grabber->endSetup(nullptr);
    facts.serial_number = grabber->getSerialNumber();
    if (facts.serial_number == 0) {
        return DEVICE_NOT_FOUND;
    }
    facts.imu_calibration = ImuCalibration{};
    KORUmcu* mcu = grabber->getMCU();
    if (grabber->hasMCU() && mcu != nullptr) {
        facts.imu_calibration = mcu->exportCalib();
        facts.has_imu = true;
        if (initParameters.image_flip == kAutomaticFlip) {
            facts.flipped = measureOrientation(*mcu);
        }
    }
    facts.described_model = grabber->getCameraModel();
    if (facts.described_model == MODEL_UNKNOWN) {
        return DEVICE_SETUP_FAILED;
    }
    facts.camera_firmware = static_cast<uint32_t>(grabber->getFWVersion());
    if (mcu == nullptr) {
        return SENSOR_DATA_UNAVAILABLE;
    }
    facts.sensors_firmware = mcu->getMCUFirmwareVersion();
    facts.fps = grabber->getRequestedFPS();
    return SUCCESS;
}

/// True when the camera hangs upside down.
bool CameraOneImpl::measureOrientation(KORUmcu& mcu) {
    float sum = 0.0F;
    int samples = 0;
    for (int waits = 0; samples < kPoseSamples;) {
        const IMUPacket packet = mcu.getIMUPose(0);
        if (packet.valid) {
            sum += uprightness(packet);
            ++samples;
        } else if (++waits > kPoseWaits) {
            break;
        } else {
            (void)collaborators->clock().nanosleep(kPoseWait, nullptr);
        }
    }
    if (samples == 0) {
        ORU_LOG(Warning, "{} The sensors gave no valid pose within 2 s: the image counts as not flipped.", kTagInit);
    }
    const bool upsideDown = samples > 0 && sum / static_cast<float>(samples) < kUpsideDown;
    ORU_LOG(Info, "{} Sensors FW version: {}", kTagInit, mcu.getMCUFirmwareVersion());
    return upsideDown;
}

float CameraOneImpl::liveFrameRate() const {
    return static_cast<float>(static_cast<uint32_t>(cameraFps));
}

std::vector<IMUPacket> CameraOneImpl::takeLivePackets(Timestamp imageTime) {
    KORUmcu* mcu = liveMcu();
    return mcu == nullptr ? std::vector<IMUPacket>() : mcu->getIMUPacketBatch(lastImuTimestamp, imageTime);
}

Eigen::Matrix4f CameraOneImpl::liveImuToCamera() const {
    Eigen::Matrix4f pose = Eigen::Matrix4f::Identity();
    if (KORUmcu* mcu = liveMcu(); mcu != nullptr) {
        cvtMatrix4f(mcu->getIMUCameraTransform(), pose);
    }
    return pose;
}

ERROR_CODE CameraOneImpl::fetchLiveSample(IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose) {
    KORUmcu* mcu = liveMcu();
    if (mcu == nullptr || !mcu->isReady()) {
        return DEVICE_NOT_FOUND;
    }
    sample = mcu->getIMUPose(0);
    cvtMatrix4f(mcu->getIMUCameraTransform(), imuToCameraPose);
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::readLiveSetting(VIDEO_SETTINGS setting, int& value) {
    if (!grabber) {
        return INVALID_CALL;
    }
    const auto entry = settingsCache.find(setting);
    const bool known = entry != settingsCache.end() && entry->second >= 0;
    value = known ? entry->second : grabber->getGrabberSettingsValue(setting);
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::writeLiveSetting(VIDEO_SETTINGS setting, int value, bool automatic) {
    if (!grabber) {
        return SUCCESS;
    }
    if (!grabber->valueInRange(setting, value)) {
        return INVALID_PARAMETER;
    }
    if (setting == SHARPNESS && writeLiveSharpness(value, automatic)) {
        return SUCCESS;
    }
    if (!isCached(setting, value)) {
        (void)grabber->setGrabberSettingsValue(setting, value, automatic);
    }
    settingsCache[setting] = value;
    resetCacheSettings(setting, value, automatic);
    return SUCCESS;
}

/// False for a kind of grabber that treats sharpness like any other control.
bool CameraOneImpl::writeLiveSharpness(int value, bool automatic) {
    const INPUT_TYPE type = grabber->inputType();
    if (type != INPUT_TYPE_NONE && type != GMSL) {
        return false;
    }
    int sent = automatic ? kDefaultSharpness : value;
    storeRelaxed(sharpnessFactor, 1.0F);
    if (type == INPUT_TYPE_NONE) {
        const bool sharperModel = cameraModel == MODEL{2} || cameraModel == MODEL{3};
        if (automatic && sharperModel) {
            sent = kDefaultSharpness + 1;
        }
        storeRelaxed(sharpnessFactor, sharpnessFactorOf(sent));
    }
    (void)grabber->setGrabberSettingsValue(SHARPNESS, sent, false);
    return true;
}

ERROR_CODE CameraOneImpl::readLiveRegion(Rect& region) {
    return grabber && grabber->getROIforAECAGC(0, region) == 0 ? SUCCESS : FAILURE;
}

ERROR_CODE CameraOneImpl::writeLiveRegion(const Rect& region, bool reset) {
    if (!grabber) {
        return FAILURE;
    }
    if (reset) {
        return grabber->resetROIforAECAGC(0) == 0 ? SUCCESS : FAILURE;
    }
    if (!isInside(region.x, region.width, imageSize.width) || !isInside(region.y, region.height, imageSize.height)) {
        return FAILURE;
    }
    return grabber->setROIforAECAGC(0, region) == 0 ? SUCCESS : FAILURE;
}

}  // namespace oru
