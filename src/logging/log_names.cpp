#include "logging/log_names.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace oru {
namespace {

constexpr std::array<const char*, 8> kNames = {"TRACE_L3", "TRACE_L2", "TRACE_L1", "DEBUG",
                                               "INFO",     "WARNING",  "ERROR",    "CRITICAL"};
constexpr std::array<std::string_view, 9> kThresholds = {"tracel3", "tracel2", "tracel1",  "debug", "info",
                                                         "warning", "error",   "critical", "none"};

}  // namespace

const char* nameOf(LogLevel level) {
    return kNames.at(std::min<std::size_t>(static_cast<std::size_t>(level), kNames.size() - 1));
}

LogLevel levelNamed(std::string_view name) {
    const auto* found = std::find(kNames.begin(), kNames.end(), name);
    return found == kNames.end() ? LogLevel::Info : static_cast<LogLevel>(found - kNames.begin());
}

std::optional<LogLevel> parseThreshold(std::string text) {
    for (char& letter : text) {
        if (letter >= 'A' && letter <= 'Z') {
            letter = static_cast<char>(letter - 'A' + 'a');
        }
    }
    const auto* found = std::find(kThresholds.begin(), kThresholds.end(), text);
    if (found == kThresholds.end()) {
        return std::nullopt;
    }
    return static_cast<LogLevel>(found - kThresholds.begin());
}

}  // namespace oru
