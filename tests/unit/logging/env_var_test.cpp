#include "utils/env_var.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"

namespace oru {
namespace {

using doubles::LogCapture;
using doubles::ScopedEnvironment;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct SwitchCase {
    const char* value;
    bool enabled;
};

const SwitchCase kSwitchCases[] = {{nullptr, false}, {"", false},      {"0", false},     {"no", false},
                                   {"true", false},  {"TRUE", false},  {"2", false},     {" yes", false},
                                   {"yes ", false},  {"1", true},      {"YES", true},    {"On", true},
                                   {"Y", true},      {"ENABLE", true}, {"Enabled", true}};

TEST(RealTimeSwitch, IsOnForEnabledWordsOnlyAndSaysSo) {
    for (const auto& [value, enabled] : kSwitchCases) {
        const ScopedEnvironment variable("KORU_SDK_REAL_TIME_RLX", value);
        LogCapture capture;

        EXPECT_EQ(check_env_var_real_time_rlx(), enabled) << (value == nullptr ? "unset" : value);

        if (enabled) {
            EXPECT_THAT(capture.messages(), ElementsAre(Pair(LogLevel::TraceL1, "KORU_SDK_REAL_TIME_RLX ENABLED!")));
        } else {
            EXPECT_THAT(capture.messages(), IsEmpty());
        }
    }
}

TEST(RepairSwitch, TurnsRepairOffForEnabledWordsOnlyAndSaysSo) {
    for (const auto& [value, enabled] : kSwitchCases) {
        const ScopedEnvironment variable("KORU_SDK_DISABLE_AUTO_REPAIR_RLX", value);
        LogCapture capture;

        EXPECT_EQ(check_env_var_repair_rlx_in_place(), !enabled) << (value == nullptr ? "unset" : value);

        if (enabled) {
            EXPECT_THAT(capture.messages(), ElementsAre(Pair(LogLevel::TraceL1, "RLX AUTO REPAIR DISABLED!")));
        } else {
            EXPECT_THAT(capture.messages(), IsEmpty());
        }
    }
}

TEST(StreamVersionSwitch, IsOneForExactlyOne) {
    const struct {
        const char* value;
        int version;
        const char* message;
    } cases[] = {{nullptr, 2, ""},
                 {"", 2, ""},
                 {"01", 2, ""},
                 {" 1", 2, ""},
                 {"1.0", 2, ""},
                 {"yes", 2, ""},
                 {"1", 1, "STREAM VERSION 1 WILL BE USED!"},
                 {"2", 2, "STREAM VERSION 2 WILL BE USED!"}};
    for (const auto& [value, version, message] : cases) {
        const ScopedEnvironment variable("KORU_SDK_STREAM_VERSION", value);
        LogCapture capture;

        EXPECT_EQ(check_env_var_stream_version(), version) << (value == nullptr ? "unset" : value);

        if (*message == '\0') {
            EXPECT_THAT(capture.messages(), IsEmpty());
        } else {
            EXPECT_THAT(capture.messages(), ElementsAre(Pair(LogLevel::TraceL1, message)));
        }
    }
}

}  // namespace
}  // namespace oru
