#pragma once

#include <cstdint>
#include <functional>

#include "backends/stream/control/control_messages.hpp"
#include "oru_input/grabber/LiveCameraGrabber.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// Carries out the requests of those who may control the camera. Nothing in a request is trusted: control, kind, number
/// of values, range and region are checked before the device hears of it. What is written here goes to the device and
/// past the settings cache of the sending application's camera, which therefore goes on answering what it wrote itself.
/// Threads: answer() from one; setGrabber from another.
class ControlHandler {
public:
    explicit ControlHandler(std::function<void()> afterWrite) : written(std::move(afterWrite)) {}

    /// As in UDPOutput: null, or a grabber without a device behind it, is no camera.
    void setGrabber(LiveCameraGrabber* camera);
    /// The reply; after a write with what the device then holds. The time is the device's.
    [[nodiscard]] ControlMessage answer(const ControlMessage& request);

private:
    struct Camera {
        LiveCameraGrabber* grabber = nullptr;
        int width = 0;
        int height = 0;
    };

    static ControlStatus read(const Camera& camera, ControlMessage& reply);
    static ControlStatus range(const Camera& camera, ControlMessage& reply);
    static ControlStatus write(const Camera& camera, const ControlMessage& request);
    static ControlStatus writeValue(LiveCameraGrabber& grabber, const ControlMessage& request);
    static ControlStatus writePair(LiveCameraGrabber& grabber, const ControlMessage& request);
    static ControlStatus writeRegion(const Camera& camera, const ControlMessage& request);

    std::function<void()> written;
    Mutex mutex;
    Camera present ORU_GUARDED_BY(mutex);
};

}  // namespace oru::stream
