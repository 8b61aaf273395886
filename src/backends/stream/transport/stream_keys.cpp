#include "backends/stream/transport/stream_keys.hpp"

#include <cstdlib>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool acceptable(const char* name, const std::string& key) {
    if (key.empty() || (key.size() >= StreamKeys::kShortest && key.size() <= StreamKeys::kLongest)) {
        return true;
    }
    ORU_LOG(Error, "{} {} must have {} to {} characters and has {}: no stream without a sound key", kTagStreaming, name,
            StreamKeys::kShortest, StreamKeys::kLongest, key.size());
    return false;
}

}  // namespace

std::optional<StreamKeys> keysFromEnvironment() {
    StreamKeys keys{variable(StreamKeys::kViewingVariable), variable(StreamKeys::kControlVariable)};
    if (!acceptable(StreamKeys::kViewingVariable, keys.viewing) ||
        !acceptable(StreamKeys::kControlVariable, keys.control)) {
        return std::nullopt;
    }
    if (!keys.control.empty() && keys.viewing == keys.control) {
        ORU_LOG(Error, "{} {} and {} are the same, so that every viewer could control the camera: no stream",
                kTagStreaming, StreamKeys::kViewingVariable, StreamKeys::kControlVariable);
        return std::nullopt;
    }
    return keys;
}

}  // namespace oru::stream
