#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "backends/stream/receiver/ImuStore.hpp"
#include "backends/stream/receiver/coded_queue.hpp"
#include "backends/stream/wire/FrameLedger.hpp"
#include "backends/stream/wire/records.hpp"
#include "backends/stream/wire/ts_demuxer.hpp"

namespace oru::stream {

/// Turns transport packets into coded images that can be decoded without damage: pairs each image with its record,
/// checks its length and checksum, and after anything that is missing lets nothing through before a key frame.
/// Threads: one feeds it; keyFrameWanted may be set from another, goodbye asked from any.
class Reassembler final : private TsSink, private RecordSink {
public:
    using DescriptionHandler = std::function<void(DescriptionRecord&&)>;

    Reassembler(CodedQueue& codedQueue, ImuStore& imuStore, FrameLedger& frameLedger,
                std::atomic<bool>& keyFrameRequest, DescriptionHandler descriptionHandler);

    void feed(const uint8_t* data, std::size_t size) { demuxer.feed(data, size); }
    /// A new connection: what was half received is void.
    void restart();
    [[nodiscard]] uint64_t malformedPackets() const { return malformed; }
    /// The sender has ended the stream, and no other has begun since. Threads: any.
    [[nodiscard]] bool goodbye() const { return ended.load(std::memory_order_acquire); }

private:
    void onVideo(PesPacket& packet) override;
    void onData(PesPacket& packet) override;
    void onFrameRecord(const FrameRecord& record, const std::vector<IMUPacket>& packets) override;
    void onDescription(DescriptionRecord&& record) override;

    void enterSession(uint64_t session);
    /// Books what is missing before this frame. False: it has been here before.
    [[nodiscard]] bool follow(const FrameRecord& record);
    /// Books the frames that the sender took after the last one that came.
    void bookRest(const FrameRecord& record);
    [[nodiscard]] bool imageIntact(const FrameRecord& record) const;
    void waitForKeyFrame(FrameLedger::Cause cause);
    void queueImage(const FrameRecord& record);

    CodedQueue& queue;
    ImuStore& samples;
    FrameLedger& ledger;
    std::atomic<bool>& keyFrameWanted;
    DescriptionHandler handler;
    TsDemuxer demuxer;
    RecordReader reader;
    PesPacket video;
    bool videoPresent = false;
    uint64_t dataPts = 0;
    CodedImage next;
    bool sessionKnown = false;
    bool imageSeen = false;  ///< in this session
    uint64_t currentSession = 0;
    uint64_t lastId = 0;
    uint64_t lastSkipped = 0;
    bool waiting = true;  ///< for a key frame
    std::atomic<bool> ended{false};
    uint64_t malformed = 0;
};

}  // namespace oru::stream
