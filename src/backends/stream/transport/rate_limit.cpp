#include "backends/stream/transport/rate_limit.hpp"

#include <algorithm>

namespace oru::stream {

bool TokenBucket::take(uint64_t nowNs) {
    constexpr double kSecond = 1e9;
    if (filledNs != 0 && nowNs > filledNs) {
        tokens = std::min(most, tokens + static_cast<double>(nowNs - filledNs) / kSecond * rate);
    }
    filledNs = std::max(filledNs, nowNs);
    if (tokens < 1.0) {
        return false;
    }
    tokens -= 1.0;
    return true;
}

ConnectionLimiter::Caller& ConnectionLimiter::callerAt(uint32_t address) {
    const auto known = std::find_if(callers.begin(), callers.end(), [address](const Caller& caller) {
        return caller.used && caller.address == address;
    });
    if (known != callers.end()) {
        return *known;
    }
    Caller& oldest = *std::min_element(callers.begin(), callers.end(),
                                       [](const Caller& a, const Caller& b) { return a.seen_ns < b.seen_ns; });
    oldest = {address, 0, true, TokenBucket(kBurst, kPerSecond)};
    return oldest;
}

bool ConnectionLimiter::admit(uint32_t address, uint64_t nowNs) {
    Caller& caller = callerAt(address);
    caller.seen_ns = nowNs;
    return caller.bucket.take(nowNs) && all.take(nowNs);
}

}  // namespace oru::stream
