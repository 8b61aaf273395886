#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace oru::stream {

/// So many events at once, and so many a second after that. Threads: one at a time.
class TokenBucket {
public:
    TokenBucket() = default;
    TokenBucket(double burst, double perSecond) : most(burst), rate(perSecond), tokens(burst) {}

    [[nodiscard]] bool take(uint64_t nowNs);

private:
    double most = 0.0;
    double rate = 0.0;
    double tokens = 0.0;
    uint64_t filledNs = 0;
};

/// Bounds what strangers can make the sender work: an attempt to connect costs it a socket and, with a key, a key
/// derivation on the thread that also hears the receivers. Each address has its own share, so that one stranger does
/// not lock the others out. Threads: one at a time.
class ConnectionLimiter {
public:
    static constexpr double kBurst = 24;     ///< attempts at once from one address
    static constexpr double kPerSecond = 8;  ///< and then each second
    static constexpr double kAllBurst = 48;  ///< from all addresses together
    static constexpr double kAllPerSecond = 32;

    [[nodiscard]] bool admit(uint32_t address, uint64_t nowNs);

private:
    static constexpr std::size_t kAddresses = 64;
    struct Caller {
        uint32_t address = 0;
        uint64_t seen_ns = 0;
        bool used = false;
        TokenBucket bucket;
    };

    /// The one of this address, else that of the address that has been silent longest.
    Caller& callerAt(uint32_t address);

    std::array<Caller, kAddresses> callers{};
    TokenBucket all{kAllBurst, kAllPerSecond};
};

}  // namespace oru::stream
