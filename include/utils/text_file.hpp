#pragma once

#include <cstddef>
#include <string>

#include "utils/private_export.hpp"

namespace oru {

struct PlainText {
    std::string text;
    std::string defect;  ///< why it could not be read, one phrase; empty when it could
};

/// Reads a whole text file. A directory, a pipe or a device, which could hang or exhaust the reader, and what is longer
/// than the limit are refused.
[[nodiscard]] ORU_PRIVATE_API PlainText readPlainText(const std::string& path, std::size_t limitBytes);

/// Writes `text` beside `path` under a temporary name, makes it durable and renames it to `path`.
/// @return why it failed, empty when it did not. On failure neither the temporary file nor a changed `path` is left.
[[nodiscard]] std::string placeFile(const std::string& path, const std::string& text);

}  // namespace oru
