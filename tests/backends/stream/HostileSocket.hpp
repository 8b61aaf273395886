#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <random>
#include <vector>

namespace oru::test {

/// Sends what no honest peer would, straight to a port of this machine.
class HostileSocket {
public:
    HostileSocket(uint16_t port, uint64_t seed);
    ~HostileSocket();
    HostileSocket(const HostileSocket&) = delete;
    HostileSocket& operator=(const HostileSocket&) = delete;

    /// Noise of any length, control packets of every kind with random fields, handshakes with random fields, data for
    /// random connections: one of them at a time.
    void sendRandom();
    /// Begins a connection as the protocol demands, up to and with its last handshake, and then never speaks again.
    /// `withAnswer` false: stops after the first. True: the sender has answered.
    bool openHalf(bool withAnswer);
    /// The same with the handshake of version 4, which exchanges keys after the connection stands.
    /// Whether the sender took it.
    bool openOld();

private:
    void sendWords(const std::vector<uint32_t>& words);
    [[nodiscard]] std::vector<uint32_t> handshake(uint32_t version, uint32_t extension, int32_t kind, uint32_t cookie);
    [[nodiscard]] std::vector<uint32_t> receiveWords(int milliseconds);
    uint32_t any() { return static_cast<uint32_t>(random()); }

    std::mt19937_64 random;
    sockaddr_in target{};
    int handle = -1;
    uint32_t ownId = 0;
    uint32_t ownSequence = 0;
};

}  // namespace oru::test
