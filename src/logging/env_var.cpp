#include "utils/env_var.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "logging/log.hpp"

namespace {

constexpr std::array<std::string_view, 6> kEnabledWords = {"1", "enabled", "on", "enable", "yes", "y"};

}  // namespace

bool is_enabled(std::string value) {
    for (char& letter : value) {
        if (letter >= 'A' && letter <= 'Z') {
            letter = static_cast<char>(letter - 'A' + 'a');
        }
    }
    return std::find(kEnabledWords.begin(), kEnabledWords.end(), value) != kEnabledWords.end();
}

bool check_env_var_real_time_rlx() {
    const char* value = std::getenv("KORU_SDK_REAL_TIME_RLX");
    if (value == nullptr || !is_enabled(value)) {
        return false;
    }
    ORU_LOG(TraceL1, "KORU_SDK_REAL_TIME_RLX ENABLED!");
    return true;
}

bool check_env_var_repair_rlx_in_place() {
    const char* value = std::getenv("KORU_SDK_DISABLE_AUTO_REPAIR_RLX");
    if (value == nullptr || !is_enabled(value)) {
        return true;
    }
    ORU_LOG(TraceL1, "RLX AUTO REPAIR DISABLED!");
    return false;
}

int check_env_var_stream_version() {
    const char* value = std::getenv("KORU_SDK_STREAM_VERSION");
    if (value == nullptr) {
        return 2;
    }
    if (std::string_view(value) == "2") {
        ORU_LOG(TraceL1, "STREAM VERSION 2 WILL BE USED!");
    }
    if (std::string_view(value) == "1") {
        ORU_LOG(TraceL1, "STREAM VERSION 1 WILL BE USED!");
        return 1;
    }
    return 2;
}
