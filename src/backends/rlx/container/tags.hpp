#pragma once

#include <string>

#include "utils/bytes.hpp"

namespace oru::rlx {

/// Appends a SimpleTag.
void putTag(Bytes& out, const char* name, const std::string& value);
void putBinaryTag(Bytes& out, const char* name, ByteView data);
/// A Tags element that describes the whole file by the SimpleTags.
[[nodiscard]] Bytes wrapTags(const Bytes& simpleTags);

}  // namespace oru::rlx
