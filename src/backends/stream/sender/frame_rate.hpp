#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "oru/types.hpp"

namespace oru::stream {

/// Takes every n-th frame of a faster source, n from the source's own timestamps: the stream's rate divides the
/// source's. A lost source frame does not change the rate. Timestamps that fit no whole ratio are all taken.
class FrameDecimator {
public:
    explicit FrameDecimator(int streamFps) : fps(streamFps) {}

    [[nodiscard]] bool take(Timestamp time);

private:
    static constexpr std::size_t kIntervals = 15;

    [[nodiscard]] uint64_t medianInterval() const;
    [[nodiscard]] uint64_t ratio(uint64_t interval) const;

    int fps;
    Timestamp last = 0;
    std::array<uint64_t, kIntervals> intervals{};
    std::size_t count = 0;
    uint64_t sinceTaken = 0;
};

/// Decides how many frames an encoder that is slower than the stream passes over, so that those it takes are evenly
/// spaced.
class LoadPacer {
public:
    explicit LoadPacer(int fps);

    /// False: pass this frame over.
    [[nodiscard]] bool admit();
    /// A frame found no buffer. Without that, a slow second is what the buffers are for.
    void noteOverflow() { overflowed = true; }
    /// How long the last frame took. True, once: the machine has turned out too slow for every frame.
    [[nodiscard]] bool measured(uint64_t nanoseconds);
    [[nodiscard]] unsigned every() const { return admitInterval; }

private:
    [[nodiscard]] bool windowComplete() const;

    double periodNs;
    double totalNs = 0.0;
    unsigned samples = 0;
    unsigned admitInterval = 1;
    unsigned turn = 0;
    bool overflowed = false;  ///< in this window
    bool told = false;
};

/// Follows what the network can carry: down at once when receivers fall behind or much is repeated, up slowly.
class BitrateControl {
public:
    struct Observation {
        uint64_t sent_packets = 0;      ///< since the start
        uint64_t repeated_packets = 0;  ///< since the start
        uint64_t held_back_frames = 0;  ///< since the start
        double backlog_ms = 0.0;
    };

    /// `highest` in kbit/s; never below a fifth of it.
    explicit BitrateControl(uint32_t highest) : highestRate(highest), currentRate(highest) {}

    /// Once every half second; the rate to use from now on.
    [[nodiscard]] uint32_t update(const Observation& seen);
    [[nodiscard]] uint32_t current() const { return currentRate; }

private:
    uint32_t highestRate;
    uint32_t currentRate;
    unsigned calm = 0;
    Observation last;
};

}  // namespace oru::stream
