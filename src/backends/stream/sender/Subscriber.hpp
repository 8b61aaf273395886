#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "backends/stream/sender/RetransmitBuffer.hpp"
#include "backends/stream/sender/StreamBlock.hpp"
#include "backends/stream/transport/rate_limit.hpp"
#include "backends/stream/transport/srt_socket.hpp"
#include "oru/types.hpp"

namespace oru::stream {

/// What one subscriber was sent, or several together.
struct SubscriberStatistics {
    uint64_t sent_packets = 0;
    uint64_t repeated_packets = 0;
    uint64_t held_back_frames = 0;  ///< frames that it did not get because it was behind
    uint64_t sent_bytes = 0;
    uint64_t lost_samples = 0;  ///< that it missed for longer than they are kept
    double backlog_ms = 0.0;    ///< of several: that of the one which is furthest behind

    SubscriberStatistics& operator+=(const SubscriberStatistics& other);
};

/// One connected receiver: what it gets of each block, how far it is behind, and what it has missed. When it falls
/// behind it gets nothing until it has caught up, and then goes on with a key frame and the samples that it missed.
/// Times are the monotonic clock's, in nanoseconds. Threads: one at a time.
class Subscriber {
public:
    struct Requests {
        bool key_frame = false;
        bool too_many = false;  ///< it sends more than is allowed
    };

    /// `newestSample`: the time of the newest sample of its connection before; 0: it had none.
    Subscriber(SrtSocket&& connection, std::string peerAddress, Timestamp newestSample, uint64_t now);

    [[nodiscard]] SRTSOCKET socket() const { return connection.get(); }
    [[nodiscard]] const std::string& address() const { return peerAddress; }
    [[nodiscard]] const SubscriberStatistics& statistics() const { return total; }
    [[nodiscard]] bool hasFailed() const { return failed; }
    void fail() { failed = true; }
    /// It has acknowledged whatever was sent to it, or is lost.
    [[nodiscard]] bool hasEverything() const;
    /// When it last showed that it is there.
    [[nodiscard]] uint64_t heardAt() const { return heardNs; }
    [[nodiscard]] bool needsKeyFrame() const { return needsKey; }
    /// It needs a key frame, and there is nothing in the way of one.
    [[nodiscard]] bool isReadyForKeyFrame() const;
    /// It has waited so long without a description.
    [[nodiscard]] bool lacksDescription(uint64_t now, uint64_t nanoseconds) const;

    /// Takes some of the requests that have come.
    [[nodiscard]] Requests takeRequests(uint64_t now);
    /// Looks at the connection; one that is silent too long has failed.
    void watch(uint64_t now);
    /// Begins with a block: decides whether it gets that, and sends the samples that it has missed.
    void begin(const StreamBlock& block, RetransmitBuffer& samples, uint64_t now);
    /// Sends at most so many bytes of the block; whether there are more.
    [[nodiscard]] bool sendBatch(const StreamBlock& block, std::size_t batchBytes);

private:
    [[nodiscard]] bool isBehind(uint64_t now);
    [[nodiscard]] bool accepts(StreamBlock::Kind kind, uint64_t now);
    /// Sends what comes before the rest of the block, and says how much of the block that was in `sent`.
    [[nodiscard]] bool sendMissed(const StreamBlock& block, RetransmitBuffer& samples);
    [[nodiscard]] bool sendUpTo(std::span<const uint8_t> bytes, std::size_t end);

    SrtSocket connection;
    std::string peerAddress;
    SubscriberStatistics total;
    TokenBucket messages;
    bool needsKey = true;
    bool described = false;
    bool started = false;  ///< has had a key frame
    bool failed = false;
    std::size_t sent = 0;        ///< bytes of the block in hand
    Timestamp resumesAfter;      ///< a sample's time
    bool countsSamples = false;  ///< from the first block that it gets
    uint64_t nextSample = 0;
    uint64_t endSample = 0;  ///< past the last one of the block in hand
    uint64_t joinedNs;
    uint64_t heardNs;
    uint64_t acknowledgements = 0;
    uint64_t lateSinceNs = 0;  ///< since when the backlog has been too long; 0: it is not
};

}  // namespace oru::stream
