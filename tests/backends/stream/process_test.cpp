#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "backends/stream/stream_fixture.hpp"
#include "doubles/ChildProcess.hpp"
#include "doubles/TemporaryDirectory.hpp"

namespace oru::test {
namespace {

using doubles::ChildProcess;

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;

int rounds(int usual) {
    const char* asked = std::getenv("ORU_STREAM_ROUNDS");
    return asked != nullptr ? std::atoi(asked) : usual;
}

std::vector<std::string> sendCommand(uint16_t port, uint64_t first) {
    return {ORU_STREAM_PEER,         "send", std::to_string(port), std::to_string(first), std::to_string(kWidth),
            std::to_string(kHeight), "30"};
}

TEST(TwoProcesses, TheReceiverFindsASenderThatWasKilledAgain) {
    const uint16_t port = freePort();
    const auto clock = makeSystemClock();
    CalibrationKeeper texts;
    auto receiver = makeStreamReceiver(*clock, texts, nullptr, false);
    std::vector<unsigned char> image(kWidth * kHeight * 2);

    for (int round = 0; round < rounds(4); ++round) {
        const uint64_t first = static_cast<uint64_t>(round) * 10'000;
        ChildProcess sender(sendCommand(port, first));
        if (round == 0) {
            ASSERT_EQ(receiver->open("127.0.0.1", port, 0), 0);
        }
        uint64_t number = 0;
        do {
            ASSERT_TRUE(readNext(*receiver, image)) << "round " << round;
            const SeenImage seen = readImage(image, kWidth, kHeight);
            number = seen.number;
            EXPECT_LT(seen.mean_error, 10.0);
            EXPECT_EQ(receiver->frameTimestamp(), numberedTime(number));
        } while (number < first + 10);
        EXPECT_LT(number, first + 10'000);
    }
    const FrameCounters counters = receiver->counters();
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
    EXPECT_EQ(counters.decode_failed, 0U);
}

TEST(TwoProcesses, TheSenderOutlivesReceiversThatAreKilled) {
    const UDPOutConfig configuration = streamConfiguration(freePort(), kWidth, kHeight);
    ChildProcess sender(sendCommand(configuration.port, 0));
    const std::vector<std::string> receive = {ORU_STREAM_PEER, "receive", "127.0.0.1",
                                              std::to_string(configuration.port), "2"};

    for (int round = 0; round < rounds(6); ++round) {
        ChildProcess receiver(receive);
        EXPECT_EQ(receiver.line(), "first\n") << "round " << round;
        receiver.kill();
    }
    ChildProcess last(receive);
    EXPECT_EQ(last.line(), "first\n");

    unsigned frames = 0;
    unsigned wrong = 0;
    unsigned lost = 0;
    unsigned samples = 0;
    std::istringstream(last.line()) >> frames >> wrong >> lost >> samples;
    EXPECT_GT(frames, 40U);
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(lost, 0U);
    EXPECT_GT(samples, 4 * (frames - 3));
}

/// A sender for players, which do not try again when it is not there yet.
class Player : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("ffprobe -hide_banner -protocols 2>/dev/null | grep -q srt && command -v ffmpeg >/dev/null") !=
            0) {
            GTEST_SKIP() << "no ffmpeg with SRT here";
        }
        CalibrationKeeper texts;
        const auto clock = makeSystemClock();
        ASSERT_EQ(makeStreamReceiver(*clock, texts, nullptr, false)->open("127.0.0.1", port, 0), 0);
    }

    const uint16_t port = freePort();
    const std::string address = "srt://127.0.0.1:" + std::to_string(port);
    ChildProcess sender{sendCommand(port, 0)};
};

TEST_F(Player, ReadsImagesAndMetadataFromThePlainAddress) {
    ChildProcess probe({"ffprobe", "-v", "quiet", "-analyzeduration", "1000000", "-read_intervals", "%+2",
                        "-show_entries", "stream=codec_name,width,height:packet=codec_type", "-of", "compact",
                        "-show_streams", "-show_packets", address});
    const std::string seen = probe.rest();

    const auto count = [&](const std::string& text) {
        unsigned found = 0;
        for (std::size_t at = seen.find(text); at != std::string::npos; at = seen.find(text, at + 1)) {
            ++found;
        }
        return found;
    };
    EXPECT_GT(count("packet|codec_type=video"), 30U);
    EXPECT_GT(count("packet|codec_type=data"), 30U);
    EXPECT_GE(count("codec_name=h264"), 1U);
    EXPECT_GE(count("codec_name=klv"), 1U);
    EXPECT_GE(count("width=320"), 1U);
}

TEST_F(Player, DecodesTheImagesAndCopiesTheMetadata) {
    const doubles::TemporaryDirectory directory;
    const std::string input = "timeout 30 ffmpeg -y -v error -analyzeduration 1000000 -i " + address;

    const int decoded = std::system((input + " -frames:v 20 -f null - >/dev/null 2>&1").c_str());
    const int copied = std::system((input + " -map 0:d -c copy -t 1 -f data " + directory.path("klv")).c_str());

    EXPECT_EQ(decoded, 0);
    EXPECT_EQ(copied, 0);
    const std::string klv = directory.read("klv");
    const std::string key("\x06\x0E\x2B\x34\x01\x01\x01\x01\x0FKORU\x01\x00\x01", 16);
    unsigned records = 0;
    for (std::size_t at = klv.find(key); at != std::string::npos; at = klv.find(key, at + 1)) {
        ++records;
    }
    EXPECT_GT(records, 10U);
}

}  // namespace
}  // namespace oru::test
