#include "backends/stream/control/ControlClient.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "backends/stream/control/reject_reason.hpp"
#include "backends/stream/transport/guarded.hpp"
#include "backends/stream/transport/stream_keys.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kRetryNs = 2000 * kMillisecond;
constexpr int kConnectMs = 3000;
constexpr int kLookMs = 5;
constexpr int kPauseMs = 20;
constexpr char kNoAnswer[] = "the sender did not answer within 500 ms";
constexpr char kStreamId[] = "#!::r=cam,m=control";

bool connecting(SRTSOCKET socket) {
    const SRT_SOCKSTATUS state = srt_getsockstate(socket);
    return state == SRTS_INIT || state == SRTS_OPENED || state == SRTS_CONNECTING;
}

}  // namespace

void ControlClient::start(const SocketAddress& address, std::string controlKey) {
    const MutexLock lock(mutex);
    sender = address;
    key = std::move(controlKey);
    retryNs = 0;
    reasonOfRefusal.clear();
    socket.reset();
    if (!key.empty()) {
        connect();
    }
}

void ControlClient::stop() {
    const MutexLock lock(mutex);
    key.clear();
    seal.reset();
    socket.reset();
}

std::string ControlClient::refusal() const {
    const MutexLock lock(mutex);
    return reasonOfRefusal;
}

bool ControlClient::refuse(std::string reason) {
    reasonOfRefusal = std::move(reason);
    return false;
}

void ControlClient::connect() {
    seal.reset();
    lastId = 0;
    socket.reset(srt_create_socket());
    const bool ready = socket.valid() && setControlOptions(socket.get()) && socket.set(SRTO_CONNTIMEO, kConnectMs) &&
                       srt_setsockflag(socket.get(), SRTO_STREAMID, kStreamId, sizeof(kStreamId) - 1) == 0 &&
                       srt_setsockflag(socket.get(), SRTO_PASSPHRASE, key.data(), static_cast<int>(key.size())) == 0;
    if (!ready || srt_connect(socket.get(), sender.get(), sender.size()) == SRT_ERROR) {
        socket.reset();
    }
}

std::optional<ControlMessage> ControlClient::ask(ControlMessage request) {
    const MutexLock lock(mutex);
    std::optional<ControlMessage> reply;
    if (!guarded("a control", [&]() ORU_REQUIRES(mutex) { reply = askSender(request); })) {
        // Nothing is known of what was under way; the next request begins with a new connection.
        seal.reset();
        socket.reset();
        (void)refuse("no memory");
        return std::nullopt;
    }
    return reply;
}

std::optional<ControlMessage> ControlClient::askSender(ControlMessage request) {
    const uint64_t now = clock.monotonicNanoseconds();
    if (key.empty()) {
        (void)refuse(std::string("there is no control right here: ") + EffectiveKeys::kControlVariable + " is not set");
        return std::nullopt;
    }
    if (now < retryNs) {
        return std::nullopt;
    }
    const uint64_t deadline = now + kAnswerNs;
    if (!await(deadline)) {
        return std::nullopt;
    }
    request.id = ++lastId;
    const auto reply = exchange(request, deadline);
    if (!reply) {
        // What is still under way must not be mistaken for an answer to the next request.
        (void)refuse(kNoAnswer);
        connect();
        return std::nullopt;
    }
    reasonOfRefusal = reply->status == ControlStatus::DONE ? "" : statusText(reply->status);
    return reply;
}

bool ControlClient::await(uint64_t deadline) {
    const auto connected = [](SRTSOCKET handle) { return srt_getsockstate(handle) == SRTS_CONNECTED; };
    SrtPoll poll;
    while (!connected(socket.get())) {
        if (connecting(socket.get())) {
            poll.wait(kLookMs);
        } else if (const std::string reason = rejection(); !reason.empty()) {
            retryNs = clock.monotonicNanoseconds() + kRetryNs;
            return refuse(reason);
        } else {
            // Never connected, lost, or turned away for now.
            connect();
            poll.wait(kPauseMs);
        }
        if (clock.monotonicNanoseconds() > deadline) {
            return refuse(kNoAnswer);
        }
    }
    return seal.has_value() || greeted(deadline);
}

std::string ControlClient::rejection() const {
    return socket.valid() ? rejectReasonText(srt_getrejectreason(socket.get()), EffectiveKeys::kControlVariable, true)
                          : "";
}

bool ControlClient::greeted(uint64_t deadline) {
    std::array<uint8_t, kGreetingBytes + 1> bytes{};
    const int size = receive(bytes.data(), bytes.size(), deadline);
    const auto challenge = size > 0 ? readGreeting(bytes.data(), static_cast<std::size_t>(size)) : std::nullopt;
    if (challenge) {
        seal.emplace(key, *challenge);
        return true;
    }
    if (size != 0) {
        connect();
    }
    return refuse(size > 0 ? "this is no sender that can be controlled" : kNoAnswer);
}

int ControlClient::receive(uint8_t* to, std::size_t size, uint64_t deadline) {
    SrtPoll poll;
    poll.watch(socket.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
    for (;;) {
        const int count = srt_recvmsg(socket.get(), reinterpret_cast<char*>(to), static_cast<int>(size));
        if (count > 0) {
            return count;
        }
        if (count == 0 || srt_getlasterror(nullptr) != SRT_EASYNCRCV) {
            return -1;
        }
        const uint64_t now = clock.monotonicNanoseconds();
        if (now >= deadline) {
            return 0;
        }
        poll.wait(static_cast<int>((deadline - now) / kMillisecond) + 1);
    }
}

std::optional<ControlMessage> ControlClient::exchange(const ControlMessage& request, uint64_t deadline) {
    const ControlBytes sent = seal->write(request);
    if (srt_sendmsg(socket.get(), reinterpret_cast<const char*>(sent.data()), static_cast<int>(sent.size()), -1, 1) <
        0) {
        return std::nullopt;
    }
    std::array<uint8_t, kControlBytes + 1> bytes{};
    const int size = receive(bytes.data(), bytes.size(), deadline);
    const auto reply = size > 0 ? seal->read(bytes.data(), static_cast<std::size_t>(size)) : std::nullopt;
    const bool ours = reply && reply->reply && reply->id == request.id && reply->operation == request.operation &&
                      reply->control == request.control;
    return ours ? reply : std::nullopt;
}

}  // namespace oru::stream
