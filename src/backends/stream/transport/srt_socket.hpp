#pragma once

#include <srt/srt.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "backends/stream/transport/TransportLease.hpp"

namespace oru::stream {

/// A member of what calls the transport library: it is started.
class SrtLibrary {
public:
    SrtLibrary() { startTransport(); }
};

/// Owns one socket.
class SrtSocket {
public:
    SrtSocket() = default;
    explicit SrtSocket(SRTSOCKET descriptor) : handle(descriptor) {}
    ~SrtSocket() { reset(); }
    SrtSocket(SrtSocket&& other) noexcept : handle(std::exchange(other.handle, SRT_INVALID_SOCK)) {}
    SrtSocket& operator=(SrtSocket&& other) noexcept {
        reset(std::exchange(other.handle, SRT_INVALID_SOCK));
        return *this;
    }

    [[nodiscard]] SRTSOCKET get() const { return handle; }
    [[nodiscard]] bool valid() const { return handle != SRT_INVALID_SOCK; }
    void reset(SRTSOCKET descriptor = SRT_INVALID_SOCK) {
        if (valid()) {
            srt_close(handle);
        }
        handle = descriptor;
    }
    template <class T>
    bool set(SRT_SOCKOPT option, const T& value) {
        return srt_setsockflag(handle, option, &value, sizeof(value)) == 0;
    }

private:
    SRTSOCKET handle = SRT_INVALID_SOCK;
};

/// Owns one set of watched sockets.
class SrtPoll {
public:
    SrtPoll() : id(srt_epoll_create()) { srt_epoll_set(id, SRT_EPOLL_ENABLE_EMPTY); }
    ~SrtPoll() {
        if (isTransportAlive()) {
            srt_epoll_release(id);
        }
    }
    SrtPoll(const SrtPoll&) = delete;
    SrtPoll& operator=(const SrtPoll&) = delete;

    void watch(SRTSOCKET socket, int events) { srt_epoll_add_usock(id, socket, &events); }
    void forget(SRTSOCKET socket) { srt_epoll_remove_usock(id, socket); }
    /// Waits until something happens; what did, valid until the next call.
    std::span<const SRT_EPOLL_EVENT> wait(int milliseconds) {
        const int room = static_cast<int>(happened.size());
        // It answers how many sockets are ready, also when those are more than it had room to name.
        const int count = srt_epoll_uwait(id, happened.data(), room, milliseconds);
        return {happened.data(), static_cast<std::size_t>(std::clamp(count, 0, room))};
    }

private:
    std::array<SRT_EPOLL_EVENT, 32> happened{};
    int id;
};

/// Payload of one message: seven transport packets, which fits every usual path.
constexpr int kMessageBytes = 7 * 188;

/// A receiver's request for a key frame: one message against the direction of the stream.
constexpr char kKeyFrameRequest[] = "KORU key frame";

/// The stream id of a connection that a listener took; empty when it has none.
std::string streamId(SRTSOCKET socket);

/// A viewer's stream id. One that connects again names the time of the newest sample that it has, and gets those after
/// it; 0 when there is none.
std::string viewerId(uint64_t newestSample);
/// What a viewer's stream id says of its newest sample; 0: nothing.
uint64_t newestSampleOf(std::string_view streamId);

/// Options that both ends set before they bind or connect.
[[nodiscard]] bool setCommonOptions(SrtSocket& socket);

/// The same for a control connection: messages, each delivered once and in order, and nothing kept after a close. Also
/// for a connection that a listener is about to take.
[[nodiscard]] bool setControlOptions(SRTSOCKET socket);

/// Text of the library's last error on this thread.
std::string lastSrtError();

}  // namespace oru::stream
