#include "oru/CameraOne.hpp"

#include <type_traits>
#include <utility>

#include "compose/CameraSlot.hpp"
#include "compose/built_in_factory.hpp"
#include "compose/guarded.hpp"
#include "compose/open_parameters.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "oru_koruone/CameraOneImpl.hpp"

namespace oru {
namespace {

// Before main, so that a Mat has its memory without a camera; a global camera may come even earlier.
[[maybe_unused]] const bool kRegisteredBeforeMain = (registerBuiltInFactory(), true);

template <class Answer>
Answer answerOfClosed() {
    if constexpr (std::is_same_v<Answer, ERROR_CODE>) {
        return CAMERA_UNAVAILABLE;
    } else {
        return Answer();
    }
}

/// Carries out an operation that needs an open camera: one code and one sentence for each that finds it closed.
template <class Camera, class Operation>
auto whenOpen(const Camera& camera, Operation&& operation, const char* name = __builtin_FUNCTION(),
              const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    using Answer = std::invoke_result_t<Operation&>;
    const auto checked = [&]() -> Answer {
        if (!camera->isOpened()) {
            ORU_LOG_AT(LogLevel::Error, file, line, "{} {}: the camera is not open.", kTagKoru, name);
            return answerOfClosed<Answer>();
        }
        return operation();
    };
    return guarded(checked, name, file, line);
}

/// Whether a view may be drawn into `image`: memory of the application is never replaced by another.
bool takesView(const Mat& image, CameraOneImpl& camera, VIEW view, Resolution size) {
    if (!image.isWrapped()) {
        return true;
    }
    const bool isGray = view == RECTIFIED_GRAY || view == UNRECTIFIED_GRAY;
    const Resolution drawn = size.area() != 0 ? size : camera.getCameraInformation({}).configuration.resolution;
    return image.fits(drawn, isGray ? U8_C1 : U8_C4);
}

}  // namespace

std::shared_ptr<CameraOneImpl> CameraOne::Handle::operator->() const {
    auto opening = slot->current();
    CameraOneImpl* const camera = &opening->camera;
    return {std::move(opening), camera};
}

CameraOne::CameraOne() : impl{std::make_unique<CameraSlot>()} {}
CameraOne::~CameraOne() = default;
CameraOne::CameraOne(CameraOne&& other) noexcept = default;
CameraOne& CameraOne::operator=(CameraOne&& other) noexcept = default;

ERROR_CODE CameraOne::open(const InitParametersOne& parameters, CALIBRATION_CHOICE choice) {
    return guarded([&] {
        if (!canNameACamera(parameters.input)) {
            (void)impl.slot->close();
            return INVALID_PARAMETER;
        }
        const ERROR_CODE opened = impl.slot->open(parameters, choice);
        if (opened == SUCCESS) {
            logAdjustments(parameters, parametersInForce(impl.slot->current()->camera));
        }
        return opened;
    });
}

ERROR_CODE CameraOne::close() {
    return guarded([&] { return impl.slot->close(); });
}
bool CameraOne::isOpened() const {
    return guarded([&] { return impl->isOpened(); });
}
InitParametersOne CameraOne::getInitParameters() const {
    return guarded([&] {
        const auto opening = impl.slot->current();
        if (!opening->camera.isOpened()) {
            return impl.slot->initParameters();
        }
        InitParametersOne inForce = parametersInForce(opening->camera);
        inForce.settings_path = opening->calibration.shownPath().c_str();
        return inForce;
    });
}

ERROR_CODE CameraOne::grab() {
    const auto opening = impl.slot->current();
    const ERROR_CODE taken = guarded<FailureReason::Messages::LOG>([&] {
        const ERROR_CODE code = opening->camera.grab();
        const bool ended = code == CAMERA_NOT_READY && opening->camera.getStreamInputStatus().goodbye;
        return ended ? END_OF_INPUT : code;
    });
    if (taken == SUCCESS) {
        opening->frame_taken.store(true, std::memory_order_relaxed);
    }
    return taken;
}
ERROR_CODE CameraOne::retrieveImage(Mat& image, VIEW view, MEM memory, Resolution resolution) {
    const auto opening = impl.slot->current();
    return guarded<FailureReason::Messages::LOG>([&] {
        if (!opening->frame_taken.load(std::memory_order_relaxed)) {
            return opening->camera.isOpened() ? CAMERA_NOT_READY : CAMERA_UNAVAILABLE;
        }
        return takesView(image, opening->camera, view, resolution)
                   ? opening->camera.retrieveImage(image, view, memory, resolution)
                   : INVALID_PARAMETER;
    });
}
Timestamp CameraOne::getTimestamp(TIME_REFERENCE reference) const {
    return guarded([&] { return impl->getTimestamp(reference); });
}
float CameraOne::getCameraFPS() const {
    return guarded([&] { return impl->getCameraFPS(); });
}
float CameraOne::getCurrentFPS() const {
    return guarded([&] { return impl->getCurrentFPS(); });
}
FrameCounters CameraOne::getFrameCounters() const {
    return guarded([&] { return impl->getFrameCounters(); });
}

StreamInputStatus CameraOne::getStreamInputStatus() const {
    return guarded([&] { return impl->getStreamInputStatus(); });
}

FrameInfo CameraOne::getFrameInfo() const {
    return guarded([&] { return impl->getFrameInfo(); });
}
std::vector<DeviceProperties> CameraOne::getDeviceList() const {
    FailureReason reason(FailureReason::Messages::KEEP_BACK);
    std::vector<DeviceProperties> devices = guarded([&] { return impl->getDeviceList(); });
    if (devices.empty()) {
        rememberReason(reason);
    }
    return devices;
}
String CameraOne::getDeviceListProblem() const {
    return guarded([&] { return impl->getDeviceListProblem(); });
}
CameraDescription CameraOne::getCameraInformation(Resolution resolution) const {
    return guarded([&] { return impl->getCameraInformation(resolution); });
}
ERROR_CODE CameraOne::getSensorsData(SensorsData& data, TIME_REFERENCE reference) {
    return whenOpen(impl, [&] { return impl->getSensorsData(data, reference); });
}
ERROR_CODE CameraOne::getSensorsDataBatch(std::vector<SensorsData>& batch) {
    return whenOpen(impl, [&] { return impl->getSensorsDataBatch(batch); });
}

ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, int& value) {
    return whenOpen(impl, [&] { return impl->getCameraSettings(setting, value); });
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, int value) {
    return whenOpen(impl, [&] { return impl->setCameraSettings(setting, value); });
}
ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, int& min, int& max) {
    return whenOpen(impl, [&] { return impl->getCameraSettings(setting, min, max); });
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, int min, int max) {
    return whenOpen(impl, [&] { return impl->setCameraSettings(setting, min, max); });
}
ERROR_CODE CameraOne::getCameraSettings(VIDEO_SETTINGS setting, Rect& region) {
    return whenOpen(impl, [&] { return impl->getCameraSettings(setting, region); });
}
ERROR_CODE CameraOne::setCameraSettings(VIDEO_SETTINGS setting, Rect region, bool reset) {
    return whenOpen(impl, [&] { return impl->setCameraSettings(setting, region, reset); });
}
ERROR_CODE CameraOne::getCameraSettingsRange(VIDEO_SETTINGS setting, int& min, int& max) {
    return whenOpen(impl, [&] { return impl->getCameraSettingsRange(setting, min, max); });
}
bool CameraOne::isCameraSettingSupported(VIDEO_SETTINGS setting) {
    return whenOpen(impl, [&] { return impl->isCameraSettingSupported(setting); });
}

void CameraOne::setInputStreamKeys(const StreamKeys& keys) {
    guarded([&] { impl.slot->setInputStreamKeys(keys); });
}
void CameraOne::setOutputStreamKeys(const StreamKeys& keys) {
    guarded([&] { impl.slot->setOutputStreamKeys(keys); });
}
ERROR_CODE CameraOne::enableStreaming(StreamingParameters parameters) {
    return whenOpen(impl, [&] { return impl->enableStreaming(parameters); });
}
void CameraOne::disableStreaming() {
    whenOpen(impl, [&] { impl->disableStreaming(); });
}
bool CameraOne::isStreamingEnabled() {
    return whenOpen(impl, [&] { return impl->isStreamingEnabled(); });
}
StreamingParameters CameraOne::getStreamingParameters() {
    return whenOpen(impl, [&] { return impl->getStreamingParameters(); });
}
String CameraOne::getControlRefusal() {
    return whenOpen(impl, [&] { return impl->getControlRefusal(); });
}
StreamingStatus CameraOne::getStreamingStatus() {
    return whenOpen(impl, [&] { return impl->getStreamingStatus(); });
}

ERROR_CODE CameraOne::enableRecording(const RecordingParameters& parameters) {
    return whenOpen(impl, [&] { return impl->enableRecording(parameters); });
}
void CameraOne::disableRecording() {
    whenOpen(impl, [&] { impl->disableRecording(); });
}
void CameraOne::pauseRecording(bool paused) {
    whenOpen(impl, [&] { impl->pauseRecording(paused); });
}
RecordingStatus CameraOne::getRecordingStatus() {
    FailureReason reason;
    const RecordingStatus status = whenOpen(impl, [&] { return impl->getRecordingStatus(); });
    if (status.last_result != SUCCESS) {
        rememberReason(reason);
    }
    return status;
}
ERROR_CODE CameraOne::setRLXPosition(int frame) {
    return whenOpen(impl, [&] { return impl->setRLXPosition(frame); });
}
ERROR_CODE CameraOne::setRLXPositionAt(Timestamp time) {
    return whenOpen(impl, [&] { return impl->setRLXPositionAt(time); });
}
int CameraOne::getRLXPosition() {
    return whenOpen(impl, [&] { return impl->getRLXPosition(); });
}
int CameraOne::getRLXNumberOfFrames() {
    return whenOpen(impl, [&] { return impl->getRLXNumberOfFrames(); });
}

ERROR_CODE CameraOne::reboot(INPUT_TYPE type) {
    return guarded([&] {
        registerBuiltInFactory();
        return CameraOneImpl::reboot(type);
    });
}
ERROR_CODE CameraOne::reboot() {
    return reboot(GMSL);
}

}  // namespace oru
