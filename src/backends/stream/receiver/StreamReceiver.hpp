#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "backends/stream/control/ControlClient.hpp"
#include "backends/stream/receiver/ImuStore.hpp"
#include "backends/stream/receiver/Reassembler.hpp"
#include "backends/stream/receiver/StreamLink.hpp"
#include "backends/stream/receiver/coded_queue.hpp"
#include "backends/stream/receiver/image_ring.hpp"
#include "backends/stream/transport/TransportLease.hpp"
#include "backends/stream/transport/stream_keys.hpp"
#include "backends/stream/wire/FrameLedger.hpp"
#include "coding/VideoDecoder.hpp"
#include "collaborators/CalibrationSource.hpp"
#include "collaborators/UDPInput.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The receiving end: a thread that keeps the connection and one that decodes. See UDPInput for who may call what.
class StreamReceiver final : public UDPInput {
public:
    StreamReceiver(Clock& systemClock, CalibrationSource& calibration, std::unique_ptr<rlxrw::RLXVideo> recorder,
                   bool tellMore);
    ~StreamReceiver() override;

    void useKeys(const StreamKeys& given) override { givenKeys = given; }
    int open(String ip, unsigned short port, int unused) override;
    bool readStreamData(unsigned char* image, unsigned char* second) override;
    Timestamp frameTimestamp() override { return frame.timestamp; }
    bool frameHasMetadata() override { return frame.has_metadata; }
    rlxrw::rlxSampleMetadata frameMetadata() override { return frame.metadata; }
    StreamDescription description() override;
    int announcedFps() override;
    StreamImuPose announcedImuPose() override;
    int versionByte() override;
    bool canSupplyCurrentImu() override;
    ImuCalibration announcedImuCalibration() override;
    bool getCurrentIMU(IMUPacket& packet) override { return samples.newest(packet); }
    std::vector<IMUPacket> takeImuPacketsBefore(Timestamp time) override;
    rlxrw::RLXVideo& recorder() override { return *ownRecorder; }
    [[nodiscard]] FrameCounters counters() const override { return ledger.counters(); }
    [[nodiscard]] StreamInputStatus status() const override;
    bool valueRange(VIDEO_SETTINGS setting, int& min, int& max) override;
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override;
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override;
    int getGrabberSettingsValue(VIDEO_SETTINGS setting, int side, Rect& region) override;
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int side, Rect region, bool reset) override;
    std::string controlRefusal() override { return control.refusal(); }

private:
    enum class Told : uint8_t { NOTHING, SILENCE, END };

    void close() ORU_EXCLUDES(lifecycle);
    void stop() ORU_REQUIRES(lifecycle);
    [[nodiscard]] int connect(const std::string& host, uint16_t port) ORU_REQUIRES(lifecycle);
    /// The sender said goodbye, and nothing of its stream is on the way any more.
    [[nodiscard]] bool hasEnded() const;
    /// Says once what became of the sender, where that changes.
    void tellOfSender(bool ended, bool silent);
    void complainOfKey();
    [[nodiscard]] bool awaitDescription(const std::string& sender, uint64_t deadline);
    [[nodiscard]] std::string keyRefusal() const;
    [[nodiscard]] static int complainUnanswered(const std::string& address, const std::string& refusal, bool connected);
    void adopt(DescriptionRecord&& record);
    void decodeLoop(const std::stop_token& stop);
    void decodeImage(CodedImage& image);
    [[nodiscard]] bool prepareDecoder(VideoCodec codec);
    void lose(FrameLedger::Cause cause);
    void setPatience(int fps);
    [[nodiscard]] std::optional<ControlMessage> askWithRight(ControlOperation operation, VIDEO_SETTINGS setting);
    [[nodiscard]] int write(const ControlMessage& request);

    TransportLease lease;
    Mutex lifecycle;  // held by whoever starts or stops the threads: its owner, or the end of the process
    Clock& clock;
    CalibrationSource& calibrationSource;
    std::unique_ptr<rlxrw::RLXVideo> ownRecorder;
    bool verbose;

    FrameLedger ledger;
    ImuStore samples;
    CodedQueue queue;
    ImageRing images;
    FrameInfo frame;  // of the caller's thread

    mutable Mutex mutex;
    std::condition_variable_any described;
    DescriptionRecord senderDescription ORU_GUARDED_BY(mutex);
    bool haveDescription ORU_GUARDED_BY(mutex) = false;
    bool sizeWarned ORU_GUARDED_BY(mutex) = false;

    coding::VideoDecoder decoder;  // of the decoding thread
    bool needsKey = true;
    uint32_t width = 0;
    uint32_t height = 0;
    std::atomic<bool> opened{false};
    bool keyWarned = false;
    Told told = Told::NOTHING;

    StreamKeys givenKeys;
    EffectiveKeys keys;
    ControlClient control;
    StreamLink link;
    Reassembler reassembler;
    std::jthread decoding;
};

}  // namespace oru::stream
