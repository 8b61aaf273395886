#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "backends/stream/sender/RetransmitBuffer.hpp"
#include "backends/stream/sender/StreamBlock.hpp"
#include "backends/stream/sender/Subscriber.hpp"
#include "backends/stream/transport/AccessControl.hpp"
#include "backends/stream/transport/rate_limit.hpp"
#include "backends/stream/transport/srt_socket.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The receivers of one sender: listens, admits, hands the same bytes to each, and keeps the samples for those that
/// miss some. Threads: send(), awaitDelivery() and keepSamples() from one, the queries from any; one thread inside
/// admits receivers and hears their requests.
class Subscribers {
public:
    struct State {
        unsigned receivers = 0;
        SubscriberStatistics total;  ///< of those that have left as well
    };

    static constexpr std::size_t kMaxReceivers = 16;

    /// Takes over a connection that is for control; runs on the thread inside.
    using TakeControlConnection = std::function<void(SrtSocket&&, const std::string&)>;

    Subscribers(Clock& systemClock, EffectiveKeys keys, TakeControlConnection controlHandler);
    ~Subscribers();
    Subscribers(const Subscribers&) = delete;
    Subscribers& operator=(const Subscribers&) = delete;

    /// `bytesAtOnce`: how much one receiver gets at a stretch before the next one has its turn.
    /// STREAM_SEND_RESULT.
    int open(uint16_t port, std::size_t bytesAtOnce);
    void close();

    void send(const StreamBlock& block);
    /// Waits until every receiver has what was sent to it, at most this long.
    void awaitDelivery(uint64_t nanoseconds);
    /// Samples that no block carries, because nobody listens: for a receiver that comes back.
    void keepSamples(std::span<const IMUPacket> packets);
    [[nodiscard]] bool empty() const { return count.load(std::memory_order_acquire) == 0; }
    /// A receiver needs a key frame; asked once for each need.
    [[nodiscard]] bool takeKeyFrameRequest() { return keyFrameWanted.exchange(false, std::memory_order_acq_rel); }
    /// Some receiver has waited this long without a description.
    [[nodiscard]] bool descriptionOverdue(uint64_t nanoseconds);
    [[nodiscard]] State state();

private:
    void serve(const std::stop_token& stop);
    void serveOnce();
    [[nodiscard]] int listen(const SocketAddress& address);
    void admit();
    void admitReceiver(SrtSocket&& socket, const std::string& address);
    /// Whether there is still room for a line on those who come and go: strangers may do that all day.
    [[nodiscard]] bool mayLog() ORU_REQUIRES(mutex) { return lines.take(clock.monotonicNanoseconds()); }
    void hearRequests(SRTSOCKET socket) ORU_REQUIRES(mutex);
    void watchReceivers() ORU_REQUIRES(mutex);
    void dropFailed() ORU_REQUIRES(mutex);
    void dismiss(const Subscriber& subscriber) ORU_REQUIRES(mutex);
    [[nodiscard]] bool makeRoom(uint64_t now) ORU_REQUIRES(mutex);
    void requestKeyFrame() { keyFrameWanted.store(true, std::memory_order_release); }

    SrtLibrary library;
    Clock& clock;
    TakeControlConnection control;
    AccessControl accessControl;
    SrtSocket listener;
    SrtPoll poll;
    std::size_t batchBytes = 0;
    std::atomic<bool> keyFrameWanted{false};
    std::atomic<std::size_t> count{0};
    Mutex mutex;
    std::vector<Subscriber> subscribers ORU_GUARDED_BY(mutex);
    RetransmitBuffer samples ORU_GUARDED_BY(mutex);
    SubscriberStatistics gone ORU_GUARDED_BY(mutex);
    TokenBucket lines ORU_GUARDED_BY(mutex){40, 2};
    std::jthread thread;
};

}  // namespace oru::stream
