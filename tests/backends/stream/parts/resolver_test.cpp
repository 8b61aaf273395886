#include "backends/stream/transport/Resolver.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <thread>

namespace oru::stream {
namespace {

uint16_t portOf(const SocketAddress& address) {
    return ntohs(reinterpret_cast<const sockaddr_in*>(address.get())->sin_port);
}

SocketAddress someAddress() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    return SocketAddress(address);
}

TEST(Resolver, AnAddressNeedsNoLookUp) {
    Resolver resolver([](const std::string&) -> Resolver::Found { throw std::bad_alloc(); });
    for (const auto& [text, family] : {std::pair<const char*, int>{"10.0.0.7", AF_INET},
                                       {"::1", AF_INET6},
                                       {"[::1]", AF_INET6},
                                       {"[fe80::1]", AF_INET6}}) {
        const Resolver::Found found = resolver.resolve(text, 30'010, 0);

        ASSERT_TRUE(found) << text;
        EXPECT_EQ(found->get()->sa_family, family) << text;
        EXPECT_EQ(portOf(*found), 30'010) << text;
    }
    EXPECT_FALSE(resolver.resolve("[]", 1, 20'000)) << "a look-up that throws finds nothing";
}

TEST(Resolver, LookUpsThatHangAreFewAndServeEveryCallerOfTheirHost) {
    struct Gate {
        std::atomic<bool> open{false};
        std::atomic<int> begun{0};
    };
    const auto gate = std::make_shared<Gate>();
    Resolver resolver([gate](const std::string&) -> Resolver::Found {
        ++gate->begun;
        while (!gate->open) {
            std::this_thread::yield();
        }
        return someAddress();
    });

    for (int i = 0; i < 20; ++i) {
        EXPECT_FALSE(resolver.resolve("host" + std::to_string(i % 10), 1, 1));
    }

    EXPECT_LE(gate->begun, static_cast<int>(Resolver::kMaxPending));
    gate->open = true;
    EXPECT_TRUE(resolver.resolve("host0", 1, 20'000)) << "the look-up that has hung so far";
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(resolver.resolve("host" + std::to_string(i), 1, 20'000));
    }
    EXPECT_TRUE(resolver.resolve("another", 1, 20'000)) << "there is room again";
}

}  // namespace
}  // namespace oru::stream
