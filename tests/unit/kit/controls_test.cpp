#include "oru/controls.hpp"

#include <gtest/gtest.h>

namespace oru {
namespace {

TEST(Controls, StandInTheOrderOfTheirNumbers) {
    for (std::size_t i = 0; i < kControls.size(); ++i) {
        EXPECT_EQ(static_cast<std::size_t>(kControls[i].number), i) << kControls[i].name;
        EXPECT_EQ(findControl(kControls[i].name), &kControls[i]);
    }
    EXPECT_EQ(kControls.back().number, GMSL_SETTING_20);
}

TEST(Controls, AreFoundByNumberAndByNameInAnyCase) {
    EXPECT_EQ(findControl("aec_Agc_roi"), findControl(AEC_AGC_ROI));
    for (const char* name : {"", "GAI", "GAINS", "SETTING_9"}) {
        EXPECT_EQ(findControl(name), nullptr) << name;
    }
    EXPECT_EQ(findControl(VIDEO_SETTINGS{-1}), nullptr);
    EXPECT_EQ(findControl(VIDEO_SETTINGS{21}), nullptr);
}

TEST(Controls, AutomaticSwitchesAreReadAndWrittenWhereverTheirControlIs) {
    for (const Control& control : kControls) {
        if (!control.automatic_switch) {
            continue;
        }
        const Control* automatic = findControl(*control.automatic_switch);
        ASSERT_NE(automatic, nullptr) << control.name;
        EXPECT_EQ(automatic->kind, ControlKind::VALUE);
        EXPECT_GE(automatic->read_from, control.read_from);
        EXPECT_GE(automatic->written_to, control.written_to);
    }
}

}  // namespace
}  // namespace oru
