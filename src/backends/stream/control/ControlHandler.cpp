#include "backends/stream/control/ControlHandler.hpp"

#include "oru/controls.hpp"

namespace oru::stream {
namespace {

constexpr std::size_t kPair = 2;

ControlStatus outcome(int deviceStatus) {
    return deviceStatus == 0 ? ControlStatus::DONE : ControlStatus::DEVICE_REFUSED;
}

/// A part of 0 .. size - 1 that is not empty.
bool isInside(int64_t start, int64_t length, int64_t size) {
    return start >= 0 && length > 0 && start + length <= size;
}

}  // namespace

void ControlHandler::setGrabber(LiveCameraGrabber* camera) {
    Camera next;
    if (camera != nullptr && camera->getEffectiveWidth() > 0) {
        next = {camera, camera->getEffectiveWidth(), camera->getEffectiveHeight()};
    }
    const MutexLock lock(mutex);
    present = next;
}

ControlMessage ControlHandler::answer(const ControlMessage& request) {
    ControlMessage reply;
    reply.operation = request.operation;
    reply.reply = true;
    reply.id = request.id;
    reply.control = request.control;
    Camera camera;
    {
        const MutexLock lock(mutex);
        camera = present;
    }
    if (camera.grabber == nullptr) {
        reply.status = ControlStatus::NO_CAMERA;
        return reply;
    }
    if (request.operation == ControlOperation::WRITE) {
        reply.status = write(camera, request);
        if (reply.status != ControlStatus::DONE) {
            return reply;
        }
        written();
        (void)read(camera, reply);
        return reply;
    }
    if (request.count != 0 || request.automatic) {
        reply.status = ControlStatus::MISFIT;
        return reply;
    }
    reply.status = request.operation == ControlOperation::READ ? read(camera, reply) : range(camera, reply);
    return reply;
}

ControlStatus ControlHandler::read(const Camera& camera, ControlMessage& reply) {
    LiveCameraGrabber& grabber = *camera.grabber;
    const std::size_t count = valuesOf(reply.control);
    int low = 0;
    int high = 0;
    if (reply.control == AEC_AGC_ROI) {
        Rect region;
        if (grabber.getROIforAECAGC(0, region) != 0) {
            return ControlStatus::DEVICE_REFUSED;
        }
        reply.values = {static_cast<int32_t>(region.x), static_cast<int32_t>(region.y),
                        static_cast<int32_t>(region.width), static_cast<int32_t>(region.height)};
    } else if (count == 0 || !grabber.getVideoSettingRange(reply.control, low, high)) {
        return ControlStatus::UNKNOWN_CONTROL;
    } else if (count == kPair) {
        const auto [from, to] = grabber.getGrabberSettingsRangeValue(reply.control);
        reply.values = {from, to, 0, 0};
    } else {
        reply.values = {grabber.getGrabberSettingsValue(reply.control), 0, 0, 0};
    }
    reply.count = static_cast<uint8_t>(count);
    return ControlStatus::DONE;
}

ControlStatus ControlHandler::range(const Camera& camera, ControlMessage& reply) {
    if (reply.control == AEC_AGC_ROI) {
        return ControlStatus::MISFIT;
    }
    int low = 0;
    int high = 0;
    if (valuesOf(reply.control) == 0 || !camera.grabber->getVideoSettingRange(reply.control, low, high)) {
        return ControlStatus::UNKNOWN_CONTROL;
    }
    reply.values = {low, high, 0, 0};
    reply.count = kPair;
    return ControlStatus::DONE;
}

ControlStatus ControlHandler::write(const Camera& camera, const ControlMessage& request) {
    const std::size_t count = valuesOf(request.control);
    if (count == 0) {
        return ControlStatus::UNKNOWN_CONTROL;
    }
    if (request.count != (request.automatic ? 0 : count)) {
        return ControlStatus::MISFIT;
    }
    if (request.control == AEC_AGC_ROI) {
        return writeRegion(camera, request);
    }
    return count == kPair ? writePair(*camera.grabber, request) : writeValue(*camera.grabber, request);
}

ControlStatus ControlHandler::writeValue(LiveCameraGrabber& grabber, const ControlMessage& request) {
    int low = 0;
    int high = 0;
    if (!grabber.getVideoSettingRange(request.control, low, high)) {
        return ControlStatus::UNKNOWN_CONTROL;
    }
    const int value = request.automatic ? kAutomaticValue : request.values[0];
    const bool fits = request.automatic || (value >= low && value <= high);
    if (!fits || !grabber.valueInRange(request.control, value)) {
        return ControlStatus::OUT_OF_RANGE;
    }
    return outcome(grabber.setGrabberSettingsValue(request.control, value, request.automatic));
}

ControlStatus ControlHandler::writePair(LiveCameraGrabber& grabber, const ControlMessage& request) {
    int low = 0;
    int high = 0;
    if (!grabber.getVideoSettingRange(request.control, low, high)) {
        return ControlStatus::UNKNOWN_CONTROL;
    }
    std::pair<int, int> wanted{kAutomaticValue, kAutomaticValue};
    if (!request.automatic) {
        wanted = {request.values[0], request.values[1]};
        if (wanted.first > wanted.second || wanted.first < low || wanted.second > high) {
            return ControlStatus::OUT_OF_RANGE;
        }
    }
    return outcome(grabber.setGrabberSettingsValue(request.control, wanted, request.automatic));
}

ControlStatus ControlHandler::writeRegion(const Camera& camera, const ControlMessage& request) {
    if (request.automatic) {
        return outcome(camera.grabber->resetROIforAECAGC(0));
    }
    const auto& [x, y, width, height] = request.values;
    if (!isInside(x, width, camera.width) || !isInside(y, height, camera.height)) {
        return ControlStatus::OUT_OF_RANGE;
    }
    const Rect region{static_cast<uint64_t>(x), static_cast<uint64_t>(y), static_cast<uint64_t>(width),
                      static_cast<uint64_t>(height)};
    return outcome(camera.grabber->setROIforAECAGC(0, region));
}

}  // namespace oru::stream
