#pragma once

#include <optional>
#include <span>
#include <vector>

#include "utils/bytes.hpp"

namespace oru::coding {

/// Appends the units of a byte stream with start codes (ITU-T H.264 annex B, H.265 annex B) to `units`.
void splitByteStream(ByteView stream, std::vector<ByteView>& units);

/// The same units with four-byte big-endian lengths, as Matroska stores them (ISO/IEC 14496-15).
void putLengthPrefixed(ByteView stream, std::vector<ByteView>& scratch, Bytes& out);

/// The decoder configuration records of ISO/IEC 14496-15 from parameter sets with start codes; nothing when a
/// parameter set is missing. 8 bits a sample, 4:2:0.
[[nodiscard]] std::optional<Bytes> avcConfiguration(ByteView parameterSets);
[[nodiscard]] std::optional<Bytes> hevcConfiguration(ByteView parameterSets);

}  // namespace oru::coding
