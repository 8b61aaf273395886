#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include "backends/stream/transport/socket_address.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// Finds the addresses of hosts. The system's look-up cannot be cut short, so each runs on a thread that nobody has to
/// wait for; there are kMaxPending of them at most, and one host is never looked up twice at the same time.
/// Threads: any.
class Resolver {
public:
    static constexpr std::size_t kMaxPending = 4;

    using Found = std::optional<SocketAddress>;
    /// An address of this host, without a port. Runs on a thread of its own and may outlive the resolver.
    using LookUp = std::function<Found(const std::string& host)>;

    explicit Resolver(LookUp hostLookUp) : lookUp(std::move(hostLookUp)) {}

    /// Of the process, asking the system.
    static Resolver& system();

    /// An IPv4 or IPv6 address, also in brackets, at once; a name within this time. Nothing: not known, or too many
    /// look-ups hang.
    [[nodiscard]] Found resolve(const std::string& host, uint16_t port, int milliseconds);

private:
    struct Pending {
        std::string host;
        std::shared_future<Found> result;
    };

    /// The result to come; not valid when too many are pending.
    [[nodiscard]] std::shared_future<Found> begin(const std::string& host);

    const LookUp lookUp;
    Mutex mutex;
    std::vector<Pending> pending ORU_GUARDED_BY(mutex);
};

}  // namespace oru::stream
