#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <thread>

#include "backends/virtual_bus/frame_exchange.hpp"
#include "backends/virtual_bus/inertial_source.hpp"
#include "backends/virtual_bus/picture_pipeline.hpp"
#include "backends/virtual_bus/picture_source.hpp"
#include "backends/virtual_bus/sensor_controls.hpp"
#include "backends/virtual_bus/time_axis.hpp"
#include "backends/virtual_bus/virtual_mcu.hpp"
#include "oru_input/grabber/frame_status.hpp"
#include "utils/Mutex.hpp"

namespace oru::virtual_bus {

/// The capture thread of an opened camera: draws a picture at each absolute deadline of the frame rate and offers it.
/// A deadline missed because the machine is too slow is a frame lost to the sensor, not a delay of all later ones.
class Capture {
public:
    struct Setup {
        std::unique_ptr<PictureSource> pictures;
        std::unique_ptr<InertialSource> inertial;
        VirtualMcu::Options mcu;
        int width = 0;
        int height = 0;
        int fps = 30;
    };

    /// Clock, frames, micro-controller and controls outlive the capture. Starts at once.
    Capture(Clock& clock, FrameExchange& frames, VirtualMcu& mcu, SensorControls& controls, Setup setup);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// Of the source, frames apart: NO_FRAME while it runs. Threads: any.
    [[nodiscard]] FrameStatus status() const;

private:
    void run();
    [[nodiscard]] bool waitUntil(uint64_t deadline);
    [[nodiscard]] uint64_t deadline(uint64_t index) const;
    [[nodiscard]] bool produce(uint64_t index);

    Clock& clock_;
    FrameExchange& frames_;
    VirtualMcu& mcu_;
    SensorControls& controls_;
    Setup setup_;
    PicturePipeline pipeline_;
    TimeAxis axis_;
    std::atomic<uint64_t> last_frame_;  // monotonic time of the last frame offered
    std::atomic<bool> ended_{false};
    Mutex mutex_;
    std::condition_variable_any wake_;
    bool stop_ ORU_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

}  // namespace oru::virtual_bus
