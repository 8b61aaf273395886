#include "backends/stream/sender/CameraDescriber.hpp"

#include <Eigen/Geometry>
#include <utility>

#include "collaborators/frame_metadata.hpp"
#include "oru/controls.hpp"

namespace oru::stream {
namespace {

constexpr uint8_t kVersionPlain = 4;
constexpr uint8_t kVersionWithImu = 5;
constexpr uint64_t kRefreshNs = 1'000'000'000;

std::vector<ControlState> controlsOf(LiveCameraGrabber& grabber) {
    std::vector<ControlState> controls;
    for (const Control& control : kControls) {
        if (valueCount(control.kind) != 1) {
            continue;
        }
        ControlState state;
        state.control = control.number;
        state.range_known = grabber.getVideoSettingRange(state.control, state.minimum, state.maximum);
        state.value_known = state.range_known;
        state.value = state.range_known ? grabber.getGrabberSettingsValue(state.control) : 0;
        controls.push_back(state);
    }
    return controls;
}

StreamImuPose poseOf(const Transform& transform) {
    Eigen::Matrix3f rotation;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            rotation(row, column) = transform(static_cast<std::size_t>(row), static_cast<std::size_t>(column));
        }
    }
    const Eigen::Quaternionf q(rotation);
    return {q.w(), q.x(), q.y(), q.z(), transform(0, 3), transform(1, 3), transform(2, 3)};
}

}  // namespace

CameraDescriber::CameraDescriber(const UDPOutConfig& configuration, uint64_t session, std::string calibration)
    : withImu(configuration.version >= 2) {
    record.version_byte = withImu ? kVersionWithImu : kVersionPlain;
    record.session = session;
    record.fps = configuration.fps;
    record.camera.serial_number = static_cast<int>(configuration.serial_number);
    record.camera.model = static_cast<MODEL>(configuration.model);
    record.camera.camera_fw = configuration.camera_fw;
    record.camera.sensors_fw = configuration.sensors_fw;
    record.camera.width = configuration.width;
    record.camera.height = configuration.height;
    record.camera.flip_state = configuration.flipped ? 1 : 0;
    record.calibration = std::move(calibration);
}

void CameraDescriber::setGrabber(LiveCameraGrabber* grabber) {
    // A camera that plays a file or relays a stream has a grabber too, without a device behind it.
    const bool live = grabber != nullptr && grabber->getEffectiveWidth() > 0;
    const bool imu = live && grabber->hasMCU() && grabber->getMCU() != nullptr;
    const MutexLock lock(mutex);
    liveGrabber = grabber;
    hasDevice = live;
    liveImu = imu;
    refreshedNs = 0;
}

void CameraDescriber::setImuCalibration(const ImuCalibration& calibration) {
    const MutexLock lock(mutex);
    if (withImu) {
        record.imu_calibration = calibration;
    }
}

void CameraDescriber::noticeMetadata(const rlxrw::rlxSampleMetadata& metadata) {
    const bool present = rlxrw::hasSample(metadata);
    const MutexLock lock(mutex);
    framesSeen = true;
    if (!withImu || liveImu || !present) {
        return;
    }
    const auto [q, t] = rlxrw::poseOf(metadata);
    record.pose = {q[3], q[0], q[1], q[2], t[0], t[1], t[2]};
    record.pose_known = q != decltype(q){};
    record.camera.has_imu = true;
}

void CameraDescriber::noticeSample() {
    const MutexLock lock(mutex);
    record.camera.has_imu = withImu;
}

bool CameraDescriber::complete() const {
    const MutexLock lock(mutex);
    return framesSeen || hasDevice;
}

void CameraDescriber::expire() {
    const MutexLock lock(mutex);
    refreshedNs = 0;
}

void CameraDescriber::refresh(uint64_t nowNs) {
    LiveCameraGrabber* grabber = nullptr;
    bool imu = false;
    {
        const MutexLock lock(mutex);
        if (!hasDevice || (refreshedNs != 0 && nowNs - refreshedNs < kRefreshNs)) {
            return;
        }
        refreshedNs = nowNs;
        grabber = liveGrabber;
        imu = withImu && liveImu;
    }
    // The device may be slow to answer; nobody waits for it under the lock.
    std::vector<ControlState> controls = controlsOf(*grabber);
    Rect region;
    const bool regionKnown = grabber->getROIforAECAGC(0, region) == 0;
    const StreamImuPose pose = imu ? poseOf(grabber->getMCU()->getIMUCameraTransform()) : StreamImuPose{};
    const MutexLock lock(mutex);
    record.controls = std::move(controls);
    record.region = region;
    record.region_known = regionKnown;
    if (imu) {
        record.camera.has_imu = true;
        record.pose = pose;
        record.pose_known = true;
    }
}

}  // namespace oru::stream
