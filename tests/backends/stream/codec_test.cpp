#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <set>
#include <vector>

#include "backends/stream/Loopback.hpp"
#include "backends/stream/impairment_proxy.hpp"
#include "backends/stream/receiver/StreamLink.hpp"
#include "backends/stream/wire/ts_demuxer.hpp"
#include "doubles/LogCapture.hpp"

namespace oru::test {
namespace {

using Codec = Loopback;

constexpr std::size_t kEnoughForAPace = 30;

/// Whether, in the second half, two thirds of the distances are the usual one or one beside it.
bool mostlyEven(const std::vector<uint64_t>& numbers) {
    std::multiset<uint64_t> steps;
    for (std::size_t i = numbers.size() / 2; i < numbers.size(); ++i) {
        steps.insert(numbers[i] - numbers[i - 1]);
    }
    const uint64_t usual = *std::next(steps.begin(), static_cast<std::ptrdiff_t>(steps.size() / 2));
    const auto even = std::count_if(steps.begin(), steps.end(),
                                    [&](uint64_t step) { return step + 1 >= usual && step <= usual + 1; });
    return static_cast<std::size_t>(even) * 3 >= steps.size() * 2;
}

UDPOutConfig denseConfiguration(uint32_t width, uint32_t height, int fps) {
    UDPOutConfig configuration = streamConfiguration(freePort(), width, height, fps);
    configuration.codec = DENSE_CODEC;
    return configuration;
}

/// The codec that the programme table of a stream names, as a receiver other than ours would see it.
class Eavesdropper final : private stream::TsSink {
public:
    stream::VideoCodec codecOf(Clock& clock, uint16_t port) {
        std::atomic<stream::VideoCodec> seen{stream::VideoCodec::NONE};
        stream::StreamLink link(clock, {[] {},
                                        [&](const uint8_t* data, std::size_t size) {
                                            demuxer.feed(data, size);
                                            seen = demuxer.videoCodec();
                                        }});
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        link.start(stream::SocketAddress(address), "");
        for (int i = 0; i < 500 && seen == stream::VideoCodec::NONE; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        link.stop();
        return seen;
    }

private:
    void onVideo(stream::PesPacket& /*packet*/) override {}
    void onData(stream::PesPacket& /*packet*/) override {}

    stream::TsDemuxer demuxer{*this};
};

TEST_F(Codec, H265DeliversSmallImagesOnceWithTheirTimeAndMetadata) {
    start(denseConfiguration(192, 112, 15));
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);

    uint64_t last = 0;
    uint64_t missing = 0;
    for (int i = 0; i < 30; ++i) {
        ASSERT_TRUE(readNext(*receiver, image)) << "frame " << i;
        const SeenImage seen = readImage(image, 192, 112);
        EXPECT_LT(seen.mean_error, 10.0);
        EXPECT_EQ(receiver->frameTimestamp(), numberedTime(seen.number));
        const rlxrw::rlxSampleMetadata expected = numberedMetadata(seen.number);
        EXPECT_TRUE(std::equal(expected.bytes, expected.bytes + sizeof(expected), receiver->frameMetadata().bytes));
        missing += last == 0 ? 0 : (seen.number - last) / 2 - 1;
        last = seen.number;
    }

    const FrameCounters counters = receiver->counters();
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
    EXPECT_EQ(counters.lost(), counters.sender_busy + counters.overwritten) << "only a slow machine may lose here";
    EXPECT_LE(missing, counters.lost());
    EXPECT_EQ(Eavesdropper().codecOf(*clock, settings.port), stream::VideoCodec::H265);
}

TEST_F(Codec, H265ThatIsTooMuchForTheMachineSkipsFramesEvenlyAndSaysSoOnce) {
    constexpr uint32_t kWide = 1920;
    constexpr uint32_t kHigh = 1200;
    doubles::LogCapture log;
    start(denseConfiguration(kWide, kHigh, 30));
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);

    const uint64_t end = clock->monotonicNanoseconds() + 7'000'000'000;
    std::vector<uint64_t> numbers;
    while (clock->monotonicNanoseconds() < end) {
        if (receiver->readStreamData(image.data(), nullptr)) {
            const SeenImage seen = readImage(image, kWide, kHigh);
            EXPECT_LT(seen.mean_error, 10.0);
            EXPECT_EQ(receiver->frameTimestamp(), numberedTime(seen.number));
            numbers.push_back(seen.number);
        }
    }
    const FrameCounters sent = sender->counters();
    const FrameCounters received = receiver->counters();
    const stream::VideoCodec codec = Eavesdropper().codecOf(*clock, settings.port);
    stopSource();
    sender.reset();
    std::printf("H.265 %u x %u: %llu of %llu frames taken, %zu received\n", kWide, kHigh,
                static_cast<unsigned long long>(sent.delivered), static_cast<unsigned long long>(sent.produced),
                numbers.size());
    EXPECT_EQ(codec, stream::VideoCodec::H265);
    EXPECT_EQ(sent.produced, sent.delivered + sent.lost());
    EXPECT_EQ(received.produced, received.delivered + received.lost());
    EXPECT_EQ(received.decode_failed, 0U);
    EXPECT_GT(numbers.size(), 2U);
    EXPECT_LE(log.texts(LogLevel::Warning).size(), 1U);
    if (numbers.size() >= kEnoughForAPace) {
        EXPECT_EQ(received.network + received.damaged, 0U);
        EXPECT_EQ(log.texts(LogLevel::Warning).size(), sent.sender_busy > 0 ? 1U : 0U);
        EXPECT_EQ(received.sender_busy > 0, sent.sender_busy > 0);
        EXPECT_TRUE(mostlyEven(numbers));
    }
}

/// Sends images that no coder can make small, so that the stream really takes its bitrate.
class NoisySource {
public:
    NoisySource(UDPOutput& target, uint32_t width, uint32_t height) : sender(target) {
        for (auto& image : images) {
            image.resize(std::size_t{width} * height * 2);
            std::generate(image.begin(), image.end(), [&] { return static_cast<unsigned char>(random() & 0xFF); });
        }
        thread = std::jthread([this](const std::stop_token& stop) { run(stop); });
    }
    NoisySource(const NoisySource&) = delete;
    NoisySource& operator=(const NoisySource&) = delete;

private:
    void run(const std::stop_token& stop) {
        for (uint64_t number = 1; !stop.stop_requested(); ++number) {
            std::vector<unsigned char>& image = images[number % images.size()];
            sender.asyncingestYUVFrame(image.data(), numberedTime(number), numberedMetadata(number),
                                       static_cast<int>(image.size()));
            std::this_thread::sleep_for(std::chrono::milliseconds(33));
        }
    }

    UDPOutput& sender;
    std::mt19937 random{7};
    std::array<std::vector<unsigned char>, 8> images;
    std::jthread thread;
};

class AdaptiveBitrate : public Loopback, public testing::WithParamInterface<STREAMING_CODEC> {
protected:
    /// Reads until the bitrate is as wanted, at most so long; the bitrate then.
    template <class Wanted>
    uint32_t readUntil(UDPInput& receiver, int seconds, Wanted&& wanted) {
        const uint64_t end = clock->monotonicNanoseconds() + static_cast<uint64_t>(seconds) * 1'000'000'000;
        while (clock->monotonicNanoseconds() < end && !wanted(sender->status().bitrate)) {
            (void)receiver.readStreamData(image.data(), nullptr);
        }
        return sender->status().bitrate;
    }
    /// Kilobits that leave in a second.
    double measuredRate(UDPInput& receiver) {
        const uint64_t begin = clock->monotonicNanoseconds();
        const uint64_t before = sender->status().bytes_sent;
        while (clock->monotonicNanoseconds() < begin + 2'000'000'000) {
            (void)receiver.readStreamData(image.data(), nullptr);
        }
        const auto seconds = static_cast<double>(clock->monotonicNanoseconds() - begin) / 1e9;
        return static_cast<double>(sender->status().bytes_sent - before) * 8e-3 / seconds;
    }

    static constexpr uint32_t kWidth = 320;
    static constexpr uint32_t kHeight = 240;
    static constexpr uint32_t kHighest = 6000;
    std::vector<unsigned char> image = std::vector<unsigned char>(kWidth * kHeight * 2);
};

TEST_P(AdaptiveBitrate, FallsWithTheNetworkAndRisesAgain) {
    UDPOutConfig configuration = streamConfiguration(freePort(), kWidth, kHeight);
    configuration.codec = GetParam();
    configuration.bitrate = kHighest;
    configuration.adaptive_bitrate = true;
    startSender(configuration);
    ImpairmentProxy proxy(settings.port, {0.0, 5.0}, 3);
    NoisySource source(*sender, kWidth, kHeight);
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", proxy.port(), 0), 0);
    ASSERT_TRUE(readNext(*receiver, image));
    const double open = measuredRate(*receiver);

    proxy.setCapacity(0.4e-3 * open);
    const uint32_t low = readUntil(*receiver, 12, [](uint32_t rate) { return rate <= kHighest / 2; });
    const double narrow = measuredRate(*receiver);
    proxy.setCapacity(0.0);
    const uint32_t lowest = sender->status().bitrate;
    const uint32_t high = readUntil(*receiver, 15, [&](uint32_t rate) { return rate >= lowest + kHighest / 5; });

    std::printf("%.0f kbit/s, %.0f through a line for %.0f; set %u, then %u\n", open, narrow, 0.4 * open, low, high);
    EXPECT_LE(low, kHighest / 2);
    EXPECT_GE(low, kHighest / 5);
    EXPECT_LT(narrow, 0.7 * open) << "the encoder does not follow";
    EXPECT_GE(high, lowest + kHighest / 5);
    EXPECT_TRUE(readNext(*receiver, image));
    const FrameCounters counters = receiver->counters();
    EXPECT_EQ(counters.decode_failed, 0U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
}

INSTANTIATE_TEST_SUITE_P(Codecs, AdaptiveBitrate, testing::Values(PLAIN_CODEC, DENSE_CODEC),
                         [](const auto& instance) { return instance.param == DENSE_CODEC ? "H265" : "H264"; });

}  // namespace
}  // namespace oru::test
