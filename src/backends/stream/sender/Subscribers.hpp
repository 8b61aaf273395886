#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "backends/stream/transport/access_control.hpp"
#include "backends/stream/transport/rate_limit.hpp"
#include "backends/stream/transport/srt_socket.hpp"
#include "oru/types.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The receivers of one sender: listens, admits, hands the same bytes to each, and keeps what is queued for each
/// bounded. A receiver that falls behind gets nothing until it has caught up, and then goes on with a key frame and
/// the samples that it missed.
/// Threads: send() from one, the queries from any; one thread inside admits receivers and hears their requests.
class Subscribers {
public:
    /// A key frame travels with a description; samples travel alone while there is no frame.
    enum class Part { KEY_FRAME, FRAME, DESCRIPTION, SAMPLES };
    /// What all receivers get. Samples are numbered by the sender, in their order.
    struct Block {
        std::span<const uint8_t> bytes;
        std::size_t table_bytes;  ///< the programme tables that it begins with
        Part part;
        uint64_t first_sample;  ///< the first one that it carries
        uint64_t end_sample;    ///< past the last one
    };
    /// Writes the samples before a block for a receiver that has missed them; called inside send().
    class MissedSamples {
    public:
        virtual ~MissedSamples() = default;
        /// The oldest one that can still be had.
        [[nodiscard]] virtual uint64_t oldest() const = 0;
        /// The one after the sample of this time, if that can still be had.
        [[nodiscard]] virtual std::optional<uint64_t> after(Timestamp time) const = 0;
        /// Writes samples from number `first` on, as many as go into one record, as whole transport packets.
        /// @return past the last one written, at most the block's first_sample
        virtual uint64_t write(std::vector<uint8_t>& target, const Block& block, uint64_t first) = 0;
    };
    struct State {
        unsigned receivers = 0;
        uint64_t sent_packets = 0;
        uint64_t repeated_packets = 0;
        uint64_t held_back_frames = 0;  ///< frames that one receiver or another did not get
        uint64_t sent_bytes = 0;
        uint64_t lost_samples = 0;  ///< that one receiver or another missed for longer than they are kept
        double backlog_ms = 0.0;    ///< of the receiver that is furthest behind
    };

    static constexpr std::size_t kMaxReceivers = 16;

    /// Takes over a connection that is for control; runs on the thread inside.
    using TakeControlConnection = std::function<void(SrtSocket&&, const std::string&)>;

    Subscribers(Clock& systemClock, StreamKeys keys, TakeControlConnection controlHandler);
    ~Subscribers();
    Subscribers(const Subscribers&) = delete;
    Subscribers& operator=(const Subscribers&) = delete;

    /// `batch_bytes`: how much one receiver gets at a stretch before the next one has its turn.
    /// 0, or a negative number: the port cannot be had.
    int open(uint16_t port, std::size_t batch_bytes);
    void close();

    void send(const Block& block, MissedSamples& missed);
    [[nodiscard]] bool empty() const { return count.load(std::memory_order_acquire) == 0; }
    /// A receiver needs a key frame; asked once for each need.
    [[nodiscard]] bool takeKeyFrameWish() { return keyFrameWanted.exchange(false, std::memory_order_acq_rel); }
    /// Some receiver has waited this long without a description.
    [[nodiscard]] bool descriptionOverdue(uint64_t nanoseconds);
    [[nodiscard]] State state();

private:
    struct Receiver {
        SrtSocket socket;
        std::string address;
        bool needs_key = true;
        bool described = false;
        bool started = false;  ///< has had a key frame
        bool failed = false;
        std::size_t sent = 0;         ///< bytes of the block in hand
        Timestamp resumes_after = 0;  ///< the newest sample of its connection before; 0: it had none
        bool counting = false;        ///< samples, from the first block that it gets
        uint64_t next_sample = 0;
        TokenBucket messages;
        uint64_t joined_ns = 0;
        uint64_t heard_ns = 0;
        uint64_t acknowledgements = 0;
        uint64_t sent_packets = 0;
        uint64_t repeated_packets = 0;
        double backlog_ms = 0.0;
        uint64_t late_since_ns = 0;  ///< since when the backlog has been too long; 0: it is not
    };

    void serve();
    void admit();
    /// Whether there is still room for a line on those who come and go: strangers may do that all day.
    [[nodiscard]] bool mayLog() ORU_REQUIRES(mutex) { return lines.take(clock.monotonicNanoseconds()); }
    void hearRequests(SRTSOCKET socket) ORU_REQUIRES(mutex);
    void watchReceivers(uint64_t now) ORU_REQUIRES(mutex);
    void dropFailed() ORU_REQUIRES(mutex);
    [[nodiscard]] bool makeRoom(uint64_t now) ORU_REQUIRES(mutex);
    [[nodiscard]] bool isBehind(Receiver& receiver) const ORU_REQUIRES(mutex);
    [[nodiscard]] bool accepts(Receiver& receiver, Part part) ORU_REQUIRES(mutex);
    /// Sends what comes before the rest of the block, and says how much of the block that was in `receiver.sent`.
    [[nodiscard]] bool sendMissed(Receiver& receiver, const Block& block, MissedSamples& missed) ORU_REQUIRES(mutex);
    [[nodiscard]] bool sendBatch(Receiver& receiver, const Block& block) ORU_REQUIRES(mutex);
    [[nodiscard]] bool sendUpTo(Receiver& receiver, std::span<const uint8_t> bytes, std::size_t end)
        ORU_REQUIRES(mutex);
    void wishKeyFrame() { keyFrameWanted.store(true, std::memory_order_release); }

    SrtLibrary library;
    Clock& clock;
    TakeControlConnection control;
    AccessControl accessControl;
    SrtSocket listener;
    SrtPoll poll;
    std::thread thread;
    std::size_t batchBytes = 0;
    std::atomic<bool> stopWanted{false};
    std::atomic<bool> keyFrameWanted{false};
    std::atomic<std::size_t> count{0};
    Mutex mutex;
    std::vector<Receiver> receivers ORU_GUARDED_BY(mutex);
    TokenBucket lines ORU_GUARDED_BY(mutex){40, 2};
    uint64_t gonePackets ORU_GUARDED_BY(mutex) = 0;
    uint64_t sentBytes ORU_GUARDED_BY(mutex) = 0;
    uint64_t goneRepeated ORU_GUARDED_BY(mutex) = 0;
    uint64_t heldBack ORU_GUARDED_BY(mutex) = 0;
    uint64_t lostSamples ORU_GUARDED_BY(mutex) = 0;
    std::vector<uint8_t> missedBytes ORU_GUARDED_BY(mutex);
};

}  // namespace oru::stream
