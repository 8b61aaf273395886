#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "logging/Logger.hpp"

namespace oru {

/// "TRACE_L3" to "CRITICAL"; a literal.
const char* nameOf(LogLevel level);
/// The level whose nameOf is exactly this; Info when it is none.
LogLevel levelNamed(std::string_view name);
/// A threshold as a user writes it: tracel3, tracel2, tracel1, debug, info, warning, error, critical, none; any case.
std::optional<LogLevel> parseThreshold(std::string text);

}  // namespace oru
