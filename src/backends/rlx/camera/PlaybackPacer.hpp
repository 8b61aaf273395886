#pragma once

#include "collaborators/RLXVideo.hpp"
#include "utils/Clock.hpp"

namespace oru::rlx {

/// Gives a recording its own pace again: each frame is due at a fixed distance from the first, so that no delay adds
/// up. A gap of more than a second, a step back in time, or a new position starts the schedule anew, with the moment at
/// which the next frame is there, however long it takes to decode. Threads: one.
class PlaybackPacer {
public:
    explicit PlaybackPacer(Clock& clock) : systemClock(clock) {}

    /// Waits until the reader's next frame is due, at most a second. Frames that the frame after them has overtaken
    /// are skipped in the reader. False: the reader needs more time, ask again.
    [[nodiscard]] bool waitForNext(rlxrw::RLXVideo& reader);
    /// After the frame of this time was taken: where the reader stands now.
    void noteTaken(int position, Timestamp time);
    /// After an attempt that gave no frame; the reader may have left out damaged ones.
    void notePosition(int position) { expectedPosition = position; }
    /// The next frame starts the schedule.
    void restart() { anchored = false; }

private:
    void anchor(uint64_t now, Timestamp time);
    [[nodiscard]] uint64_t dueAt(Timestamp time) const { return anchorClock + (time - anchorTime); }
    [[nodiscard]] bool skipOvertaken(rlxrw::RLXVideo& reader);
    void sleepUntil(uint64_t due);

    Clock& systemClock;
    bool anchored = false;
    int expectedPosition = 0;
    Timestamp lastTime = 0;  // of the frame before the next one
    uint64_t anchorClock = 0;
    Timestamp anchorTime = 0;
};

}  // namespace oru::rlx
