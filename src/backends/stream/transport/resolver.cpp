#include "backends/stream/transport/resolver.hpp"

#include <arpa/inet.h>
#include <netdb.h>

#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

namespace oru::stream {
namespace {

std::optional<sockaddr_in> lookUp(const std::string& host) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
        return std::nullopt;
    }
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof(address));
    freeaddrinfo(found);
    return address;
}

}  // namespace

std::optional<sockaddr_in> resolve(const std::string& host, uint16_t port, int milliseconds) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        // The system's look-up cannot be cut short, so it gets a thread that nobody has to wait for.
        auto promise = std::make_shared<std::promise<std::optional<sockaddr_in>>>();
        auto result = promise->get_future();
        std::thread([promise, host] { promise->set_value(lookUp(host)); }).detach();
        if (result.wait_for(std::chrono::milliseconds(milliseconds)) != std::future_status::ready) {
            return std::nullopt;
        }
        const std::optional<sockaddr_in> found = result.get();
        if (!found) {
            return std::nullopt;
        }
        address = *found;
    }
    address.sin_port = htons(port);
    return address;
}

}  // namespace oru::stream
