#pragma once

#include <string>

#include "oru/types.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {

/// The compressions by the names that `record` and `convert` take.
extern const Choices<oru::RLX_COMPRESSION_MODE> kCompressions;
std::string compressionName(oru::RLX_COMPRESSION_MODE mode);

}  // namespace koruone
