#pragma once

#include <netinet/in.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "backends/stream/control/control_messages.hpp"
#include "backends/stream/transport/srt_socket.hpp"

namespace oru::test {

/// A stranger's connection to a sender: any stream id, any key, and then any message.
class RawCaller {
public:
    enum class Kind { VIEWER, CONTROL };

    /// Waits 3 s at most for the sender to decide. `undelayed`: a viewer's messages come as they arrive, and none is
    /// given up for being late.
    RawCaller(uint16_t port, Kind kind, const std::string& key, bool undelayed = false,
              const std::string& viewerId = "")
        : socket(srt_create_socket()) {
        using namespace stream;
        bool ready = kind == Kind::CONTROL ? setControlOptions(socket.get()) : setCommonOptions(socket);
        ready = ready && (!undelayed || socket.set(SRTO_TSBPDMODE, false));
        const std::string id = kind == Kind::CONTROL ? "#!::r=cam,m=control" : viewerId;
        (void)socket.set(SRTO_CONNTIMEO, 3000);
        srt_setsockflag(socket.get(), SRTO_STREAMID, id.data(), static_cast<int>(id.size()));
        srt_setsockflag(socket.get(), SRTO_PASSPHRASE, key.data(), static_cast<int>(key.size()));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (!ready || srt_connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == SRT_ERROR) {
            return;
        }
        SrtPoll poll;
        poll.watch(socket.get(), SRT_EPOLL_OUT | SRT_EPOLL_ERR);
        for (int i = 0; i < 300 && srt_getsockstate(socket.get()) == SRTS_CONNECTING; ++i) {
            poll.wait(10);
        }
        rejected = connected() ? 0 : srt_getrejectreason(socket.get());
    }

    [[nodiscard]] bool connected() const { return srt_getsockstate(socket.get()) == SRTS_CONNECTED; }
    [[nodiscard]] int rejection() const { return rejected; }
    [[nodiscard]] SRTSOCKET get() const { return socket.get(); }

    template <class Bytes>
    bool send(const Bytes& bytes) {
        return srt_sendmsg(socket.get(), reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()),
                           -1, 1) >= 0;
    }
    /// One message; empty: none within this time, or the connection is gone.
    std::vector<uint8_t> receive(int milliseconds) {
        std::vector<uint8_t> bytes(SRT_LIVE_MAX_PLSIZE);
        stream::SrtPoll poll;
        poll.watch(socket.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        int size = 0;
        do {
            size = srt_recvmsg(socket.get(), reinterpret_cast<char*>(bytes.data()), static_cast<int>(bytes.size()));
            if (size <= 0 && connected()) {
                poll.wait(20);
            }
        } while (size <= 0 && connected() && std::chrono::steady_clock::now() < end);
        bytes.resize(static_cast<std::size_t>(std::max(0, size)));
        return bytes;
    }
    /// Waits until the sender has ended the connection.
    bool ended(int milliseconds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        stream::SrtPoll poll;
        poll.watch(socket.get(), SRT_EPOLL_ERR);
        while (connected() && std::chrono::steady_clock::now() < end) {
            poll.wait(20);
        }
        return !connected();
    }

private:
    stream::SrtLibrary library;
    stream::SrtSocket socket;
    int rejected = 0;
};

}  // namespace oru::test
