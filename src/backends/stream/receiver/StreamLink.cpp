#include "backends/stream/receiver/StreamLink.hpp"

#include <algorithm>
#include <ctime>
#include <utility>

#include "backends/stream/transport/guarded.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kSilentNs = 1000 * kMillisecond;
constexpr uint64_t kRequestEveryNs = 200 * kMillisecond;
constexpr uint64_t kFirstPauseNs = 20 * kMillisecond;
constexpr uint64_t kLongestPauseNs = 250 * kMillisecond;
constexpr uint64_t kPauseSliceNs = 20 * kMillisecond;
constexpr int kConnectMs = 1000;
constexpr int kPollMs = 50;
constexpr int kReceiveBufferBytes = 12 << 20;
constexpr int kLatencyMs = 120;

}  // namespace

StreamLink::StreamLink(Clock& systemClock, Handlers linkHandlers)
    : clock(systemClock), handlers(std::move(linkHandlers)) {}

StreamLink::~StreamLink() {
    stop();
}

void StreamLink::start(const SocketAddress& address, std::string viewingKey) {
    stop();
    sender = address;
    key = std::move(viewingKey);
    again = false;
    lastRejection.store(0, std::memory_order_release);
    connectionCount.store(0, std::memory_order_relaxed);
    heardNs.store(clock.monotonicNanoseconds(), std::memory_order_release);
    thread = std::jthread([this](std::stop_token token) { run(std::move(token)); });
}

void StreamLink::stop() {
    thread = {};  // ends and joins it
}

bool StreamLink::silent() const {
    // In this order: what the link's thread hears in between may be later than `now`.
    const uint64_t heard = heardNs.load(std::memory_order_acquire);
    const uint64_t now = clock.monotonicNanoseconds();
    return now > heard && now - heard > kSilentNs;
}

void StreamLink::run(std::stop_token token) {
    stopToken = std::move(token);
    uint64_t wait = kFirstPauseNs;
    while (!stopping()) {
        bool heard = false;
        (void)guarded("receiving", [&] { heard = connectAndReceive(); });
        standing.store(false, std::memory_order_release);
        wait = heard ? kFirstPauseNs : wait;
        pause(wait);
        wait = std::min(2 * wait, kLongestPauseNs);
    }
}

bool StreamLink::connectAndReceive() {
    SrtSocket socket;
    if (!connect(socket)) {
        return false;
    }
    connectionCount.fetch_add(1, std::memory_order_relaxed);
    again = true;
    const uint64_t before = heardNs.load(std::memory_order_acquire);
    standing.store(true, std::memory_order_release);
    receive(socket);
    return before != heardNs.load(std::memory_order_acquire);
}

void StreamLink::pause(uint64_t nanoseconds) {
    for (uint64_t left = nanoseconds; left > 0 && !stopping();) {
        const uint64_t slice = std::min(left, kPauseSliceNs);
        const timespec duration{0, static_cast<long>(slice)};
        clock.nanosleep(duration, nullptr);
        left -= slice;
    }
}

bool StreamLink::settled(SRTSOCKET socket) const {
    const SRT_SOCKSTATUS state = srt_getsockstate(socket);
    return state != SRTS_CONNECTING && state != SRTS_INIT && state != SRTS_OPENED;
}

bool StreamLink::connect(SrtSocket& socket) {
    socket.reset(srt_create_socket());
    const std::string id = viewerId(again ? handlers.newest_sample() : 0);
    // Images are taken as they come: the application paces itself, and a late image is worth more than none.
    const bool ready = socket.valid() && setCommonOptions(socket) && socket.set(SRTO_TSBPDMODE, false) &&
                       socket.set(SRTO_RCVLATENCY, kLatencyMs) && socket.set(SRTO_RCVBUF, kReceiveBufferBytes) &&
                       socket.set(SRTO_CONNTIMEO, kConnectMs) &&
                       srt_setsockflag(socket.get(), SRTO_STREAMID, id.data(), static_cast<int>(id.size())) == 0 &&
                       srt_setsockflag(socket.get(), SRTO_PASSPHRASE, key.data(), static_cast<int>(key.size())) == 0;
    if (!ready) {
        return false;
    }
    SrtPoll poll;
    poll.watch(socket.get(), SRT_EPOLL_OUT | SRT_EPOLL_ERR);
    if (srt_connect(socket.get(), sender.get(), sender.size()) == SRT_ERROR) {
        return false;
    }
    const uint64_t deadline = clock.monotonicNanoseconds() + kConnectMs * kMillisecond;
    while (!stopping() && !settled(socket.get()) && clock.monotonicNanoseconds() < deadline) {
        poll.wait(kPollMs);
    }
    const bool connected = srt_getsockstate(socket.get()) == SRTS_CONNECTED;
    lastRejection.store(connected ? 0 : srt_getrejectreason(socket.get()), std::memory_order_release);
    return connected;
}

void StreamLink::receive(SrtSocket& socket) {
    const uint64_t since = clock.monotonicNanoseconds();
    SrtPoll poll;
    poll.watch(socket.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
    handlers.connected();
    while (!stopping()) {
        poll.wait(kPollMs);
        if (!drain(socket.get())) {
            return;
        }
        if (silent() && clock.monotonicNanoseconds() - since > kSilentNs) {
            return;
        }
        requestKeyFrame(socket.get());
    }
}

bool StreamLink::drain(SRTSOCKET socket) {
    char message[SRT_LIVE_MAX_PLSIZE];
    while (!stopping()) {
        const int size = srt_recvmsg(socket, message, sizeof(message));
        if (size < 0) {
            return srt_getlasterror(nullptr) == SRT_EASYNCRCV;
        }
        if (size == 0) {
            return false;
        }
        heardNs.store(clock.monotonicNanoseconds(), std::memory_order_release);
        handlers.received(reinterpret_cast<const uint8_t*>(message), static_cast<std::size_t>(size));
    }
    return false;
}

void StreamLink::requestKeyFrame(SRTSOCKET socket) {
    const uint64_t now = clock.monotonicNanoseconds();
    if (now - requestedNs < kRequestEveryNs || !keyFrameRequested.exchange(false, std::memory_order_acq_rel)) {
        return;
    }
    requestedNs = now;
    srt_sendmsg(socket, kKeyFrameRequest, sizeof(kKeyFrameRequest) - 1, -1, 1);
}

}  // namespace oru::stream
