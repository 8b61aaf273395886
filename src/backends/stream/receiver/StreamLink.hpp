#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>

#include "backends/stream/transport/socket_address.hpp"
#include "backends/stream/transport/srt_socket.hpp"
#include "utils/Clock.hpp"

namespace oru::stream {

/// The connection to one sender, kept up by a thread of its own: connects, hands every message on, and connects again
/// when nothing has come for a second, or when a handler threw. Threads: start and stop from one thread, the queries
/// from any; the handlers run on the link's thread.
class StreamLink {
public:
    struct Handlers {
        std::function<void()> connected;                            ///< before the first message of a connection
        std::function<void(const uint8_t*, std::size_t)> received;  ///< one message
        /// Its time, for a connection after the first to go on from; 0: there is none.
        std::function<uint64_t()> newest_sample = [] { return uint64_t{0}; };
    };

    StreamLink(Clock& systemClock, Handlers linkHandlers);
    ~StreamLink();
    StreamLink(const StreamLink&) = delete;
    StreamLink& operator=(const StreamLink&) = delete;

    /// An empty key is none.
    void start(const SocketAddress& address, std::string viewingKey);
    void stop();
    /// Asks for a key frame as soon as the link stands, not more often than the sender would listen.
    [[nodiscard]] std::atomic<bool>& keyFrameWanted() { return keyFrameRequested; }
    /// Nothing has come for a second.
    [[nodiscard]] bool silent() const;
    /// The transport library's reason why the last attempt to connect was rejected; 0 when it was not.
    [[nodiscard]] int rejection() const { return lastRejection.load(std::memory_order_acquire); }
    /// Since start().
    [[nodiscard]] uint64_t connections() const { return connectionCount.load(std::memory_order_relaxed); }
    [[nodiscard]] bool connected() const { return standing.load(std::memory_order_acquire); }

private:
    void run(std::stop_token token);
    /// One connection from beginning to end. False: there was none, or nothing came on it.
    [[nodiscard]] bool connectAndReceive();
    [[nodiscard]] bool connect(SrtSocket& socket);
    [[nodiscard]] bool settled(SRTSOCKET socket) const;
    void receive(SrtSocket& socket);
    [[nodiscard]] bool drain(SRTSOCKET socket);
    void requestKeyFrame(SRTSOCKET socket);
    void pause(uint64_t nanoseconds);
    [[nodiscard]] bool stopping() const { return stopToken.stop_requested(); }

    SrtLibrary library;
    Clock& clock;
    Handlers handlers;
    SocketAddress sender;
    std::string key;
    std::atomic<bool> keyFrameRequested{false};
    std::atomic<int> lastRejection{0};
    std::atomic<uint64_t> heardNs{0};
    std::atomic<uint64_t> connectionCount{0};
    std::atomic<bool> standing{false};
    std::stop_token stopToken;  // of the thread, as the next two
    uint64_t requestedNs = 0;
    bool again = false;  ///< this sender has been connected since start()
    std::jthread thread;
};

}  // namespace oru::stream
