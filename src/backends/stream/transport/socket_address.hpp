#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

namespace oru::stream {

/// An IPv4 or IPv6 address with its port; without family before it is set.
struct SocketAddress {
    SocketAddress() = default;
    explicit SocketAddress(const sockaddr_in& address) { storage.v4 = address; }
    explicit SocketAddress(const sockaddr_in6& address) { storage.v6 = address; }

    [[nodiscard]] const sockaddr* get() const { return &storage.any; }
    [[nodiscard]] int size() const {
        return storage.any.sa_family == AF_INET6 ? int{sizeof(storage.v6)} : int{sizeof(storage.v4)};
    }
    void setPort(uint16_t port) {
        (storage.any.sa_family == AF_INET6 ? storage.v6.sin6_port : storage.v4.sin_port) = htons(port);
    }

private:
    union {
        sockaddr_in6 v6{};
        sockaddr_in v4;
        sockaddr any;
    } storage;
};

}  // namespace oru::stream
