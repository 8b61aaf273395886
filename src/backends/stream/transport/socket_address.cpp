#include "backends/stream/transport/socket_address.hpp"

#include <arpa/inet.h>

#include <array>
#include <cstring>

namespace oru::stream {

SocketAddress::SocketAddress(const sockaddr* address) {
    if (address != nullptr && address->sa_family == AF_INET) {
        std::memcpy(&storage.v4, address, sizeof(storage.v4));
    } else if (address != nullptr && address->sa_family == AF_INET6) {
        sockaddr_in6 given{};
        std::memcpy(&given, address, sizeof(given));
        if (!IN6_IS_ADDR_V4MAPPED(&given.sin6_addr)) {
            storage.v6 = given;
            return;
        }
        storage.v4 = {};
        storage.v4.sin_family = AF_INET;
        storage.v4.sin_port = given.sin6_port;
        storage.v4.sin_addr.s_addr = given.sin6_addr.s6_addr32[3];
    }
}

std::string SocketAddress::text() const {
    std::array<char, INET6_ADDRSTRLEN> digits = {'?'};
    if (storage.any.sa_family == AF_INET6) {
        inet_ntop(AF_INET6, &storage.v6.sin6_addr, digits.data(), digits.size());
        return "[" + std::string(digits.data()) + "]:" + std::to_string(ntohs(storage.v6.sin6_port));
    }
    inet_ntop(AF_INET, &storage.v4.sin_addr, digits.data(), digits.size());
    return std::string(digits.data()) + ":" + std::to_string(ntohs(storage.v4.sin_port));
}

}  // namespace oru::stream
