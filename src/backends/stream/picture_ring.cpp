#include "picture_ring.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace oru::stream {

void PictureRing::resize(std::size_t bytes) {
    for (Slot& slot : slots_) {
        slot.pixels.resize(bytes);
    }
    MutexLock lock(mutex_);
    count_ = 0;
    writing_ = kNone;
    reading_ = kNone;
    readNs_ = 0;
}

void PictureRing::setPatience(uint64_t nanoseconds) {
    MutexLock lock(mutex_);
    patienceNs_ = nanoseconds;
}

std::size_t PictureRing::popOldest() {
    const std::size_t oldest = waiting_[0];
    std::copy(waiting_.begin() + 1, waiting_.begin() + static_cast<std::ptrdiff_t>(count_), waiting_.begin());
    --count_;
    return oldest;
}

bool PictureRing::isFree(std::size_t slot) const {
    const auto* end = waiting_.begin() + count_;
    return slot != writing_ && slot != reading_ && std::find(waiting_.begin(), end, slot) == end;
}

void PictureRing::giveUpAllButNewest() {
    ledger_.lost(&FrameCounters::overwritten, count_ - 1);
    waiting_[0] = waiting_[count_ - 1];
    count_ = 1;
}

unsigned char* PictureRing::beginWrite() {
    MutexLock lock(mutex_);
    writing_ = kNone;
    const uint64_t now = clock_.monotonicNanoseconds();
    if (count_ == kMaxWaiting && readNs_ != 0 && now - readNs_ < patienceNs_) {
        const auto room = [this]() ORU_NO_THREAD_SAFETY_ANALYSIS { return count_ < kMaxWaiting; };
        taken_.wait_for(mutex_, std::chrono::nanoseconds(patienceNs_ - (now - readNs_)), room);
    }
    if (count_ == kMaxWaiting) {
        (void)popOldest();
        ledger_.lost(&FrameCounters::overwritten);
    }
    std::size_t slot = 0;
    while (!isFree(slot)) {
        ++slot;
    }
    writing_ = slot;
    return slots_[slot].pixels.data();
}

void PictureRing::publish(const FrameFacts& facts) {
    {
        MutexLock lock(mutex_);
        slots_[writing_].facts = facts;
        slots_[writing_].published_ns = clock_.monotonicNanoseconds();
        waiting_[count_++] = writing_;
        writing_ = kNone;
    }
    published_.notify_one();
}

std::optional<FrameFacts> PictureRing::read(unsigned char* image, uint64_t wait_ns) {
    std::size_t slot = kNone;
    {
        MutexLock lock(mutex_);
        const auto ready = [this]() ORU_NO_THREAD_SAFETY_ANALYSIS { return count_ > 0; };
        if (!published_.wait_for(mutex_, std::chrono::nanoseconds(wait_ns), ready)) {
            return std::nullopt;
        }
        if (clock_.monotonicNanoseconds() - slots_[waiting_[0]].published_ns > patienceNs_) {
            giveUpAllButNewest();
        }
        slot = popOldest();
        reading_ = slot;
        readNs_ = clock_.monotonicNanoseconds();
    }
    taken_.notify_one();
    std::memcpy(image, slots_[slot].pixels.data(), slots_[slot].pixels.size());
    MutexLock lock(mutex_);
    reading_ = kNone;
    ledger_.delivered();
    return slots_[slot].facts;
}

}  // namespace oru::stream
