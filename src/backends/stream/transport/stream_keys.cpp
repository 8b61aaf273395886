#include "backends/stream/transport/stream_keys.hpp"

#include <cstdlib>
#include <utility>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

/// One key and what a message calls it.
struct NamedKey {
    std::string name;
    std::string text;
};

NamedKey choose(const std::optional<String>& given, const char* parameter, const char* variable) {
    if (given) {
        return {parameter, given->get()};
    }
    const char* value = std::getenv(variable);
    return {variable, value == nullptr ? "" : value};
}

bool isAcceptable(const NamedKey& key) {
    const std::size_t size = key.text.size();
    if (size == 0 || (size >= EffectiveKeys::kShortest && size <= EffectiveKeys::kLongest)) {
        return true;
    }
    ORU_LOG(Error, "{} {} must have {} to {} characters and has {}; set a key of such a length, or none", kTagStreaming,
            key.name, EffectiveKeys::kShortest, EffectiveKeys::kLongest, size);
    return false;
}

}  // namespace

std::optional<EffectiveKeys> effectiveKeys(const StreamKeys& given) {
    NamedKey viewing = choose(given.viewing, "the viewing key", EffectiveKeys::kViewingVariable);
    NamedKey control = choose(given.control, "the control key", EffectiveKeys::kControlVariable);
    if (!isAcceptable(viewing) || !isAcceptable(control)) {
        return std::nullopt;
    }
    if (!control.text.empty() && viewing.text == control.text) {
        ORU_LOG(Error,
                "{} {} and {} are the same, so that every viewer could control the camera; set two different keys",
                kTagStreaming, viewing.name, control.name);
        return std::nullopt;
    }
    return EffectiveKeys{std::move(viewing.text), std::move(control.text)};
}

}  // namespace oru::stream
