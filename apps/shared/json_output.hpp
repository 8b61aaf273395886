#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "oru/types.hpp"

namespace koruone {

/// Keeps the order in which members were added.
using Json = nlohmann::ordered_json;

/// An object with one member for each field of the record, under its name.
Json toJson(const oru::FrameCounters& counters);

/// An object with what a stream's receiver counted and how the stream ended.
Json toJson(const oru::StreamInputStatus& status);

/// The names of the counters' fields, in the record's order, with the values.
std::vector<std::pair<const char*, uint64_t>> namedCounters(const oru::FrameCounters& counters);

/// A number, or null when it is not finite.
Json number(double value);
inline Json number(float value) {
    return number(static_cast<double>(value));
}

/// One line on standard output. Bytes that are not UTF-8 are replaced.
void writeJsonLine(const Json& value);

}  // namespace koruone
