#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "oru_input/mcu/IMUPacket.hpp"

namespace oru::stream {

/// A piece of the stream that every subscriber gets: whole transport packets. Its memory is the caller's.
struct StreamBlock {
    /// A key frame travels with a description; samples travel alone while there is no frame; a goodbye is the last.
    enum class Kind : uint8_t { KEY_FRAME, FRAME, DESCRIPTION, SAMPLES, GOODBYE };

    Kind kind = Kind::SAMPLES;
    std::span<const uint8_t> bytes;
    std::size_t table_bytes = 0;         ///< the programme tables that it begins with
    uint8_t data_counter = 0;            ///< continuity counter of the data track's first transport packet
    uint64_t pts = 0;                    ///< ticks of 90 kHz
    uint64_t session = 0;                ///< of the sender
    uint64_t frame_before = 0;           ///< number of the frame before it
    std::span<const IMUPacket> samples;  ///< what it carries of them
};

}  // namespace oru::stream
