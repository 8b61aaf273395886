#include "backends/rlx/file/DecodeAhead.hpp"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>

#include "backends/rlx/file/FileFollower.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

namespace {

constexpr std::size_t kMostAhead = 4;
constexpr std::chrono::milliseconds kLookPeriod{10};
constexpr std::size_t kLeastAhead = 2;
constexpr std::size_t kImageBytesAhead = std::size_t{256} << 20;

/// Fewer of the largest images.
std::size_t framesAhead(const rlxrw::RlxRecordingHeader& facts) {
    const std::size_t imageBytes = std::max<std::size_t>(1, std::size_t{facts.width} * facts.height * 2);
    return std::clamp(kImageBytesAhead / imageBytes, kLeastAhead, kMostAhead);
}

}  // namespace

struct DecodeAhead::Shared {
    Shared(PlayableRecording recording, bool follow, std::unique_ptr<ImageDecoder> imageDecoder)
        : openedFile(std::move(recording.opened)),
          indexEntries(std::move(recording.entries)),
          frameDecoder(openedFile, indexEntries, std::move(imageDecoder)),
          follower(openedFile, recording.end),
          knownFrames(static_cast<int>(indexEntries.size())),
          growing(follow && recording.condition != Condition::INTACT),
          slots(framesAhead(openedFile.header.facts)) {}

    void decodeUntilStopped();
    void lookForMore() ORU_REQUIRES(mutex);

    const OpenedFile openedFile;
    std::vector<IndexEntry> indexEntries;  // grown by the worker under `mutex`, which it need not hold to read
    FrameDecoder frameDecoder;             // the worker's
    FileFollower follower;                 // likewise
    std::atomic<int> knownFrames;
    std::atomic<bool> growing;
    const std::size_t slots;

    Mutex mutex;
    std::condition_variable_any wake;
    std::array<DecodedFrame, kMostAhead>
        ring;  // the reader's from frontSlot on as many as are filled, else the worker's
    std::size_t frontSlot ORU_GUARDED_BY(mutex) = 0;
    std::size_t filledSlots ORU_GUARDED_BY(mutex) = 0;
    int nextToDecode ORU_GUARDED_BY(mutex) = 0;
    uint64_t restarts ORU_GUARDED_BY(mutex) = 0;
    bool stopping ORU_GUARDED_BY(mutex) = false;
    bool ended ORU_GUARDED_BY(mutex) = false;
    std::atomic<bool> interrupted{false};  // the frame under way is not wanted any more
};

void DecodeAhead::Shared::decodeUntilStopped() {
    mutex.lock();
    while (!stopping) {
        if (filledSlots == slots || (nextToDecode >= knownFrames && !growing)) {
            wake.wait(mutex);
            continue;
        }
        if (nextToDecode >= knownFrames) {
            lookForMore();
            continue;
        }
        const uint64_t generation = restarts;
        const int index = nextToDecode;
        DecodedFrame& slot = ring[(frontSlot + filledSlots) % slots];
        interrupted = false;
        mutex.unlock();
        const bool decoded = frameDecoder.decode(index, slot, interrupted);
        mutex.lock();
        if (decoded && generation == restarts) {
            ++filledSlots;
            nextToDecode = index + 1;
            wake.notify_all();
        }
    }
    ended = true;
    wake.notify_all();
    mutex.unlock();
}

void DecodeAhead::Shared::lookForMore() {
    mutex.unlock();
    IndexEntry entry;
    const bool found = follower.next(entry);
    const bool goesOn = found || follower.mayGrow();
    mutex.lock();
    if (found) {
        indexEntries.push_back(entry);
        ++knownFrames;
    } else if (goesOn) {
        (void)wake.wait_for(mutex, kLookPeriod);
    } else {
        growing = false;
        wake.notify_all();
    }
}

DecodeAhead::DecodeAhead(PlayableRecording recording, bool follow, std::unique_ptr<ImageDecoder> decoder)
    : shared(std::make_shared<Shared>(std::move(recording), follow, std::move(decoder))), worker([mine = shared] {
          (void)::pthread_setname_np(::pthread_self(), "rlx-decode");
          mine->decodeUntilStopped();
      }) {}

const HeaderRecord& DecodeAhead::header() const {
    return shared->openedFile.header;
}

int DecodeAhead::frameCount() const {
    return shared->knownFrames;
}

Timestamp DecodeAhead::frameTime(int index) const {
    const MutexLock lock(shared->mutex);
    return index >= 0 && index < frameCount() ? shared->indexEntries[static_cast<std::size_t>(index)].time_ns : 0;
}

bool DecodeAhead::mayGrow() const {
    return shared->growing;
}

void DecodeAhead::restartAt(int index) {
    const MutexLock lock(shared->mutex);
    ++shared->restarts;
    shared->filledSlots = 0;
    shared->nextToDecode = index;
    shared->interrupted = true;
    shared->wake.notify_all();
}

DecodedFrame* DecodeAhead::waitForFront(std::chrono::milliseconds wait) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    const MutexLock lock(shared->mutex);
    while (shared->filledSlots == 0) {
        if (shared->wake.wait_until(shared->mutex, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    return shared->filledSlots == 0 ? nullptr : &shared->ring[shared->frontSlot];
}

void DecodeAhead::popFront() {
    const MutexLock lock(shared->mutex);
    shared->frontSlot = (shared->frontSlot + 1) % shared->slots;
    --shared->filledSlots;
    shared->wake.notify_all();
}

void DecodeAhead::stop(std::chrono::milliseconds limit) {
    if (!worker.joinable()) {
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    bool left = false;
    {
        const MutexLock lock(shared->mutex);
        shared->stopping = true;
        shared->interrupted = true;
        shared->wake.notify_all();
        while (!shared->ended && !left) {
            left = shared->wake.wait_until(shared->mutex, deadline) == std::cv_status::timeout && !shared->ended;
        }
    }
    if (!left) {
        worker.join();
        return;
    }
    ORU_LOG(Warning, "{} The storage of a recording does not answer: the thread that reads it is left behind",
            kTagKoru);
    worker.detach();
}

}  // namespace oru::rlx
