#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

namespace oru::stream {

/// An IPv4 or IPv6 address with its port; without family, and not known, before it is set.
struct SocketAddress {
    SocketAddress() = default;
    explicit SocketAddress(const sockaddr_in& address) { storage.v4 = address; }
    explicit SocketAddress(const sockaddr_in6& address) { storage.v6 = address; }

    /// Without family for one of neither kind. An IPv4 address that a socket of both kinds shows as one of IPv6
    /// (RFC 4291, 2.5.5.2) becomes what it is.
    explicit SocketAddress(const sockaddr* address);
    /// Of every network of this machine.
    static SocketAddress any(int family, uint16_t port) {
        SocketAddress address;
        address.storage.any.sa_family = static_cast<sa_family_t>(family);
        address.setPort(port);
        return address;
    }

    [[nodiscard]] bool isKnown() const { return storage.any.sa_family != AF_UNSPEC; }
    /// One number for each IPv4 address and for each IPv6 network, whose addresses one caller may have all to himself.
    [[nodiscard]] uint32_t origin() const {
        if (storage.any.sa_family != AF_INET6) {
            return storage.v4.sin_addr.s_addr;
        }
        const uint32_t* words = storage.v6.sin6_addr.s6_addr32;
        return words[0] * 31 + words[1];
    }
    /// "10.0.0.7:30000", "[::1]:30000"
    [[nodiscard]] std::string text() const;

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
