#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <thread>

#include "backends/stream/control/ControlServer.hpp"
#include "backends/stream/sender/CameraDescriber.hpp"
#include "backends/stream/sender/FrameTransmitter.hpp"
#include "backends/stream/sender/SampleQueue.hpp"
#include "backends/stream/sender/Subscribers.hpp"
#include "backends/stream/sender/frame_queue.hpp"
#include "backends/stream/sender/frame_rate.hpp"
#include "backends/stream/transport/TransportLease.hpp"
#include "backends/stream/wire/FrameLedger.hpp"
#include "collaborators/CalibrationSource.hpp"
#include "collaborators/UDPOutput.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The sending end: the hand-off converts into a buffer of its own, a thread encodes and sends, another admits
/// receivers. See UDPOutput for who may call what.
class StreamSender final : public UDPOutput {
public:
    StreamSender(Clock& systemClock, CalibrationSource& calibrationSource, bool tellMore);
    ~StreamSender() override;

    void useKeys(const StreamKeys& keys) override { givenKeys = keys; }
    int open(UDPOutConfig configuration) override;
    void setGrabber(LiveCameraGrabber* grabber) override;
    void asyncingestYUVFrame(unsigned char* pixels, Timestamp time, rlxrw::rlxSampleMetadata metadata,
                             int size) override;
    void waitingestYUVFrameProcessing() override;
    void noteSkippedFrame() override;
    void ingestIMU(IMUPacket packet) override;
    /// Only while a hand-off is copying: a frame that finds no free buffer is counted by the hand-off itself.
    [[nodiscard]] bool isBusy() const override { return copying.load(std::memory_order_acquire); }
    [[nodiscard]] bool isRunning() const override { return running.load(std::memory_order_acquire); }
    [[nodiscard]] bool carriesImu() const override { return isRunning() && settings.version >= 2; }
    [[nodiscard]] FrameCounters counters() const override { return ledger.counters(); }
    [[nodiscard]] StreamingStatus status() const override;
    void setImuCalibration(const ImuCalibration& calibration) override;

private:
    void close() ORU_EXCLUDES(lifecycle);
    void stop() ORU_REQUIRES(lifecycle);
    [[nodiscard]] int start(const UDPOutConfig& configuration) ORU_REQUIRES(lifecycle);
    [[nodiscard]] bool admit(Timestamp time);
    [[nodiscard]] bool take(const unsigned char* pixels, Timestamp time, const rlxrw::rlxSampleMetadata& metadata);
    void encodeLoop(const std::stop_token& stop);
    void handleFrame(const OutgoingFrame& frame);
    void handleSilence();
    /// What still waits, and then that nothing more will come.
    void finishStream();
    void adaptBitrate(uint64_t now);
    [[nodiscard]] int64_t ticks() const;
    [[nodiscard]] bool keyFrameDue(uint64_t now);

    TransportLease lease;
    Mutex lifecycle;  // held by whoever starts or stops the threads: its owner, or the end of the process
    Clock& clock;
    CalibrationSource& calibration;
    bool verbose;
    StreamKeys givenKeys;
    UDPOutConfig settings{};
    std::atomic<bool> running{false};
    std::atomic<bool> copying{false};
    FrameLedger ledger;
    FrameQueue frameQueue;
    std::unique_ptr<CameraDescriber> describer;
    std::unique_ptr<ControlServer> controls;  // null: nobody outside may control; outlives the subscribers
    std::unique_ptr<Subscribers> subscribers;
    std::unique_ptr<FrameTransmitter> transmitter;
    std::jthread encoding;

    Mutex pacingMutex;
    FrameDecimator decimator ORU_GUARDED_BY(pacingMutex){0};
    LoadPacer pacer ORU_GUARDED_BY(pacingMutex){0};

    SampleQueue samples;
    std::atomic<uint64_t> samplesLost{0};  ///< for want of room in the queue
    std::atomic<uint64_t> nextId{0};
    std::atomic<uint64_t> skipped{0};
    std::atomic<uint64_t> sent{0};
    std::atomic<uint32_t> bitrateNow{0};
    std::unique_ptr<BitrateControl> bitrateControl;  // of the encoding thread, as all below
    int64_t lastTicks = 0;
    uint64_t startedNs = 0;
    uint64_t keyFrameNs = 0;
    uint64_t sentNs = 0;
    uint64_t adaptedNs = 0;
    bool forceKey = false;
};

}  // namespace oru::stream
