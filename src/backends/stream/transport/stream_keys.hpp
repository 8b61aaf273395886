#pragma once

#include <optional>
#include <string>

#include "oru/types.hpp"

namespace oru::stream {

/// The keys that one end of a stream works with; empty is no key. They come from the application or from the
/// environment and never go into a log.
struct EffectiveKeys {
    static constexpr const char* kViewingVariable = "KORU_STREAM_PASSPHRASE";
    static constexpr const char* kControlVariable = "KORU_STREAM_CONTROL_PASSPHRASE";
    static constexpr std::size_t kShortest = 10;
    static constexpr std::size_t kLongest = 79;

    std::string viewing;
    std::string control;
};

/// The keys that the application gives, each that it does not give from the environment. Nothing, with an Error in the
/// log: one of them is shorter than 10 or longer than 79 characters, or both are the same.
[[nodiscard]] std::optional<EffectiveKeys> effectiveKeys(const StreamKeys& given);

}  // namespace oru::stream
