#include "backends/stream/sender/Subscribers.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "backends/stream/transport/guarded.hpp"
#include "collaborators/UDPOutput.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kEvictableNs = 1'000'000'000;
constexpr int kServiceMs = 50;
constexpr std::chrono::milliseconds kPauseAfterFailure{100};
constexpr int kPendingConnections = 16;
constexpr int kViewerLatencyMs = 120;
constexpr int kRequestLatencyMs = 20;
constexpr int kSendBufferBytes = 8 << 20;
constexpr int kReceiveBufferBytes = 1 << 18;
constexpr long kDeliveryLookNs = 5'000'000;

/// From the system's own error, which the transport wraps.
std::string whyNoPort(uint16_t port) {
    int system = 0;
    const int error = srt_getlasterror(&system);
    if (system == EACCES || system == EPERM) {
        return fmt::format("the system reserves UDP port {} for itself; choose one from 1024 on", port);
    }
    if (system == EADDRINUSE || error == SRT_EBINDCONFLICT || error == SRT_EDUPLISTEN) {
        return fmt::format("another program or stream uses UDP port {}; end it or choose another port", port);
    }
    return fmt::format("cannot listen on UDP port {}: {}", port, lastSrtError());
}

}  // namespace

Subscribers::Subscribers(Clock& systemClock, EffectiveKeys keys, TakeControlConnection controlHandler)
    : clock(systemClock), control(std::move(controlHandler)), accessControl(systemClock, std::move(keys)) {}

Subscribers::~Subscribers() {
    close();
}

int Subscribers::open(uint16_t port, std::size_t bytesAtOnce) {
    batchBytes = std::max<std::size_t>(1, bytesAtOnce / kMessageBytes) * kMessageBytes;
    // Where the machine has IPv6, one socket serves both kinds of address.
    int status = listen(SocketAddress::any(AF_INET6, port));
    if (status != SENDER_RUNNING) {
        status = listen(SocketAddress::any(AF_INET, port));
    }
    if (status != SENDER_RUNNING) {
        ORU_LOG(Error, "{} {}", kTagStreaming, whyNoPort(port));
        listener.reset();
        return status;
    }
    poll.watch(listener.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
    thread = std::jthread([this](const std::stop_token& stop) { serve(stop); });
    return SENDER_RUNNING;
}

int Subscribers::listen(const SocketAddress& address) {
    listener.reset(srt_create_socket());
    const bool ready =
        listener.valid() && setCommonOptions(listener) && listener.set(SRTO_PEERLATENCY, kViewerLatencyMs) &&
        listener.set(SRTO_RCVLATENCY, kRequestLatencyMs) && listener.set(SRTO_SNDBUF, kSendBufferBytes) &&
        listener.set(SRTO_RCVBUF, kReceiveBufferBytes) && listener.set(SRTO_IPV6ONLY, int32_t{0});
    if (!ready) {
        return SENDER_NO_SOCKET;
    }
    accessControl.guard(listener.get());
    const bool listens = srt_bind(listener.get(), address.get(), address.size()) == 0 &&
                         srt_listen(listener.get(), kPendingConnections) == 0;
    return listens ? SENDER_RUNNING : SENDER_PORT_TAKEN;
}

void Subscribers::close() {
    thread = {};  // ends and joins it
    const MutexLock lock(mutex);
    subscribers.clear();
    count.store(0, std::memory_order_release);
    listener.reset();
}

void Subscribers::serve(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        if (!guarded("the service of receivers", [this] { serveOnce(); })) {
            std::this_thread::sleep_for(kPauseAfterFailure);
        }
    }
}

void Subscribers::serveOnce() {
    for (const SRT_EPOLL_EVENT& event : poll.wait(kServiceMs)) {
        if (event.fd == listener.get()) {
            admit();
            continue;
        }
        const MutexLock lock(mutex);
        hearRequests(event.fd);
    }
    accessControl.report();
    const MutexLock lock(mutex);
    watchReceivers();
    dropFailed();
}

void Subscribers::admit() {
    sockaddr_storage peer{};
    int length = sizeof(peer);
    SrtSocket socket(srt_accept(listener.get(), reinterpret_cast<sockaddr*>(&peer), &length));
    if (!socket.valid()) {
        return;
    }
    const auto purpose = accessControl.accepted(socket.get());
    if (!purpose) {
        return;
    }
    const std::string address = SocketAddress(reinterpret_cast<const sockaddr*>(&peer)).text();
    if (*purpose == AccessControl::Purpose::CONTROL) {
        control(std::move(socket), address);
        return;
    }
    admitReceiver(std::move(socket), address);
}

void Subscribers::admitReceiver(SrtSocket&& socket, const std::string& address) {
    const uint64_t now = clock.monotonicNanoseconds();
    const Timestamp newestSample = newestSampleOf(streamId(socket.get()));
    const MutexLock lock(mutex);
    const bool room = makeRoom(now);
    if (!room && mayLog()) {
        ORU_LOG(Warning, "{} receiver {} refused: {} are connected", kTagStreaming, address, kMaxReceivers);
    }
    if (!room) {
        return;
    }
    if (mayLog()) {
        ORU_LOG(Info, "{} receiver {} connected", kTagStreaming, address);
    }
    poll.watch(socket.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
    subscribers.emplace_back(std::move(socket), address, newestSample, now);
    count.store(subscribers.size(), std::memory_order_release);
    requestKeyFrame();
}

bool Subscribers::makeRoom(uint64_t now) {
    if (subscribers.size() < kMaxReceivers) {
        return true;
    }
    const auto quietest = std::min_element(subscribers.begin(), subscribers.end(),
                                           [](const auto& a, const auto& b) { return a.heardAt() < b.heardAt(); });
    if (now - quietest->heardAt() < kEvictableNs) {
        return false;
    }
    quietest->fail();
    dropFailed();
    return true;
}

void Subscribers::hearRequests(SRTSOCKET socket) {
    const auto subscriber = std::find_if(subscribers.begin(), subscribers.end(),
                                         [socket](const Subscriber& entry) { return entry.socket() == socket; });
    if (subscriber == subscribers.end()) {
        return;
    }
    const Subscriber::Requests requests = subscriber->takeRequests(clock.monotonicNanoseconds());
    if (requests.key_frame) {
        requestKeyFrame();
    }
    if (!requests.too_many) {
        return;
    }
    if (mayLog()) {
        ORU_LOG(Warning, "{} receiver {} sends too much and is dropped", kTagStreaming, subscriber->address());
    }
    subscriber->fail();
}

void Subscribers::watchReceivers() {
    const uint64_t now = clock.monotonicNanoseconds();
    for (Subscriber& subscriber : subscribers) {
        subscriber.watch(now);
        if (subscriber.isReadyForKeyFrame()) {
            requestKeyFrame();
        }
    }
}

void Subscribers::dismiss(const Subscriber& subscriber) {
    if (mayLog()) {
        ORU_LOG(Info, "{} receiver {} left", kTagStreaming, subscriber.address());
    }
    poll.forget(subscriber.socket());
    gone += subscriber.statistics();
    gone.backlog_ms = 0.0;
}

void Subscribers::dropFailed() {
    std::erase_if(subscribers, [this](const Subscriber& subscriber) ORU_REQUIRES(mutex) {
        if (subscriber.hasFailed()) {
            dismiss(subscriber);
        }
        return subscriber.hasFailed();
    });
    count.store(subscribers.size(), std::memory_order_release);
}

void Subscribers::send(const StreamBlock& block) {
    const MutexLock lock(mutex);
    samples.append(block.samples);
    const uint64_t now = clock.monotonicNanoseconds();
    for (Subscriber& subscriber : subscribers) {
        subscriber.begin(block, samples, now);
    }
    const auto served = [](const Subscriber& subscriber) { return !subscriber.needsKeyFrame(); };
    if (block.kind == StreamBlock::Kind::KEY_FRAME && std::all_of(subscribers.begin(), subscribers.end(), served)) {
        keyFrameWanted.store(false, std::memory_order_release);
    }
    for (bool more = true; more;) {
        more = false;
        for (Subscriber& subscriber : subscribers) {
            const bool unfinished = subscriber.sendBatch(block, batchBytes);
            more = more || unfinished;
        }
    }
}

void Subscribers::awaitDelivery(uint64_t nanoseconds) {
    const uint64_t begin = clock.monotonicNanoseconds();
    for (;;) {
        {
            const MutexLock lock(mutex);
            if (std::ranges::all_of(subscribers, &Subscriber::hasEverything)) {
                return;
            }
        }
        if (clock.monotonicNanoseconds() - begin >= nanoseconds) {
            return;
        }
        const timespec pause{0, kDeliveryLookNs};
        clock.nanosleep(pause, nullptr);
    }
}

void Subscribers::keepSamples(std::span<const IMUPacket> packets) {
    const MutexLock lock(mutex);
    samples.append(packets);
}

bool Subscribers::descriptionOverdue(uint64_t nanoseconds) {
    const MutexLock lock(mutex);
    const uint64_t now = clock.monotonicNanoseconds();
    return std::any_of(subscribers.begin(), subscribers.end(),
                       [&](const Subscriber& subscriber) { return subscriber.lacksDescription(now, nanoseconds); });
}

Subscribers::State Subscribers::state() {
    const MutexLock lock(mutex);
    State state;
    state.receivers = static_cast<unsigned>(subscribers.size());
    state.total = gone;
    for (const Subscriber& subscriber : subscribers) {
        state.total += subscriber.statistics();
    }
    return state;
}

}  // namespace oru::stream
