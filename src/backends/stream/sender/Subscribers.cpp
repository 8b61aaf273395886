#include "backends/stream/sender/Subscribers.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1000000;
constexpr double kMaxBacklogMs = 400.0;
constexpr double kCaughtUpMs = 60.0;
constexpr uint64_t kLastingNs = 150 * kMillisecond;
constexpr uint64_t kSilentNs = 4000 * kMillisecond;
constexpr uint64_t kEvictableNs = 1000 * kMillisecond;
constexpr int kServiceMs = 50;
constexpr int kPendingConnections = 16;
constexpr int kViewerLatencyMs = 120;
constexpr int kRequestLatencyMs = 20;
constexpr int kSendBufferBytes = 8 << 20;
constexpr int kReceiveBufferBytes = 1 << 18;
constexpr int kRequestsPerTurn = 8;
constexpr double kMessagesAtOnce = 50;
constexpr double kMessagesPerSecond = 20;

}  // namespace

Subscribers::Subscribers(Clock& systemClock, StreamKeys keys, TakeControlConnection controlHandler)
    : clock(systemClock), control(std::move(controlHandler)), accessControl(systemClock, std::move(keys)) {}

Subscribers::~Subscribers() {
    close();
}

int Subscribers::open(uint16_t port, std::size_t batch_bytes) {
    constexpr int kNoSocket = -2;
    constexpr int kPortTaken = -3;
    batchBytes = std::max<std::size_t>(1, batch_bytes / kMessageBytes) * kMessageBytes;
    listener.reset(srt_create_socket());
    const bool ready = listener.valid() && setCommonOptions(listener) &&
                       listener.set(SRTO_PEERLATENCY, kViewerLatencyMs) &&
                       listener.set(SRTO_RCVLATENCY, kRequestLatencyMs) &&
                       listener.set(SRTO_SNDBUF, kSendBufferBytes) && listener.set(SRTO_RCVBUF, kReceiveBufferBytes);
    if (!ready) {
        ORU_LOG(Error, "{} cannot prepare the stream socket: {}", kTagStreaming, lastSrtError());
        return kNoSocket;
    }
    accessControl.guard(listener.get());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (srt_bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        srt_listen(listener.get(), kPendingConnections) != 0) {
        ORU_LOG(Error, "{} cannot listen on port {}: {}", kTagStreaming, port, lastSrtError());
        listener.reset();
        return kPortTaken;
    }
    poll.watch(listener.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
    stopWanted.store(false, std::memory_order_release);
    thread = std::thread([this] { serve(); });
    return 0;
}

void Subscribers::close() {
    stopWanted.store(true, std::memory_order_release);
    if (thread.joinable()) {
        thread.join();
    }
    MutexLock lock(mutex);
    receivers.clear();
    count.store(0, std::memory_order_release);
    listener.reset();
}

void Subscribers::serve() {
    while (!stopWanted.load(std::memory_order_acquire)) {
        for (const SRT_EPOLL_EVENT& event : poll.wait(kServiceMs)) {
            if (event.fd == listener.get()) {
                admit();
                continue;
            }
            MutexLock lock(mutex);
            hearRequests(event.fd);
        }
        accessControl.report();
        MutexLock lock(mutex);
        watchReceivers(clock.monotonicNanoseconds());
        dropFailed();
    }
}

void Subscribers::admit() {
    sockaddr_in address{};
    int length = sizeof(address);
    SrtSocket socket(srt_accept(listener.get(), reinterpret_cast<sockaddr*>(&address), &length));
    if (!socket.valid()) {
        return;
    }
    const auto purpose = accessControl.accepted(socket.get());
    if (!purpose) {
        return;
    }
    if (*purpose == AccessControl::Purpose::CONTROL) {
        control(std::move(socket), addressText(address));
        return;
    }
    const uint64_t now = clock.monotonicNanoseconds();
    Receiver receiver;
    receiver.address = addressText(address);
    receiver.messages = TokenBucket(kMessagesAtOnce, kMessagesPerSecond);
    receiver.joined_ns = now;
    receiver.heard_ns = now;
    receiver.resumes_after = newestSampleOf(streamId(socket.get()));
    MutexLock lock(mutex);
    if (!makeRoom(now)) {
        if (mayLog()) {
            ORU_LOG(Warning, "{} receiver {} refused: {} are connected", kTagStreaming, receiver.address,
                    kMaxReceivers);
        }
        return;
    }
    if (mayLog()) {
        ORU_LOG(Info, "{} receiver {} connected", kTagStreaming, receiver.address);
    }
    poll.watch(socket.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
    receiver.socket = std::move(socket);
    receivers.push_back(std::move(receiver));
    count.store(receivers.size(), std::memory_order_release);
    wishKeyFrame();
}

bool Subscribers::makeRoom(uint64_t now) {
    if (receivers.size() < kMaxReceivers) {
        return true;
    }
    const auto quietest = std::min_element(receivers.begin(), receivers.end(),
                                           [](const auto& a, const auto& b) { return a.heard_ns < b.heard_ns; });
    if (now - quietest->heard_ns < kEvictableNs) {
        return false;
    }
    quietest->failed = true;
    dropFailed();
    return true;
}

void Subscribers::hearRequests(SRTSOCKET socket) {
    const auto receiver = std::find_if(receivers.begin(), receivers.end(),
                                       [socket](const Receiver& entry) { return entry.socket.get() == socket; });
    if (receiver == receivers.end()) {
        return;
    }
    char message[SRT_LIVE_MAX_PLSIZE];
    for (int i = 0; i < kRequestsPerTurn; ++i) {
        const int size = srt_recvmsg(socket, message, sizeof(message));
        if (size <= 0) {
            return;
        }
        if (!receiver->messages.take(clock.monotonicNanoseconds())) {
            if (mayLog()) {
                ORU_LOG(Warning, "{} receiver {} sends too much and is dropped", kTagStreaming, receiver->address);
            }
            receiver->failed = true;
            return;
        }
        const std::string_view request(message, static_cast<std::size_t>(size));
        if (request == kKeyFrameRequest) {
            wishKeyFrame();
        }
    }
}

void Subscribers::watchReceivers(uint64_t now) {
    for (Receiver& receiver : receivers) {
        SRT_TRACEBSTATS measured{};
        const bool alive = srt_getsockstate(receiver.socket.get()) == SRTS_CONNECTED &&
                           srt_bistats(receiver.socket.get(), &measured, 0, 1) == 0;
        if (!alive) {
            receiver.failed = true;
            continue;
        }
        const auto acknowledgements = static_cast<uint64_t>(measured.pktRecvACKTotal);
        if (acknowledgements != receiver.acknowledgements) {
            receiver.acknowledgements = acknowledgements;
            receiver.heard_ns = now;
        }
        receiver.sent_packets = static_cast<uint64_t>(measured.pktSentTotal);
        receiver.repeated_packets = static_cast<uint64_t>(measured.pktRetransTotal);
        receiver.backlog_ms = measured.msSndBuf;
        receiver.failed = receiver.failed || now - receiver.heard_ns > kSilentNs;
        if (receiver.needs_key && receiver.described && receiver.backlog_ms < kCaughtUpMs) {
            wishKeyFrame();
        }
    }
}

void Subscribers::dropFailed() {
    std::erase_if(receivers, [this](Receiver& receiver) ORU_NO_THREAD_SAFETY_ANALYSIS {
        if (!receiver.failed) {
            return false;
        }
        if (mayLog()) {
            ORU_LOG(Info, "{} receiver {} left", kTagStreaming, receiver.address);
        }
        poll.forget(receiver.socket.get());
        gonePackets += receiver.sent_packets;
        goneRepeated += receiver.repeated_packets;
        return true;
    });
    count.store(receivers.size(), std::memory_order_release);
}

bool Subscribers::isBehind(Receiver& receiver) const {
    if (receiver.needs_key) {
        receiver.late_since_ns = 0;
        return receiver.backlog_ms > kCaughtUpMs;
    }
    if (receiver.backlog_ms <= kMaxBacklogMs) {
        receiver.late_since_ns = 0;
        return false;
    }
    // After a moment without processor time the acknowledgements are there, but not yet looked at.
    const uint64_t now = clock.monotonicNanoseconds();
    receiver.late_since_ns = receiver.late_since_ns == 0 ? now : receiver.late_since_ns;
    return now - receiver.late_since_ns >= kLastingNs;
}

bool Subscribers::accepts(Receiver& receiver, Part part) {
    if (receiver.failed) {
        return false;
    }
    if (part == Part::DESCRIPTION || part == Part::SAMPLES) {
        return receiver.backlog_ms < kMaxBacklogMs;
    }
    SRT_TRACEBSTATS measured{};
    if (srt_bistats(receiver.socket.get(), &measured, 0, 1) != 0) {
        receiver.failed = true;
        return false;
    }
    receiver.backlog_ms = measured.msSndBuf;
    const bool behind = isBehind(receiver);
    receiver.needs_key = receiver.needs_key || behind;
    if (behind || (receiver.needs_key && part != Part::KEY_FRAME)) {
        heldBack += receiver.started ? 1U : 0U;
        return false;
    }
    receiver.needs_key = false;
    receiver.started = true;
    return true;
}

bool Subscribers::sendUpTo(Receiver& receiver, std::span<const uint8_t> bytes, std::size_t end) {
    while (receiver.sent < end) {
        const std::size_t size = std::min<std::size_t>(kMessageBytes, end - receiver.sent);
        const auto* message = reinterpret_cast<const char*>(bytes.data() + receiver.sent);
        if (srt_sendmsg(receiver.socket.get(), message, static_cast<int>(size), -1, 1) < 0) {
            receiver.failed = srt_getlasterror(nullptr) != SRT_EASYNCSND;
            receiver.needs_key = true;
            return false;
        }
        receiver.sent += size;
        sentBytes += size;
    }
    return true;
}

bool Subscribers::sendMissed(Receiver& receiver, const Block& block, MissedSamples& missed) {
    if (!std::exchange(receiver.counting, true)) {
        const auto next = receiver.resumes_after == 0 ? std::nullopt : missed.after(receiver.resumes_after);
        receiver.next_sample = std::min(next.value_or(block.first_sample), block.first_sample);
    }
    const uint64_t first = std::max(receiver.next_sample, missed.oldest());
    lostSamples += first - receiver.next_sample;
    receiver.next_sample = first;
    receiver.sent = 0;
    if (first == block.first_sample) {
        return true;
    }
    // A receiver that has just come knows nothing of the tracks before it has the tables.
    if (!sendUpTo(receiver, block.bytes, block.table_bytes)) {
        return false;
    }
    while (receiver.next_sample < block.first_sample) {
        missedBytes.clear();
        const uint64_t next = missed.write(missedBytes, block, receiver.next_sample);
        receiver.sent = 0;
        if (!sendUpTo(receiver, missedBytes, missedBytes.size())) {
            return false;
        }
        receiver.next_sample = next;
    }
    receiver.sent = block.table_bytes;
    return true;
}

bool Subscribers::sendBatch(Receiver& receiver, const Block& block) {
    const std::size_t size = block.bytes.size();
    if (!sendUpTo(receiver, block.bytes, std::min(size, receiver.sent + batchBytes))) {
        receiver.sent = size;
        return false;
    }
    if (receiver.sent == size) {
        receiver.next_sample = block.end_sample;
    }
    return receiver.sent < size;
}

void Subscribers::send(const Block& block, MissedSamples& missed) {
    const std::size_t size = block.bytes.size();
    MutexLock lock(mutex);
    for (Receiver& receiver : receivers) {
        const bool takes = accepts(receiver, block.part) && sendMissed(receiver, block, missed);
        receiver.sent = takes ? receiver.sent : size;
        const bool describes = block.part == Part::KEY_FRAME || block.part == Part::DESCRIPTION;
        receiver.described = receiver.described || (takes && describes);
    }
    const auto served = [](const Receiver& receiver) { return !receiver.needs_key; };
    if (block.part == Part::KEY_FRAME && std::all_of(receivers.begin(), receivers.end(), served)) {
        keyFrameWanted.store(false, std::memory_order_release);
    }
    for (bool more = true; more;) {
        more = false;
        for (Receiver& receiver : receivers) {
            const bool unfinished = receiver.sent < size && sendBatch(receiver, block);
            more = more || unfinished;
        }
    }
}

bool Subscribers::descriptionOverdue(uint64_t nanoseconds) {
    MutexLock lock(mutex);
    const uint64_t now = clock.monotonicNanoseconds();
    return std::any_of(receivers.begin(), receivers.end(), [&](const Receiver& receiver) {
        return !receiver.described && now - receiver.joined_ns >= nanoseconds;
    });
}

Subscribers::State Subscribers::state() {
    MutexLock lock(mutex);
    State state;
    state.receivers = static_cast<unsigned>(receivers.size());
    state.sent_packets = gonePackets;
    state.repeated_packets = goneRepeated;
    state.held_back_frames = heldBack;
    state.sent_bytes = sentBytes;
    state.lost_samples = lostSamples;
    for (const Receiver& receiver : receivers) {
        state.sent_packets += receiver.sent_packets;
        state.repeated_packets += receiver.repeated_packets;
        state.backlog_ms = std::max(state.backlog_ms, receiver.backlog_ms);
    }
    return state;
}

}  // namespace oru::stream
