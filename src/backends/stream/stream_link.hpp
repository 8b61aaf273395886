#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "srt_socket.hpp"
#include "utils/Clock.hpp"

namespace oru::stream {

/// The connection to one sender, kept up by a thread of its own: connects, hands every message on, and connects again
/// when nothing has come for a second. Threads: start and stop from one thread, the queries from any; the handlers run
/// on the link's thread.
class StreamLink {
public:
    struct Handlers {
        std::function<void()> connected;                            ///< before the first message of a connection
        std::function<void(const uint8_t*, std::size_t)> received;  ///< one message
    };

    StreamLink(Clock& clock, Handlers handlers);
    ~StreamLink();
    StreamLink(const StreamLink&) = delete;
    StreamLink& operator=(const StreamLink&) = delete;

    void start(const sockaddr_in& address);
    void stop();
    /// Asks for a key frame as soon as the link stands, not more often than the sender would listen.
    [[nodiscard]] std::atomic<bool>& keyFrameWanted() { return keyFrameWanted_; }
    /// Nothing has come for a second.
    [[nodiscard]] bool silent() const;
    [[nodiscard]] uint64_t connections() const { return connections_.load(std::memory_order_relaxed); }

private:
    void run();
    [[nodiscard]] bool connect(SrtSocket& socket);
    [[nodiscard]] bool settled(SRTSOCKET socket) const;
    void receive(SrtSocket& socket);
    [[nodiscard]] bool drain(SRTSOCKET socket);
    void requestKeyFrame(SRTSOCKET socket);
    void pause(uint64_t nanoseconds);
    [[nodiscard]] bool stopping() const { return stop_.load(std::memory_order_acquire); }

    SrtLibrary library_;
    Clock& clock_;
    Handlers handlers_;
    sockaddr_in address_{};
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> keyFrameWanted_{false};
    std::atomic<uint64_t> heardNs_{0};
    std::atomic<uint64_t> connections_{0};
    uint64_t requestedNs_ = 0;
};

}  // namespace oru::stream
