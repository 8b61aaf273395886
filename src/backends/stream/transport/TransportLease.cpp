#include "backends/stream/transport/TransportLease.hpp"

#include <srt/srt.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

#include "backends/stream/transport/guarded.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {
namespace {

/// How long exit() waits for owners that another thread is destroying.
constexpr std::chrono::seconds kRetirementLimit{5};

struct Leases {
    std::atomic<bool> over{false};
    Mutex mutex;
    std::condition_variable_any changed;
    std::vector<TransportLease*> held ORU_GUARDED_BY(mutex);
};

// Never destroyed: a stream of static lifetime gives its lease back after every other static object is gone.
Leases& leases() {
    alignas(Leases) static std::byte storage[sizeof(Leases)];
    static Leases* const instance = ::new (static_cast<void*>(storage)) Leases();
    return *instance;
}

}  // namespace

/// The library as an object of static lifetime. Its constructor ends after the library's own static objects are made,
/// so its destructor runs before theirs.
class Transport {
public:
    Transport() { srt_startup(); }
    ~Transport() {
        endOwners();
        srt_cleanup();
    }
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

private:
    static void endOwners() {
        Leases& all = leases();
        all.over.store(true, std::memory_order_release);
        const MutexLock lock(all.mutex);
        for (TransportLease* lease : all.held) {
            if (const auto end = std::exchange(lease->end, nullptr)) {
                (void)guarded("ending a stream with the process", end);
            }
        }
        // What has ended may stay; what another thread is taking apart may not.
        std::erase_if(all.held, [](const TransportLease* lease) { return !lease->retired; });
        (void)all.changed.wait_for(all.mutex, kRetirementLimit,
                                   [&all]() ORU_REQUIRES(all.mutex) { return all.held.empty(); });
    }
};

void startTransport() {
    static const Transport transport;
}

bool isTransportAlive() {
    return !leases().over.load(std::memory_order_acquire);
}

TransportLease::TransportLease(std::function<void()> endOwner) : end(std::move(endOwner)) {
    startTransport();
    Leases& all = leases();
    const MutexLock lock(all.mutex);
    all.held.push_back(this);
}

TransportLease::~TransportLease() {
    Leases& all = leases();
    const MutexLock lock(all.mutex);
    std::erase(all.held, this);
    all.changed.notify_all();
}

void TransportLease::retire() {
    const MutexLock lock(leases().mutex);
    end = nullptr;
    retired = true;
}

}  // namespace oru::stream
