#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "backends/virtual_bus/inertial/TimeAxis.hpp"
#include "backends/virtual_bus/inertial/VirtualMcu.hpp"
#include "backends/virtual_bus/inertial/inertial_source.hpp"
#include "backends/virtual_bus/scene/image_source.hpp"
#include "backends/virtual_bus/sensor/ImagePipeline.hpp"
#include "backends/virtual_bus/sensor/faults.hpp"
#include "backends/virtual_bus/sensor/frame_exchange.hpp"
#include "backends/virtual_bus/sensor/sensor_controls.hpp"
#include "oru_input/grabber/frame_status.hpp"
#include "utils/Mutex.hpp"

namespace oru::virtual_bus {

/// The capture thread of an opened camera: draws an image at each absolute deadline of its source and offers it, and
/// plays the camera's faults. A deadline missed because the machine is too slow is a frame lost to the sensor, not a
/// delay of all later ones.
class Capture {
public:
    struct Setup {
        int camera = 0;  ///< its id, for messages and the control file
        std::unique_ptr<ImageSource> images;
        std::unique_ptr<InertialSource> inertial;
        VirtualMcu::Options mcu;
        FaultPlan faults;
        std::string control_file;
        int width = 0;
        int height = 0;
    };

    /// Clock, frames, micro-controller and controls outlive the capture. Starts at once.
    Capture(Clock& clock, FrameExchange& frames, VirtualMcu& mcu, SensorControls& controls, Setup setup);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// Of the source, frames apart: NO_FRAME while it runs, SOURCE_ERROR once it has brought nothing for 2 s. Time in
    /// which the process stood still is no silence. Threads: any.
    [[nodiscard]] FrameStatus status() const;
    /// Whether there will be no more frames. Threads: any.
    [[nodiscard]] bool isOver() const { return finalStatus.load(std::memory_order_acquire) != NO_FRAME; }
    /// The taker has waited that long for a frame in vain, which is how a capture thread that hangs is noticed.
    /// Threads: the taker.
    void noteWait(uint64_t nanoseconds);

private:
    enum class Link : int32_t { UP, SILENT, LOST };

    void run();
    void playImages();
    void finish(FrameStatus status);
    void noteAlive();
    [[nodiscard]] bool waitUntil(uint64_t deadline);
    [[nodiscard]] Link followFaults(uint64_t moment);
    void followPlug(bool unplugged, uint64_t moment);
    [[nodiscard]] uint64_t jitter(uint64_t moment);
    [[nodiscard]] bool happens(Fault fault, uint64_t moment);
    void loseNext(Loss cause);
    void produce(uint64_t moment);
    void describe(Frame& frame, const ImageSettings& settings) const;
    [[nodiscard]] bool drawn(uint64_t moment, unsigned char* pixels);

    Clock& systemClock;
    FrameExchange& frameExchange;
    VirtualMcu& microController;
    SensorControls& sensorControls;
    Setup cameraSetup;
    ImagePipeline pipeline;
    TimeAxis axis;
    FaultFeed faultFeed;
    // Monotonic times, stored by the capture thread: the last frame offered, and when the thread was last seen to run.
    std::atomic<uint64_t> lastFrame;
    std::atomic<uint64_t> lastAlive;
    // Of the taker.
    uint64_t aliveAtLastWait = 0;
    std::atomic<uint64_t> waitedInVain{0};
    std::atomic<FrameStatus> finalStatus{NO_FRAME};
    // Of the capture thread alone.
    std::mt19937 randomGenerator{12345};
    const FaultPlan* faultPlan = nullptr;
    uint64_t faultTime = 0;  // never runs backwards, whoever asks
    bool unpluggedNow = false;
    uint64_t unpluggedSince = 0;
    int64_t clockOffsetMs = 0;
    uint64_t imageNumber = 0;

    Mutex mutex;
    std::condition_variable_any wake;
    bool stopping ORU_GUARDED_BY(mutex) = false;
    std::thread captureThread;
};

}  // namespace oru::virtual_bus
