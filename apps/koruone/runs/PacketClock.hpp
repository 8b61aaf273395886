#pragma once

#include <cstdint>

#include "koruone/output/TimingHistogram.hpp"

namespace koruone {

/// What the timestamps of a series of packets say about its rate and its gaps, in constant memory.
class PacketClock {
public:
    enum Step {
        FIRST,     ///< nothing to compare with
        NEXT,      ///< follows the one before
        GAP,       ///< later than 1.5 times the usual interval
        REPEATED,  ///< the same timestamp again; not counted as a packet
        BACKWARDS  ///< earlier than the one before; counted, its interval is not
    };

    struct Summary {
        uint64_t packets = 0;
        double seconds = 0.0;       ///< from the first to the last timestamp
        double rate = 0.0;          ///< packets per second over that time
        double median_ms = 0.0;     ///< usual interval
        double largest_ms = 0.0;    ///< longest interval
        uint64_t gaps = 0;          ///< intervals longer than 1.5 times the usual one
        uint64_t missing = 0;       ///< packets that would fill the gaps
        uint64_t out_of_order = 0;  ///< packets with an earlier timestamp than the one before
    };

    Step add(uint64_t timestampNs);
    [[nodiscard]] uint64_t packets() const { return received; }
    [[nodiscard]] Summary summary() const;

private:
    TimingHistogram intervals;
    uint64_t received = 0;
    uint64_t firstNs = 0;
    uint64_t lastNs = 0;
    uint64_t largestNs = 0;
    uint64_t outOfOrder = 0;
    double usualUs = 0.0;
};

}  // namespace koruone
