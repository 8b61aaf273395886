#pragma once

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <queue>
#include <random>
#include <stop_token>
#include <thread>
#include <vector>

namespace oru::test {

/// What happens to datagrams, alike in both directions and independently for each datagram.
struct Impairment {
    double loss = 0.0;  ///< part of the datagrams that vanish
    double delay_ms = 0.0;
    double jitter_ms = 0.0;    ///< standard deviation, added to the delay; never less than no delay
    double reorder = 0.0;      ///< part of the datagrams that are held back
    double held_back_ms = 10;  ///< by this much
    double megabits = 0.0;     ///< what passes in a second; what would wait longer than half a second is lost. 0: all
};

/// A UDP relay on the loopback in front of a port, which loses, delays and reorders by a seeded choice.
class ImpairmentProxy {
public:
    ImpairmentProxy(uint16_t serverPort, const Impairment& wanted, uint64_t seed);
    ~ImpairmentProxy();
    ImpairmentProxy(const ImpairmentProxy&) = delete;
    ImpairmentProxy& operator=(const ImpairmentProxy&) = delete;

    [[nodiscard]] uint16_t port() const { return ownPort; }
    /// Nothing passes while this is on.
    void setBlackout(bool on) { blackout = on; }
    /// Bounds what passes from now on; 0 lifts the bound.
    void setCapacity(double megabits) { capacity = megabits; }
    [[nodiscard]] uint64_t dropped() const { return droppedDatagrams; }
    [[nodiscard]] uint64_t passed() const { return passedDatagrams; }

private:
    struct Datagram {
        uint64_t due_ns = 0;
        uint64_t order = 0;
        int handle = -1;
        sockaddr_in to{};
        std::vector<char> bytes;
        bool operator>(const Datagram& other) const {
            return due_ns != other.due_ns ? due_ns > other.due_ns : order > other.order;
        }
    };

    void run(const std::stop_token& stop);
    void receive(int handle, bool fromClient);
    void schedule(int handle, const sockaddr_in& to, const char* data, std::size_t size);
    void sendDue();
    /// When the line will have carried this datagram; 0: it is given too much.
    [[nodiscard]] uint64_t carriedAt(int handle, std::size_t size);
    [[nodiscard]] int upstreamFor(const sockaddr_in& client);
    [[nodiscard]] int waitMilliseconds() const;

    sockaddr_in server{};
    Impairment impairment;
    std::mt19937_64 random;
    int listening = -1;
    uint16_t ownPort = 0;
    std::map<uint16_t, int> upstream;    // client port to our socket towards the server
    std::map<int, sockaddr_in> clients;  // and back
    std::priority_queue<Datagram, std::vector<Datagram>, std::greater<>> queue;
    uint64_t order = 0;
    std::atomic<bool> blackout{false};
    std::atomic<double> capacity{0.0};
    std::map<int, uint64_t> lineFreeNs;  // when the line towards a socket's peers has carried what it was given
    std::atomic<uint64_t> droppedDatagrams{0};
    std::atomic<uint64_t> passedDatagrams{0};
    std::jthread thread;
};

}  // namespace oru::test
