#include <gtest/gtest.h>

#include <optional>

#include "backends/rlx/CameraRig.hpp"
#include "doubles/recorded_doubles.hpp"

namespace oru::rlx_test {

namespace {

constexpr uint64_t kSecond = 1'000'000'000;

/// Writes one RAW frame for each time.
void recordTimes(const std::string& path, const Scene& scene, const std::vector<Timestamp>& times) {
    CalibrationKeeper calibration;
    const auto recorder = makeRlxVideo(calibration);
    ASSERT_EQ(recorder->create(path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    for (std::size_t i = 0; i < times.size(); ++i) {
        const std::vector<unsigned char> image = scene.image(i);
        const std::vector<IMUPacket> packets = scene.packets(i);
        rlxrw::RlxFrame frame;
        frame.pixels = image.data();
        frame.size = image.size();
        frame.time = times[i];
        frame.packets = packets.data();
        frame.packet_count = packets.size();
        ASSERT_EQ(recorder->writeFrame(frame), rlxrw::RLX_WRITTEN);
    }
    recorder->close();
}

/// A reader that needs a while for one frame.
class SlowReader final : public doubles::ScriptedRlx {
public:
    static constexpr uint64_t kOneReadNs = 200'000'000;

    SlowReader(doubles::RlxScript& answers, doubles::CallLog& calls, ScriptedClock& time)
        : ScriptedRlx(answers, calls, "reader"), clock(time) {}

    FrameStatus readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) override {
        if (slowReads > 0) {
            --slowReads;
            clock.now += kOneReadNs;
            return NO_FRAME;
        }
        return ScriptedRlx::readFrame(pixels, size, time);
    }

    int slowReads = 0;

private:
    ScriptedClock& clock;
};

}  // namespace

/// A recording and the camera that plays it, on a clock that moves only when told.
class Playback : public testing::Test {
protected:
    void open() { ASSERT_EQ(camera.openFile(path), 0); }
    void open(const std::vector<Timestamp>& times) {
        recordTimes(path, scene, times);
        open();
    }

    FrameStatus grabSoon() {
        FrameStatus status = NO_FRAME;
        for (int i = 0; i < 50 && status == NO_FRAME; ++i) {
            status = camera.grabFile();
        }
        return status;
    }

    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    const Scene scene{};
    ScriptedClock clock;
    doubles::RlxScript readerScript;  // before the camera, which closes its reader at its end
    doubles::CallLog readerCalls;
    CameraRig camera{scene, clock};
};

TEST_F(Playback, RealTimeKeepsAbsoluteDeadlines) {
    std::vector<Timestamp> times;
    for (uint64_t i = 0; i < 200; ++i) {
        times.push_back(5 * kSecond + i * 33'333'333 + (i % 3) * 1'000'000);
    }
    open(times);
    const uint64_t start = clock.now;

    for (std::size_t i = 0; i < times.size(); ++i) {
        ASSERT_EQ(grabSoon(), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, times[i]);
        EXPECT_EQ(clock.now - start, times[i] - times[0]) << i;
        clock.now += 5'000'000;  // the application's own work
    }
    EXPECT_EQ(camera.reader->counters().late, 0U);
}

TEST_F(Playback, RealTimeSkipsOvertakenFramesAndJoinsTheirPackets) {
    std::vector<Timestamp> times;
    for (uint64_t i = 0; i < 20; ++i) {
        times.push_back(5 * kSecond + i * 100'000'000);
    }
    open(times);
    ASSERT_EQ(grabSoon(), NEW_FRAME);

    clock.now += 350'000'000;
    ASSERT_EQ(grabSoon(), NEW_FRAME);

    EXPECT_EQ(camera.current_timestamp, times[3]);
    EXPECT_EQ(camera.reader->getFrameIMUPackets().size(), 1U + 2U + 3U);
    ASSERT_EQ(grabSoon(), NEW_FRAME);
    EXPECT_EQ(camera.current_timestamp, times[4]);
    clock.now += 100 * kSecond;
    ASSERT_EQ(grabSoon(), NEW_FRAME);
    EXPECT_EQ(camera.current_timestamp, times[19]) << "the last frame is shown however late";
    EXPECT_EQ(grabSoon(), INPUT_ENDED);
    const FrameCounters counters = camera.reader->counters();
    EXPECT_EQ(counters.late, 2U + 14U);
    EXPECT_EQ(counters.delivered, 4U);
    EXPECT_EQ(counters.produced, 20U);
}

TEST_F(Playback, GapsAndStepsBackStartTheScheduleAnew) {
    const std::vector<Timestamp> times{5 * kSecond, 5 * kSecond + 100'000'000, 65 * kSecond, 65 * kSecond + 100'000'000,
                                       2 * kSecond, 2 * kSecond + 100'000'000};
    const uint64_t due[] = {0, 100'000'000, 1'100'000'000, 1'200'000'000, 1'200'000'000, 1'300'000'000};
    open(times);
    const uint64_t start = clock.now;

    for (std::size_t i = 0; i < times.size(); ++i) {
        ASSERT_EQ(grabSoon(), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, times[i]);
        EXPECT_EQ(clock.now - start, due[i]) << i;
    }
}

TEST_F(Playback, SlowFirstOrSoughtFrameBeginsTheSchedule) {
    for (uint64_t i = 0; i < 20; ++i) {
        readerScript.frames.push_back({scene.image(i), 5 * kSecond + i * 100'000'000, {}, std::nullopt, {}});
    }
    auto owned = std::make_unique<SlowReader>(readerScript, readerCalls, clock);
    SlowReader& reader = *owned;
    camera.reader = std::move(owned);
    open();
    for (const int first : {0, 10}) {
        ASSERT_EQ(camera.module->setRLXPosition(camera.context(), first), SUCCESS);
        reader.slowReads = 6;
        const uint64_t before = clock.now;

        ASSERT_EQ(grabSoon(), NEW_FRAME);

        const uint64_t start = clock.now;
        EXPECT_EQ(start - before, 6 * SlowReader::kOneReadNs) << "nothing is waited for but the frame";
        for (uint64_t i = 0; i < 5; ++i) {
            EXPECT_EQ(camera.current_timestamp, readerScript.frames[static_cast<std::size_t>(first) + i].time);
            EXPECT_EQ(clock.now - start, i * 100'000'000) << i;
            ASSERT_EQ(grabSoon(), NEW_FRAME);
        }
    }
    EXPECT_EQ(reader.counters().late, 0U);
}

TEST_F(Playback, TimeOfTheImageIsReadBesideTheGrab) {
    record(path, scene, 50);
    camera.init.rlx_real_time = false;
    open();
    std::jthread other([this](const std::stop_token& stop) {
        Timestamp last = 0;
        while (!stop.stop_requested()) {
            const Timestamp time = std::atomic_ref<Timestamp>(camera.current_timestamp).load(std::memory_order_relaxed);
            EXPECT_GE(time, last);
            last = time;
        }
    });

    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(grabSoon(), NEW_FRAME);
    }
}

TEST_F(Playback, NotRealTimeGivesEveryFrameOnceWithoutWaiting) {
    record(path, scene, 50);
    camera.init.rlx_real_time = false;
    open();
    const uint64_t start = clock.now;

    for (uint64_t number = 0; number < 50; ++number) {
        clock.now += kSecond;
        ASSERT_EQ(grabSoon(), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, scene.time(number));
    }

    EXPECT_EQ(clock.now - start, 50 * kSecond);
    EXPECT_EQ(grabSoon(), INPUT_ENDED);
}

TEST_F(Playback, PositionsAreExactAndReviveAnEndedInput) {
    record(path, scene, 30);
    PlaybackRecorder& module = *camera.module;
    EXPECT_EQ(module.setRLXPosition(camera.context(), 0), INVALID_CALL) << "no file is open";
    EXPECT_EQ(camera.grabFile(), SOURCE_UNAVAILABLE);
    open();
    EXPECT_EQ(module.getRLXNumberOfFrames(camera.context()), 30);
    const struct {
        Timestamp time;
        int frame;
    } cases[] = {{0, 0}, {scene.time(7), 7}, {scene.time(7) + 1, 8}, {scene.time(29), 29}};

    for (const auto& sample : cases) {
        EXPECT_EQ(module.setRLXPositionAt(camera.context(), sample.time), SUCCESS);
        EXPECT_EQ(module.getRLXPosition(camera.context()), sample.frame);
        ASSERT_EQ(grabSoon(), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, scene.time(static_cast<uint64_t>(sample.frame)));
    }
    EXPECT_EQ(grabSoon(), INPUT_ENDED);
    EXPECT_EQ(module.setRLXPositionAt(camera.context(), scene.time(29) + 1), INVALID_PARAMETER);
    EXPECT_EQ(module.setRLXPosition(camera.context(), 30), INVALID_PARAMETER);
    EXPECT_EQ(module.setRLXPosition(camera.context(), -1), INVALID_PARAMETER);
    EXPECT_EQ(module.setRLXPosition(camera.context(), 28), SUCCESS);
    EXPECT_EQ(grabSoon(), NEW_FRAME);
}

TEST_F(Playback, DamagedFrameIsLeftOutAndTheImageStaysUntouched) {
    record(path, scene, 1);
    std::vector<unsigned char> bytes = readBytes(path);
    const std::vector<unsigned char> image = scene.image(0);
    *std::search(bytes.begin(), bytes.end(), image.begin(), image.end()) ^= 1;
    writeBytes(path, bytes);
    open();
    const std::vector<unsigned char> before = camera.pixels();

    EXPECT_EQ(grabSoon(), INPUT_ENDED);

    EXPECT_EQ(camera.pixels(), before);
    EXPECT_EQ(camera.reader->counters().damaged, 1U);
}

TEST_F(Playback, FileIsHandedToASenderWithTimeAndMetadata) {
    record(path, scene, 3);
    doubles::StreamOutputScript script;
    doubles::CallLog calls;
    doubles::ScriptedStreamOutput sender(script, calls, false);
    camera.sender = &sender;
    camera.streaming = true;
    open();

    ASSERT_EQ(grabSoon(), NEW_FRAME);
    script.busy = true;
    ASSERT_EQ(grabSoon(), NEW_FRAME);
    script.busy = false;
    ASSERT_EQ(grabSoon(), NEW_FRAME);

    ASSERT_EQ(script.sent.size(), 2U);
    EXPECT_EQ(script.sent[1].pixels, scene.image(2));
    EXPECT_EQ(script.sent[1].time, scene.time(2));
    const auto metadata = scene.metadata(2);
    EXPECT_TRUE(std::equal(std::begin(metadata.bytes), std::end(metadata.bytes), script.sent[1].metadata.bytes));
    EXPECT_EQ(calls.count("skipped"), 1);
    EXPECT_GE(calls.count("waitForSender"), 3) << "the sender may still read the image";
    camera.streaming = false;
}

}  // namespace oru::rlx_test
