#pragma once

#include <srt/srt.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace oru::stream {

/// Keeps the transport library started while it exists.
class SrtLibrary {
public:
    SrtLibrary() { srt_startup(); }
    ~SrtLibrary() { srt_cleanup(); }
    SrtLibrary(const SrtLibrary&) = delete;
    SrtLibrary& operator=(const SrtLibrary&) = delete;
};

/// Owns one socket.
class SrtSocket {
public:
    SrtSocket() = default;
    explicit SrtSocket(SRTSOCKET handle) : handle_(handle) {}
    ~SrtSocket() { reset(); }
    SrtSocket(SrtSocket&& other) noexcept : handle_(std::exchange(other.handle_, SRT_INVALID_SOCK)) {}
    SrtSocket& operator=(SrtSocket&& other) noexcept {
        reset(std::exchange(other.handle_, SRT_INVALID_SOCK));
        return *this;
    }

    [[nodiscard]] SRTSOCKET get() const { return handle_; }
    [[nodiscard]] bool valid() const { return handle_ != SRT_INVALID_SOCK; }
    void reset(SRTSOCKET handle = SRT_INVALID_SOCK) {
        if (valid()) {
            srt_close(handle_);
        }
        handle_ = handle;
    }
    template <class T>
    bool set(SRT_SOCKOPT option, const T& value) {
        return srt_setsockflag(handle_, option, &value, sizeof(value)) == 0;
    }

private:
    SRTSOCKET handle_ = SRT_INVALID_SOCK;
};

/// Owns one set of watched sockets.
class SrtPoll {
public:
    SrtPoll() : id_(srt_epoll_create()) { srt_epoll_set(id_, SRT_EPOLL_ENABLE_EMPTY); }
    ~SrtPoll() { srt_epoll_release(id_); }
    SrtPoll(const SrtPoll&) = delete;
    SrtPoll& operator=(const SrtPoll&) = delete;

    void watch(SRTSOCKET socket, int events) { srt_epoll_add_usock(id_, socket, &events); }
    void forget(SRTSOCKET socket) { srt_epoll_remove_usock(id_, socket); }
    /// Waits until something happens; what did, valid until the next call.
    std::span<const SRT_EPOLL_EVENT> wait(int milliseconds) {
        const int count = srt_epoll_uwait(id_, events_.data(), static_cast<int>(events_.size()), milliseconds);
        return {events_.data(), static_cast<std::size_t>(std::max(0, count))};
    }

private:
    std::array<SRT_EPOLL_EVENT, 32> events_{};
    int id_;
};

/// Payload of one message: seven transport packets, which fits every usual path.
constexpr int kMessageBytes = 7 * 188;

/// A receiver's request for a key frame: one message against the direction of the stream.
constexpr char kKeyFrameRequest[] = "KORU key frame";

/// Options that both ends set before they bind or connect.
[[nodiscard]] bool setCommonOptions(SrtSocket& socket);

/// Text of the library's last error on this thread.
std::string lastSrtError();

}  // namespace oru::stream
