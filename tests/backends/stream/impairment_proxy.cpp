#include "backends/stream/impairment_proxy.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace oru::test {
namespace {

constexpr std::size_t kMaxQueued = 20'000;
constexpr uint64_t kLongestQueueNs = 500'000'000;
constexpr int kBufferBytes = 4 << 20;

uint64_t nowNs() {
    return static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
}

int boundSocket() {
    const int handle = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    (void)bind(handle, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    (void)setsockopt(handle, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof(kBufferBytes));
    (void)setsockopt(handle, SOL_SOCKET, SO_SNDBUF, &kBufferBytes, sizeof(kBufferBytes));
    return handle;
}

}  // namespace

ImpairmentProxy::ImpairmentProxy(uint16_t serverPort, const Impairment& wanted, uint64_t seed)
    : impairment(wanted), random(seed), listening(boundSocket()), capacity(wanted.megabits) {
    server.sin_family = AF_INET;
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    server.sin_port = htons(serverPort);
    sockaddr_in own{};
    socklen_t length = sizeof(own);
    (void)getsockname(listening, reinterpret_cast<sockaddr*>(&own), &length);
    ownPort = ntohs(own.sin_port);
    thread = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

ImpairmentProxy::~ImpairmentProxy() {
    thread = {};
    close(listening);
    for (const auto& [port, handle] : upstream) {
        close(handle);
    }
}

int ImpairmentProxy::upstreamFor(const sockaddr_in& client) {
    const auto [at, added] = upstream.try_emplace(client.sin_port, -1);
    if (added) {
        at->second = boundSocket();
        clients[at->second] = client;
    }
    return at->second;
}

uint64_t ImpairmentProxy::carriedAt(int handle, std::size_t size) {
    const uint64_t now = nowNs();
    const double megabits = capacity;
    if (megabits <= 0.0) {
        return now;
    }
    uint64_t& free = lineFreeNs[handle];
    if (free > now + kLongestQueueNs) {
        return 0;
    }
    free = std::max(free, now) + static_cast<uint64_t>(static_cast<double>(size) * 8000.0 / megabits);
    return free;
}

void ImpairmentProxy::schedule(int handle, const sockaddr_in& to, const char* data, std::size_t size) {
    std::uniform_real_distribution<double> chance(0.0, 1.0);
    std::normal_distribution<double> jitter(0.0, 1.0);
    const bool lost = chance(random) < impairment.loss;
    const bool held = chance(random) < impairment.reorder;
    const double wanted =
        impairment.delay_ms + jitter(random) * impairment.jitter_ms + (held ? impairment.held_back_ms : 0.0);
    const uint64_t carried = lost || blackout || queue.size() >= kMaxQueued ? 0 : carriedAt(handle, size);
    if (carried == 0) {
        ++droppedDatagrams;
        return;
    }
    ++passedDatagrams;
    const auto delay = static_cast<uint64_t>(std::max(0.0, wanted) * 1e6);
    queue.push({carried + delay, order++, handle, to, std::vector<char>(data, data + size)});
}

void ImpairmentProxy::receive(int handle, bool fromClient) {
    char bytes[2048];
    sockaddr_in from{};
    socklen_t length = sizeof(from);
    ssize_t size = 0;
    while ((size = recvfrom(handle, bytes, sizeof(bytes), 0, reinterpret_cast<sockaddr*>(&from), &length)) >= 0) {
        const int out = fromClient ? upstreamFor(from) : listening;
        schedule(out, fromClient ? server : clients[handle], bytes, static_cast<std::size_t>(size));
    }
}

void ImpairmentProxy::sendDue() {
    const uint64_t now = nowNs();
    while (!queue.empty() && queue.top().due_ns <= now) {
        const Datagram& next = queue.top();
        (void)sendto(next.handle, next.bytes.data(), next.bytes.size(), 0, reinterpret_cast<const sockaddr*>(&next.to),
                     sizeof(next.to));
        queue.pop();
    }
}

int ImpairmentProxy::waitMilliseconds() const {
    constexpr int kIdleMs = 20;
    if (queue.empty()) {
        return kIdleMs;
    }
    const uint64_t now = nowNs();
    const uint64_t due = queue.top().due_ns;
    return due <= now ? 0 : std::min(kIdleMs, static_cast<int>((due - now) / 1'000'000) + 1);
}

void ImpairmentProxy::run(const std::stop_token& stop) {
    std::vector<pollfd> watched;
    while (!stop.stop_requested()) {
        watched.assign(1, {listening, POLLIN, 0});
        for (const auto& [port, handle] : upstream) {
            watched.push_back({handle, POLLIN, 0});
        }
        (void)poll(watched.data(), watched.size(), waitMilliseconds());
        for (const pollfd& entry : watched) {
            if ((entry.revents & POLLIN) != 0) {
                receive(entry.fd, entry.fd == listening);
            }
        }
        sendDue();
    }
}

}  // namespace oru::test
