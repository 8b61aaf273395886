#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

#include "backends/rlx/CameraRig.hpp"
#include "backends/rlx/file/repair.hpp"
#include "doubles/ChildProcess.hpp"
#include "doubles/LogCapture.hpp"

namespace oru::rlx_test {

namespace {

using namespace std::chrono_literals;
using rlx::Condition;
using rlx::ImageCheck;

/// As an ordinary user, who may only read what is root's.
class AsOrdinaryUser {
public:
    AsOrdinaryUser() : user(::geteuid()) { changed = user != 0 || ::seteuid(kNobody) == 0; }
    ~AsOrdinaryUser() { (void)!::seteuid(user); }
    AsOrdinaryUser(const AsOrdinaryUser&) = delete;
    AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;
    bool changed = false;

private:
    static constexpr uid_t kNobody = 65534;
    uid_t user;
};

/// The bytes of a recording, and the same with a place inside made unreadable.
struct Sample {
    Scene scene;
    TemporaryDirectory folder;
    std::string path = folder.path("a.rlx2");
    std::vector<unsigned char> whole;
    std::vector<unsigned char> damagedInside;

    explicit Sample(uint64_t frames) {
        record(folder.path("source"), scene, frames);
        whole = readBytes(folder.path("source"));
        damagedInside.assign(whole.begin(), whole.end() - 10);
        const auto middle = damagedInside.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2);
        std::fill(middle, middle + std::min<std::ptrdiff_t>(7000, damagedInside.end() - middle), 0xAB);
    }
};

class GrowingCopy : public testing::TestWithParam<bool> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Rlx, GrowingCopy, testing::Bool(),
                         [](const auto& sized) { return sized.param ? "OfFullSizeFromTheStart" : "ThatGetsLonger"; });

// A copy in pieces, read from its first bytes on: every frame comes once, and the copy is what the source is.
TEST_P(GrowingCopy, IsPlayedToItsEndAndLeftAlone) {
    const Sample bytes(60);
    std::ofstream copy(bytes.path, std::ios::binary);
    const auto append = [&](std::size_t from, std::size_t to) {
        copy.write(reinterpret_cast<const char*>(bytes.whole.data()) + from, static_cast<std::streamsize>(to - from));
        copy.flush();
    };
    const std::size_t begun = bytes.whole.size() / 3;
    append(0, begun);
    if (GetParam()) {
        ASSERT_EQ(::truncate(bytes.path.c_str(), static_cast<off_t>(bytes.whole.size())), 0);
    }
    const std::unique_ptr<Clock> clock = makeSystemClock();
    CameraRig camera(bytes.scene, *clock);
    camera.init.rlx_real_time = false;
    camera.reader->follow(true);
    ASSERT_EQ(camera.openFile(bytes.path), rlxrw::RLX_OPENED);
    const int known = camera.reader->frameCount();
    std::thread copier([&] {
        for (std::size_t at = begun; at < bytes.whole.size(); at += 9'000) {
            append(at, std::min(at + 9'000, bytes.whole.size()));
            std::this_thread::sleep_for(2ms);
        }
    });

    std::vector<Timestamp> times;
    FrameStatus status = NO_FRAME;
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (status != INPUT_ENDED && std::chrono::steady_clock::now() < deadline) {
        status = camera.grabFile();
        if (status == NEW_FRAME) {
            times.push_back(camera.current_timestamp);
            EXPECT_EQ(camera.pixels(), bytes.scene.image(times.size() - 1));
        }
    }
    copier.join();

    EXPECT_LT(known, 60);
    EXPECT_EQ(status, INPUT_ENDED);
    EXPECT_EQ(times.size(), 60U);
    EXPECT_EQ(camera.reader->counters().lost(), 0U);
    EXPECT_EQ(readBytes(bytes.path), bytes.whole);
}

TEST(Following, BeginsBeforeTheFirstFrameAndEndsWithTheRecording) {
    const Scene scene;
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    CalibrationKeeper calibration;
    const auto recorder = makeRlxVideo(calibration);
    ASSERT_EQ(recorder->create(path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    ScriptedClock clock;
    CameraRig camera(scene, clock);
    EXPECT_EQ(camera.openFile(path), rlxrw::RLX_DAMAGED) << "no frame yet";
    camera.reader->follow(true);
    ASSERT_EQ(camera.openFile(path), rlxrw::RLX_OPENED);

    EXPECT_EQ(camera.grabFile(), NO_FRAME);
    for (uint64_t number = 0; number < 5; ++number) {
        ASSERT_EQ(writeSceneFrame(*recorder, scene, number), rlxrw::RLX_WRITTEN);
        ASSERT_EQ(camera.grabFile(), NEW_FRAME) << number;
        EXPECT_EQ(camera.current_timestamp, scene.time(number));
        EXPECT_EQ(camera.reader->frameTime(static_cast<int>(number)), scene.time(number));
    }
    recorder->close();
    FrameStatus end = camera.grabFile();
    for (int i = 0; i < 10 && end == NO_FRAME; ++i) {
        end = camera.grabFile();
    }

    EXPECT_EQ(end, INPUT_ENDED);
    EXPECT_EQ(rlx::verifyRecording(path).frames, 5U);
}

TEST(Following, OfWhatNobodyWritesAnyMoreEndsInBoundedTime) {
    Sample bytes(4);
    bytes.whole.resize(bytes.whole.size() - 3000);
    writeBytes(bytes.path, bytes.whole);
    CalibrationKeeper calibration;
    const auto reader = makeRlxVideo(calibration);
    reader->follow(true);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(reader->open(bytes.path.c_str()), rlxrw::RLX_OPENED);

    while (reader->mayGrow() && std::chrono::steady_clock::now() - start < 60s) {
        std::this_thread::sleep_for(50ms);
    }

    EXPECT_FALSE(reader->mayGrow());
    EXPECT_GT(std::chrono::steady_clock::now() - start, 4s) << "a copier may take its time";
}

TEST(AutomaticRepair, KeepsTheOriginalBesideAndSaysWhatItChanged) {
    const Sample bytes(12);
    writeBytes(bytes.path, bytes.damagedInside);
    CalibrationKeeper calibration;
    const auto reader = makeRlxVideo(calibration);
    doubles::LogCapture log;

    ASSERT_EQ(reader->open(bytes.path.c_str()), rlxrw::RLX_DAMAGED);
    EXPECT_EQ(readBytes(bytes.path), bytes.damagedInside);
    ASSERT_EQ(reader->repairFile(bytes.path.c_str(), "", true, false), REPAIR_DONE);

    EXPECT_EQ(readBytes(bytes.path + ".original"), bytes.damagedInside);
    const auto told = log.messages();
    EXPECT_TRUE(std::ranges::any_of(told, [&](const auto& message) {
        return message.first == LogLevel::Warning && message.second.find(bytes.path + ".original") != std::string::npos;
    }));
    EXPECT_EQ(rlx::verifyRecording(bytes.path).condition, Condition::INTACT);
}

TEST(AutomaticRepair, OfTheIndexAloneNeedsNoCopy) {
    Sample bytes(12);
    bytes.whole[bytes.whole.size() - 100] ^= 1U;
    writeBytes(bytes.path, bytes.whole);
    CalibrationKeeper calibration;
    const auto reader = makeRlxVideo(calibration);
    ASSERT_EQ(reader->open(bytes.path.c_str()), rlxrw::RLX_DAMAGED);

    ASSERT_EQ(reader->repairFile(bytes.path.c_str(), "", true, false), REPAIR_DONE);

    EXPECT_FALSE(std::filesystem::exists(bytes.path + ".original"));
    EXPECT_EQ(rlx::verifyRecording(bytes.path).frames, 12U);
}

TEST(AutomaticRepair, LeavesWhatSomebodyWritesAlone) {
    const Sample bytes(12);
    writeBytes(bytes.path, bytes.damagedInside);
    if (std::ofstream probe(bytes.path, std::ios::app); !rlx::File::isBeingWritten(bytes.path)) {
        GTEST_SKIP() << "this file system does not tell who writes a file";
    }
    EXPECT_FALSE(rlx::File::isBeingWritten(bytes.path));
    CalibrationKeeper calibration;
    const auto reader = makeRlxVideo(calibration);
    std::ofstream copier(bytes.path, std::ios::app);

    EXPECT_EQ(reader->open(bytes.path.c_str()), rlxrw::RLX_DAMAGED);
    EXPECT_NE(reader->repairFile(bytes.path.c_str(), "", true, false), REPAIR_DONE);

    EXPECT_EQ(readBytes(bytes.path), bytes.damagedInside);
    EXPECT_EQ(bytes.folder.list().size(), 2U);
}

TEST(Repair, OfWhatMayOnlyBeReadGoesToAnOutputAndIsNotWritableInPlace) {
    const Sample bytes(12);
    const TemporaryDirectory own;
    writeBytes(bytes.path, bytes.damagedInside);
    ASSERT_EQ(::chmod(bytes.folder.prefix().c_str(), 0555), 0);
    ASSERT_EQ(::chmod(bytes.path.c_str(), 0444), 0);
    ASSERT_EQ(::chmod(own.prefix().c_str(), 0777), 0);
    const AsOrdinaryUser user;
    ASSERT_TRUE(user.changed);

    const RecordingRepair inPlace = rlx::repairRecording(bytes.path, "", ImageCheck::ALL);
    const RecordingRepair copied = rlx::repairRecording(bytes.path, own.path("b.rlx2"), ImageCheck::ALL);

    EXPECT_EQ(inPlace.result, REPAIR_NOT_WRITABLE);
    EXPECT_EQ(inPlace.condition, Condition::CUT_OFF);
    EXPECT_EQ(readBytes(bytes.path), bytes.damagedInside);
    EXPECT_EQ(copied.result, REPAIR_DONE);
    EXPECT_EQ(rlx::verifyRecording(own.path("b.rlx2")).frames, copied.frames_recovered);
    EXPECT_EQ(play(own.path("b.rlx2"), bytes.scene).times.size(), copied.frames_recovered);
}

TEST(Reader, LetsGoOfItsFileWhenClosedAndWhenAnotherOneCannotBeOpened) {
    OneFile own;
    const Scene scene;
    record(own.path, scene, 10);
    for (const bool fails : {false, true}) {
        ASSERT_EQ(own.file->open(own.path.c_str()), rlxrw::RLX_OPENED);
        EXPECT_EQ(rlx::repairRecording(own.path, "", ImageCheck::ALL).condition, Condition::BEING_RECORDED) << "locked";
        if (fails) {
            EXPECT_EQ(own.file->open(own.folder.path("missing").c_str()), rlxrw::RLX_DAMAGED);
        } else {
            own.file->close();
        }
        EXPECT_EQ(own.file->frameCount(), 0);
        EXPECT_EQ(own.file->v2(), nullptr);
        EXPECT_EQ(rlx::repairRecording(own.path, "", ImageCheck::ALL).condition, Condition::INTACT);
    }
}

TEST(Starting, AtTheSameTimeMakesOneRecordingOfOneName) {
    const TemporaryDirectory folder;
    const Scene scene;
    for (int round = 0; round < 40; ++round) {
        const std::string path = folder.path(std::to_string(round) + ".rlx2");
        CalibrationKeeper calibration;
        std::atomic<int> created{0};
        std::vector<std::unique_ptr<rlxrw::RLXVideo>> recorders;
        std::vector<std::thread> starts;
        for (int i = 0; i < 4; ++i) {
            rlxrw::RLXVideo& recorder = *recorders.emplace_back(makeRlxVideo(calibration));
            starts.emplace_back([&recorder, &created, &path, &scene, replace = i % 2 == 0] {
                const int result = replace ? recorder.create(path.c_str(), scene.header())
                                           : recorder.createNew(path.c_str(), scene.header());
                created += result == rlxrw::RLX_CREATED && writeSceneFrame(recorder, scene, 0) == 0 ? 1 : 0;
            });
        }
        for (std::thread& start : starts) {
            start.join();
        }
        recorders.clear();

        EXPECT_EQ(created, 1);
        EXPECT_EQ(rlx::verifyRecording(path).frames, 1U);
    }
}

// The limit on the size of a file stands for a full disk: first the head has no room, then the first frame.
TEST(Starting, ThatFailsLeavesNoFileBehind) {
    const Sample bytes(1);
    const uint64_t head = rlx::openToRead(bytes.folder.path("source")).head_size;
    for (const uint64_t limit : {head / 2, head + 1000}) {
        const TemporaryDirectory folder;
        doubles::ChildProcess helper({RLX_RECORD_HELPER, "disk", folder.path("a.rlx2"), "0", std::to_string(limit)});
        if (!helper.hasStarted()) {
            GTEST_SKIP() << "cannot start " RLX_RECORD_HELPER;
        }
        const int status = helper.exitStatus();

        EXPECT_EQ(status, limit < head ? 1 : 0) << "the start or the first frame fails";
        EXPECT_TRUE(folder.list().empty()) << limit;
    }
}

TEST(Starting, AndPlayingNeedNoLocks) {
    const TemporaryDirectory folder;
    doubles::ChildProcess helper({RLX_RECORD_HELPER, "unlocked", folder.path("a.rlx2"), "0"});
    const int status = helper.hasStarted() ? helper.exitStatus() : 77;
    if (status == 77) {
        GTEST_SKIP() << "locks cannot be denied here";
    }

    EXPECT_EQ(status, 0);
}

}  // namespace oru::rlx_test
