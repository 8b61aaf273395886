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

CameraOne::CameraOne() : impl(makeCamera()) {}
CameraOne::~CameraOne() = default;

ERROR_CODE CameraOne::open(const InitParametersOne& parameters) {
    InitParametersOne completed = parameters;
    if (completed.settings_path.empty()) {
        completed.settings_path = userSettingsDirectory();
    }
    return impl->open(completed);
}

ERROR_CODE CameraOne::close() {
    return impl->close();
}
bool CameraOne::isOpened() const {
    return impl->isOpened();
}
InitParametersOne CameraOne::getInitParameters() const {
    return impl->getInitParameters();
}

ERROR_CODE CameraOne::grab() {
    return impl->grab();
}
ERROR_CODE CameraOne::retrieveImage(Mat& image, VIEW view, MEM memory, Resolution resolution) {
    return impl->retrieveImage(image, view, memory, resolution);
}
Timestamp CameraOne::getTimestamp(TIME_REFERENCE reference) const {
    return impl->getTimestamp(reference);
}
float CameraOne::getCameraFPS() const {
    return impl->getCameraFPS();
}
float CameraOne::getCurrentFPS() const {
    return impl->getCurrentFPS();
}
FrameCounters CameraOne::getFrameCounters() const {
    return impl->getFrameCounters();
}

std::vector<DeviceProperties> CameraOne::getDeviceList() const {
    return impl->getDeviceList();
}
CameraDescription CameraOne::getCameraInformation(Resolution resolution) const {
    return impl->getCameraInformation(resolution);
}
ERROR_CODE CameraOne::getSensorsData(SensorsData& data, TIME_REFERENCE reference) {
    return impl->getSensorsData(data, reference);
}
ERROR_CODE CameraOne::getSensorsDataBatch(std::vector<SensorsData>& batch) {
    return impl->getSensorsDataBatch(batch);
}

ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, int& value) {
    return impl->getCameraSettings(setting, value);
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, int value) {
    return impl->setCameraSettings(setting, value);
}
ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, int& min, int& max) {
    return impl->getCameraSettings(setting, min, max);
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, int min, int max) {
    return impl->setCameraSettings(setting, min, max);
}
ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, Rect& region) {
    return impl->getCameraSettings(setting, region);
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, Rect region, bool reset) {
    return impl->setCameraSettings(setting, region, reset);
}
ERROR_CODE CameraOne::getCameraSettingsRange(VIDEO_SETTINGS setting, int& min, int& max) {
    return impl->getCameraSettingsRange(setting, min, max);
}
bool CameraOne::isCameraSettingSupported(VIDEO_SETTINGS setting) {
    return impl->isCameraSettingSupported(setting);
}

ERROR_CODE CameraOne::enableStreaming(StreamingParameters parameters) {
    return impl->enableStreaming(parameters);
}
void CameraOne::disableStreaming() {
    impl->disableStreaming();
}
bool CameraOne::isStreamingEnabled() {
    return impl->isStreamingEnabled();
}
StreamingParameters CameraOne::getStreamingParameters() {
    return impl->getStreamingParameters();
}
String CameraOne::getControlRefusal() {
    return impl->getControlRefusal();
}
StreamingStatus CameraOne::getStreamingStatus() {
    return impl->getStreamingStatus();
}

ERROR_CODE CameraOne::enableRecording(const RecordingParameters& parameters) {
    return impl->enableRecording(parameters);
}
void CameraOne::disableRecording() {
    impl->disableRecording();
}
void CameraOne::pauseRecording(bool paused) {
    impl->pauseRecording(paused);
}
RecordingStatus CameraOne::getRecordingStatus() {
    return impl->getRecordingStatus();
}
ERROR_CODE CameraOne::setRLXPosition(int frame) {
    return impl->setRLXPosition(frame);
}
ERROR_CODE CameraOne::setRLXPositionAt(Timestamp time) {
    return impl->setRLXPositionAt(time);
}
int CameraOne::getRLXPosition() {
    return impl->getRLXPosition();
}
int CameraOne::getRLXNumberOfFrames() {
    return impl->getRLXNumberOfFrames();
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
