#include "coding/nal_units.hpp"

#include <gtest/gtest.h>

namespace oru::coding {

TEST(ByteStreams, SplitAtBothStartCodesAndComeOutLengthPrefixed) {
    const Bytes stream{0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68, 3, 0, 0, 0, 1, 0x65, 4, 5};
    std::vector<ByteView> scratch;
    Bytes out;

    putLengthPrefixed(stream, scratch, out);

    EXPECT_EQ(out, (Bytes{0, 0, 0, 3, 0x67, 1, 2, 0, 0, 0, 2, 0x68, 3, 0, 0, 0, 3, 0x65, 4, 5}));
    EXPECT_FALSE(avcConfiguration(Bytes{0, 0, 1, 0x68, 3}).has_value()) << "without a sequence parameter set";
    EXPECT_FALSE(hevcConfiguration(stream).has_value());
}

}  // namespace oru::coding
