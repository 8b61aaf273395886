#include <gtest/gtest.h>

#include <set>

#include "oru/types.hpp"

namespace oru {
namespace {

TEST(ToString, GivesEveryCodeATextOfItsOwn) {
    const std::set<int> codes = {-4, -1, 0, 1, 2, 4, 5, 6, 7, 9, 10, 11, 13, 14, 17, 19, 21, 22, 26, 28, 31, 32};
    std::set<std::string> texts;
    for (int code = -10; code <= 40; ++code) {
        const std::string text = toString(static_cast<ERROR_CODE>(code)).get();
        if (codes.count(code) == 1) {
            EXPECT_TRUE(texts.insert(text).second) << text;
            EXPECT_NE(text, "Unknown error") << code;
        } else {
            EXPECT_EQ(text, "Unknown error") << code;
        }
    }
}

TEST(GetScaleMillimeter, KnowsEveryUnit) {
    EXPECT_EQ(getScaleMillimeter(UNIT_MILLIMETER), 1.0F);
    EXPECT_EQ(getScaleMillimeter(UNIT_CENTIMETER), 10.0F);
    EXPECT_EQ(getScaleMillimeter(UNIT_METER), 1000.0F);
    EXPECT_EQ(getScaleMillimeter(UNIT_INCH), 25.4F);
    EXPECT_EQ(getScaleMillimeter(UNIT_FOOT), 304.8F);
    EXPECT_EQ(getScaleMillimeter(static_cast<UNIT>(9)), 1.0F);
}

TEST(InputType, DescribesEachInputByItsTexts) {
    InputType input;
    EXPECT_FALSE(input.isSet());
    EXPECT_EQ(input.kind(), KIND_GMSL_ID);

    input.setFromFile("/a:b/c.rlx2");
    EXPECT_EQ(input.kind(), KIND_RLX_FILE);
    EXPECT_EQ(input.first(), "/a:b/c.rlx2");
    EXPECT_TRUE(input.isSet());
    input.setFromStream("::1");
    EXPECT_EQ(input.kind(), KIND_STREAM);
    EXPECT_EQ(input.first(), "::1:30000");
    input.setFromSerialNumber(4294967295U);
    EXPECT_EQ(input.kind(), KIND_GMSL_SERIAL);
    EXPECT_EQ(input.first(), "4294967295");
    input.setFromCameraID(-1);
    EXPECT_EQ(input.kind(), KIND_GMSL_ID);
    EXPECT_EQ(input.first(), "-1");
    EXPECT_TRUE(input.second().empty());

    const InputType raw(static_cast<InputKind>(9), "x", "y", false);
    EXPECT_EQ(raw.kind(), 9);
    EXPECT_EQ(raw.second(), "y");
    EXPECT_FALSE(raw.isSet());
}

}  // namespace
}  // namespace oru
