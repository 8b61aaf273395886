#pragma once

#include <optional>
#include <string>

namespace oru::stream {

/// The keys of one end of a stream; empty is no key. They come from the environment, never from an argument, and never
/// go into a log.
struct StreamKeys {
    static constexpr const char* kViewingVariable = "KORU_STREAM_PASSPHRASE";
    static constexpr const char* kControlVariable = "KORU_STREAM_CONTROL_PASSPHRASE";
    static constexpr std::size_t kShortest = 10;
    static constexpr std::size_t kLongest = 79;

    std::string viewing;
    std::string control;
};

/// The keys that the environment holds. Nothing, with an Error in the log: one of them is shorter than 10 or longer
/// than 79 characters, or both are the same.
[[nodiscard]] std::optional<StreamKeys> keysFromEnvironment();

}  // namespace oru::stream
