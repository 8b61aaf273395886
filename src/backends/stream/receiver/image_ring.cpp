#include "backends/stream/receiver/image_ring.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace oru::stream {

void ImageRing::resize(std::size_t bytes) {
    for (Slot& slot : slots) {
        slot.pixels.resize(bytes);
    }
    const MutexLock lock(mutex);
    count = 0;
    writing = kNone;
    reading = kNone;
    readNs = 0;
    publishedNs = clock.monotonicNanoseconds();
}

void ImageRing::setPatience(uint64_t nanoseconds) {
    const MutexLock lock(mutex);
    patienceNs = nanoseconds;
}

std::size_t ImageRing::popOldest() {
    const std::size_t oldest = waiting[0];
    std::copy(waiting.begin() + 1, waiting.begin() + static_cast<std::ptrdiff_t>(count), waiting.begin());
    --count;
    return oldest;
}

bool ImageRing::isFree(std::size_t slot) const {
    const auto* end = waiting.begin() + count;
    return slot != writing && slot != reading && std::find(waiting.begin(), end, slot) == end;
}

void ImageRing::giveUpAllButNewest() {
    ledger.lost(&FrameCounters::overwritten, count - 1);
    waiting[0] = waiting[count - 1];
    count = 1;
}

unsigned char* ImageRing::beginWrite() {
    const MutexLock lock(mutex);
    writing = kNone;
    const uint64_t now = clock.monotonicNanoseconds();
    if (count == kMaxWaiting && readNs != 0 && now - readNs < patienceNs) {
        const auto room = [this]() ORU_REQUIRES(mutex) { return count < kMaxWaiting; };
        taken.wait_for(mutex, std::chrono::nanoseconds(patienceNs - (now - readNs)), room);
    }
    if (count == kMaxWaiting) {
        (void)popOldest();
        ledger.lost(&FrameCounters::overwritten);
    }
    std::size_t slot = 0;
    while (!isFree(slot)) {
        ++slot;
    }
    writing = slot;
    return slots[slot].pixels.data();
}

void ImageRing::publish(const FrameInfo& info) {
    {
        const MutexLock lock(mutex);
        slots[writing].info = info;
        publishedNs = clock.monotonicNanoseconds();
        slots[writing].published_ns = publishedNs;
        waiting[count++] = writing;
        writing = kNone;
    }
    published.notify_one();
}

bool ImageRing::empty() const {
    const MutexLock lock(mutex);
    return count == 0;
}

uint64_t ImageRing::newestNs() const {
    const MutexLock lock(mutex);
    return publishedNs;
}

std::optional<FrameInfo> ImageRing::read(unsigned char* image, uint64_t waitNs) {
    std::size_t slot = kNone;
    {
        const MutexLock lock(mutex);
        const auto ready = [this]() ORU_REQUIRES(mutex) { return count > 0; };
        if (!published.wait_for(mutex, std::chrono::nanoseconds(waitNs), ready)) {
            return std::nullopt;
        }
        if (clock.monotonicNanoseconds() - slots[waiting[0]].published_ns > patienceNs) {
            giveUpAllButNewest();
        }
        slot = popOldest();
        reading = slot;
        readNs = clock.monotonicNanoseconds();
    }
    taken.notify_one();
    std::memcpy(image, slots[slot].pixels.data(), slots[slot].pixels.size());
    const MutexLock lock(mutex);
    reading = kNone;
    ledger.delivered();
    return slots[slot].info;
}

}  // namespace oru::stream
