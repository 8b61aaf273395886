#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "backends/stream/sender/CameraDescriber.hpp"
#include "backends/stream/sender/SampleQueue.hpp"
#include "backends/stream/sender/StreamBlock.hpp"
#include "backends/stream/sender/Subscribers.hpp"
#include "backends/stream/sender/frame_queue.hpp"
#include "backends/stream/wire/TsWriter.hpp"
#include "backends/stream/wire/records.hpp"
#include "coding/VideoEncoder.hpp"
#include "collaborators/UDPOutput.hpp"

namespace oru::stream {

/// Encodes a frame, puts it and what belongs to it into the transport stream, and hands that to the subscribers.
/// Threads: the encoding thread.
class FrameTransmitter final {
public:
    FrameTransmitter(Subscribers& receivers, CameraDescriber& cameraDescriber, SampleQueue& sampleQueue,
                     uint64_t sessionNumber);

    /// False: there is no encoder for this codec and size.
    [[nodiscard]] bool open(const UDPOutConfig& configuration);
    /// Sends one frame, with the samples that have come until it is encoded.
    /// False: the encoder failed; it starts anew with the next frame.
    [[nodiscard]] bool sendFrame(const OutgoingFrame& frame, int64_t pts, bool keyFrame, uint64_t skipped);
    /// Sends samples without a frame, so that receivers know that the sender lives, and a description if asked to.
    void sendSamples(int64_t pts, uint64_t lastId, bool describe);
    /// Sends the samples that wait, and then that the stream has ended.
    void sayGoodbye(int64_t pts, uint64_t lastId, uint64_t skipped);
    /// Nobody listens: what waits is only for a receiver that comes back.
    void setSamplesAside();
    /// From now on, also for an encoder that starts anew. False: it could not be changed.
    [[nodiscard]] bool setBitrate(uint32_t kilobits) {
        settings.bitrate = kilobits;
        return encoder.setBitrate(kilobits);
    }
    /// The rate that the encoder aims at, kbit/s.
    [[nodiscard]] uint32_t bitrate() const { return encoder.bitrate(); }
    [[nodiscard]] const char* encoderName() const { return encoder.name(); }

private:
    /// How many frames an encoder may hold before it gives the first one back.
    static constexpr std::size_t kPending = 16;
    struct PendingFrame {
        int64_t pts = -1;
        uint64_t id = 0;
        Timestamp timestamp = 0;
        rlxrw::rlxSampleMetadata metadata{};
    };

    [[nodiscard]] bool openEncoder();
    void transmit(const coding::VideoEncoder::Coded& coded, uint64_t skipped);
    void writeDescriptionPacket();
    /// Writes the record with as many of the samples that wait as fit; how many.
    [[nodiscard]] std::size_t writeRecordPacket(const FrameRecord& record);
    /// Ends a block with its record and hands it on. `frameBefore`: number of the frame before the block.
    void send(StreamBlock::Kind kind, const FrameRecord& record, uint64_t frameBefore);

    Subscribers& subscribers;
    CameraDescriber& describer;
    SampleQueue& queue;
    uint64_t session;
    coding::VideoEncoder encoder;
    coding::VideoEncoder::Settings settings;
    TsWriter writer;
    std::vector<uint8_t> recordBytes;
    std::vector<IMUPacket> samples;
    std::array<PendingFrame, kPending> pending;
    std::size_t nextPending = 0;
};

}  // namespace oru::stream
