#include "backends/stream/transport/Resolver.hpp"

#include <netdb.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <memory>
#include <thread>

namespace oru::stream {
namespace {

/// Senders may listen on IPv4 alone, so that comes first where a host has both.
Resolver::Found firstOf(const addrinfo* list) {
    Resolver::Found found;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET) {
            sockaddr_in address{};
            std::memcpy(&address, entry->ai_addr, sizeof(address));
            return SocketAddress(address);
        }
        if (entry->ai_family == AF_INET6 && !found) {
            sockaddr_in6 address{};
            std::memcpy(&address, entry->ai_addr, sizeof(address));
            found = SocketAddress(address);
        }
    }
    return found;
}

Resolver::Found askSystem(const std::string& host, int flags) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
    return firstOf(list);
}

std::string withoutBrackets(const std::string& host) {
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    return bracketed ? host.substr(1, host.size() - 2) : host;
}

}  // namespace

Resolver& Resolver::system() {
    static Resolver resolver([](const std::string& host) { return askSystem(host, 0); });
    return resolver;
}

Resolver::Found Resolver::resolve(const std::string& host, uint16_t port, int milliseconds) {
    Found found = askSystem(withoutBrackets(host), AI_NUMERICHOST);
    if (!found) {
        const std::shared_future<Found> result = begin(host);
        const bool ready =
            result.valid() && result.wait_for(std::chrono::milliseconds(milliseconds)) == std::future_status::ready;
        found = ready ? result.get() : std::nullopt;
    }
    if (found) {
        found->setPort(port);
    }
    return found;
}

std::shared_future<Resolver::Found> Resolver::begin(const std::string& host) {
    const MutexLock lock(mutex);
    std::erase_if(pending, [](const Pending& entry) {
        return entry.result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    const auto same = std::ranges::find(pending, host, &Pending::host);
    if (same != pending.end()) {
        return same->result;
    }
    if (pending.size() >= kMaxPending) {
        return {};
    }
    const auto promise = std::make_shared<std::promise<Found>>();
    pending.push_back({host, promise->get_future().share()});
    const auto work = [promise, host, ask = lookUp] {
        try {
            promise->set_value(ask(host));
        } catch (const std::exception&) {
            promise->set_value(std::nullopt);
        }
    };
    try {
        std::thread(work).detach();
    } catch (const std::exception&) {
        promise->set_value(std::nullopt);
    }
    return pending.back().result;
}

}  // namespace oru::stream
