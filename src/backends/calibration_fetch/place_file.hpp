#pragma once

#include <string>

namespace oru {

/// Writes `text` beside `path` under a temporary name, makes it durable and renames it to `path`.
/// @return why it failed, empty when it did not. On failure neither the temporary file nor a changed `path` is left.
[[nodiscard]] std::string placeFile(const std::string& path, const std::string& text);

}  // namespace oru
