#include "control_client.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "refusal.hpp"
#include "stream_keys.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1000000;
constexpr uint64_t kRetryNs = 2000 * kMillisecond;
constexpr int kConnectMs = 3000;
constexpr char kStreamId[] = "#!::r=cam,m=control";

bool connecting(SRTSOCKET socket) {
    const SRT_SOCKSTATUS state = srt_getsockstate(socket);
    return state == SRTS_INIT || state == SRTS_OPENED || state == SRTS_CONNECTING;
}

}  // namespace

void ControlClient::start(const sockaddr_in& address, std::string controlKey) {
    MutexLock lock(mutex);
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
    MutexLock lock(mutex);
    key.clear();
    seal.reset();
    socket.reset();
}

std::string ControlClient::refusal() const {
    MutexLock lock(mutex);
    return reasonOfRefusal;
}

void ControlClient::setRefusal(std::string reason) {
    MutexLock lock(mutex);
    reasonOfRefusal = std::move(reason);
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
    if (!ready || srt_connect(socket.get(), reinterpret_cast<const sockaddr*>(&sender), sizeof(sender)) == SRT_ERROR) {
        socket.reset();
    }
}

std::optional<ControlMessage> ControlClient::ask(ControlMessage request) {
    MutexLock lock(mutex);
    const uint64_t now = clock.monotonicNanoseconds();
    if (key.empty()) {
        (void)refuse(std::string("there is no control right here: ") + StreamKeys::kControlVariable + " is not set");
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
        (void)refuse("the sender did not answer within 500 ms");
        connect();
        return std::nullopt;
    }
    reasonOfRefusal = reply->status == ControlStatus::DONE ? "" : statusText(reply->status);
    return reply;
}

bool ControlClient::await(uint64_t deadline) {
    if (!socket.valid() || (!connecting(socket.get()) && srt_getsockstate(socket.get()) != SRTS_CONNECTED)) {
        connect();
    }
    SrtPoll poll;
    poll.watch(socket.get(), SRT_EPOLL_OUT | SRT_EPOLL_ERR);
    while (connecting(socket.get()) && clock.monotonicNanoseconds() < deadline) {
        poll.wait(10);
    }
    if (srt_getsockstate(socket.get()) == SRTS_CONNECTED) {
        return seal.has_value() || greeted(deadline);
    }
    const std::string reason =
        socket.valid() ? refusalText(srt_getrejectreason(socket.get()), StreamKeys::kControlVariable, true) : "";
    if (reason.empty()) {
        return refuse("the sender did not answer within 500 ms");
    }
    retryNs = clock.monotonicNanoseconds() + kRetryNs;
    return refuse(reason);
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
    return refuse(size > 0 ? "this is no sender that can be controlled" : "the sender did not answer within 500 ms");
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
