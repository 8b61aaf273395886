#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "audience.hpp"
#include "camera_facts.hpp"
#include "collaborators/CalibrationSource.hpp"
#include "collaborators/UDPOutput.hpp"
#include "frame_ledger.hpp"
#include "frame_mailbox.hpp"
#include "frame_rate.hpp"
#include "frame_transmitter.hpp"
#include "sample_queue.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The sending end: the hand-off converts into a buffer of its own, a thread encodes and sends, another admits
/// receivers. See UDPOutput for who may call what.
class StreamSender final : public UDPOutput {
public:
    StreamSender(Clock& clock, CalibrationSource& calibration, bool verbose);
    ~StreamSender() override;

    int open(UDPOutConfig configuration) override;
    void setGrabber(LiveCameraGrabber* grabber) override;
    void asyncingestYUVFrame(unsigned char* pixels, Timestamp time, rlxrw::rlxSampleMetadata metadata,
                             int size) override;
    void waitingestYUVFrameProcessing() override;
    void noteSkippedFrame() override;
    void ingestIMU(IMUPacket packet) override;
    /// Only while a hand-off is copying: a frame that finds no free buffer is counted by the hand-off itself.
    [[nodiscard]] bool isBusy() const override { return copying_.load(std::memory_order_acquire); }
    [[nodiscard]] bool isRunning() const override { return running_.load(std::memory_order_acquire); }
    [[nodiscard]] bool carriesImu() const override { return isRunning() && configuration_.version >= 2; }
    [[nodiscard]] FrameCounters counters() const override { return ledger_.counters(); }
    [[nodiscard]] StreamingStatus status() const override;

private:
    void close();
    [[nodiscard]] bool admit(Timestamp time);
    void encodeLoop();
    void handleFrame(const OutgoingFrame& frame);
    void handleSilence();
    void adaptBitrate(uint64_t now);
    [[nodiscard]] int64_t ticks() const;
    [[nodiscard]] bool keyFrameDue(uint64_t now);

    Clock& clock_;
    CalibrationSource& calibration_;
    bool verbose_;
    UDPOutConfig configuration_{};
    std::atomic<bool> running_{false};
    std::atomic<bool> copying_{false};
    FrameLedger ledger_;
    FrameMailbox mailbox_;
    std::unique_ptr<Audience> audience_;
    std::unique_ptr<CameraFacts> facts_;
    std::unique_ptr<FrameTransmitter> transmitter_;
    std::thread encoding_;

    Mutex pacingMutex_;
    FrameDecimator decimator_ ORU_GUARDED_BY(pacingMutex_){0};
    LoadPacer pacer_ ORU_GUARDED_BY(pacingMutex_){0};

    SampleQueue samples_;
    std::atomic<bool> samplesLost_{false};
    std::atomic<uint64_t> nextId_{0};
    std::atomic<uint64_t> skipped_{0};
    std::atomic<uint64_t> sent_{0};
    std::atomic<uint32_t> bitrateNow_{0};
    std::unique_ptr<BitrateControl> bitrate_;  // of the encoding thread, as all below
    int64_t lastTicks_ = 0;
    uint64_t startedNs_ = 0;
    uint64_t keyFrameNs_ = 0;
    uint64_t sentNs_ = 0;
    uint64_t adaptedNs_ = 0;
    bool forceKey_ = false;
};

}  // namespace oru::stream
