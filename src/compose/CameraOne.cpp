#include "oru/CameraOne.hpp"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "compose/built_in_factory.hpp"
#include "oru_koruone/CameraOneImpl.hpp"

namespace oru {
namespace {

constexpr const char* kSettingsBelowData = "/koru/settings/";

/// Where an ordinary user's calibration files lie, made when missing; empty without a home.
std::string userSettingsDirectory() {
    const char* data = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    std::string directory;
    if (data != nullptr && data[0] == '/') {
        directory = data;
    } else if (home != nullptr && home[0] != '\0') {
        directory = std::string(home) + "/.local/share";
    } else {
        return {};
    }
    directory += kSettingsBelowData;
    std::error_code ignored;  // a directory that cannot be made shows when the calibration is stored
    std::filesystem::create_directories(directory, ignored);
    return directory;
}

// Before main, so that a Mat has its memory without a camera; a global camera may come even earlier.
[[maybe_unused]] const bool kRegisteredBeforeMain = (registerBuiltInFactory(), true);

std::unique_ptr<CameraOneImpl> makeCamera() {
    registerBuiltInFactory();
    return std::make_unique<CameraOneImpl>();
}

}  // namespace

CameraOne::CameraOne() : impl_(makeCamera()) {}
CameraOne::~CameraOne() = default;

ERROR_CODE CameraOne::open(const InitParametersOne& parameters) {
    InitParametersOne completed = parameters;
    if (completed.settings_path.empty()) {
        completed.settings_path = userSettingsDirectory();
    }
    return impl_->open(completed);
}

ERROR_CODE CameraOne::close() {
    return impl_->close();
}
bool CameraOne::isOpened() const {
    return impl_->isOpened();
}
InitParametersOne CameraOne::getInitParameters() const {
    return impl_->getInitParameters();
}

ERROR_CODE CameraOne::grab() {
    return impl_->grab();
}
ERROR_CODE CameraOne::retrieveImage(Mat& image, VIEW view, MEM memory, Resolution resolution) {
    return impl_->retrieveImage(image, view, memory, resolution);
}
Timestamp CameraOne::getTimestamp(TIME_REFERENCE reference) const {
    return impl_->getTimestamp(reference);
}
float CameraOne::getCameraFPS() const {
    return impl_->getCameraFPS();
}
float CameraOne::getCurrentFPS() const {
    return impl_->getCurrentFPS();
}
FrameCounters CameraOne::getFrameCounters() const {
    return impl_->getFrameCounters();
}

std::vector<DeviceProperties> CameraOne::getDeviceList() const {
    return impl_->getDeviceList();
}
CameraDescription CameraOne::getCameraInformation(Resolution resolution) const {
    return impl_->getCameraInformation(resolution);
}
ERROR_CODE CameraOne::getSensorsData(SensorsData& data, TIME_REFERENCE reference) {
    return impl_->getSensorsData(data, reference);
}
ERROR_CODE CameraOne::getSensorsDataBatch(std::vector<SensorsData>& batch) {
    return impl_->getSensorsDataBatch(batch);
}

ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, int& value) {
    return impl_->getCameraSettings(setting, value);
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, int value) {
    return impl_->setCameraSettings(setting, value);
}
ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, int& min, int& max) {
    return impl_->getCameraSettings(setting, min, max);
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, int min, int max) {
    return impl_->setCameraSettings(setting, min, max);
}
ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, Rect& region) {
    return impl_->getCameraSettings(setting, region);
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, Rect region, bool reset) {
    return impl_->setCameraSettings(setting, region, reset);
}
ERROR_CODE CameraOne::getCameraSettingsRange(VIDEO_SETTINGS setting, int& min, int& max) {
    return impl_->getCameraSettingsRange(setting, min, max);
}
bool CameraOne::isCameraSettingSupported(VIDEO_SETTINGS setting) {
    return impl_->isCameraSettingSupported(setting);
}

ERROR_CODE CameraOne::enableStreaming(StreamingParameters parameters) {
    return impl_->enableStreaming(parameters);
}
void CameraOne::disableStreaming() {
    impl_->disableStreaming();
}
bool CameraOne::isStreamingEnabled() {
    return impl_->isStreamingEnabled();
}
StreamingParameters CameraOne::getStreamingParameters() {
    return impl_->getStreamingParameters();
}

ERROR_CODE CameraOne::enableRecording(const RecordingParameters& parameters) {
    return impl_->enableRecording(parameters);
}
void CameraOne::disableRecording() {
    impl_->disableRecording();
}
void CameraOne::pauseRecording(bool paused) {
    impl_->pauseRecording(paused);
}
RecordingStatus CameraOne::getRecordingStatus() {
    return impl_->getRecordingStatus();
}
ERROR_CODE CameraOne::setRLXPosition(int frame) {
    return impl_->setRLXPosition(frame);
}
ERROR_CODE CameraOne::setRLXPositionAt(Timestamp time) {
    return impl_->setRLXPositionAt(time);
}
int CameraOne::getRLXPosition() {
    return impl_->getRLXPosition();
}
int CameraOne::getRLXNumberOfFrames() {
    return impl_->getRLXNumberOfFrames();
}

ERROR_CODE CameraOne::reboot(INPUT_TYPE type) {
    registerBuiltInFactory();
    return CameraOneImpl::reboot(type);
}
ERROR_CODE CameraOne::reboot() {
    registerBuiltInFactory();
    return CameraOneImpl::reboot();
}

}  // namespace oru
