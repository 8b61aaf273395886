#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>

#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/file/finalise.hpp"
#include "backends/rlx/file/playable.hpp"
#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/recording_fixture.hpp"

namespace oru::rlx_test {

namespace {

using rlx::Condition;
using rlx::ImageCheck;

class EveryMode : public testing::TestWithParam<RLX_COMPRESSION_MODE> {
protected:
    static constexpr uint64_t kFrames = 40;

    void SetUp() override {
        recordedScene.mode = GetParam();
        recordedScene.fps = 10.0F;
        recordedScene.calibrated = false;
        record(wholePath, recordedScene, kFrames);
        wholeBytes = readBytes(wholePath);
        const rlx::OpenedFile opened = rlx::openRecording(wholePath, false);
        headSize = opened.head_size;
        ASSERT_EQ(rlx::loadIndex(opened, indexEntries), Condition::INTACT);
    }

    uint64_t wholeFramesIn(uint64_t size) const {
        return static_cast<uint64_t>(
            std::count_if(indexEntries.begin(), indexEntries.end(),
                          [&](const rlx::IndexEntry& entry) { return entry.offset + entry.cluster_size <= size; }));
    }

    uint64_t framesOutside(const std::vector<unsigned char>& damaged) const {
        return static_cast<uint64_t>(
            std::count_if(indexEntries.begin(), indexEntries.end(), [&](const rlx::IndexEntry& entry) {
                const auto from = static_cast<std::ptrdiff_t>(entry.offset);
                return std::equal(damaged.begin() + from, damaged.begin() + from + entry.cluster_size,
                                  wholeBytes.begin() + from);
            }));
    }

    /// Opening only reads: what lacks nothing but its end plays, everything else is left to the repair.
    void expectOpens(const std::vector<unsigned char>& damaged, uint64_t frames, int result, const std::string& what) {
        writeBytes(damagedPath, damaged);
        CalibrationKeeper calibration;
        const auto file = makeRlxVideo(calibration);
        ASSERT_EQ(file->open(damagedPath.c_str()), result) << what;
        ASSERT_EQ(file->frameCount(), static_cast<int>(frames)) << what;
        ASSERT_EQ(readBytes(damagedPath), damaged) << what << ": touched";
    }

    void expectRepairs(const std::vector<unsigned char>& damaged, uint64_t frames, const std::string& what) {
        writeBytes(damagedPath, damaged);
        ASSERT_EQ(rlx::repairRecording(damagedPath, "", ImageCheck::TAIL).result,
                  frames > 0 ? REPAIR_DONE : REPAIR_UNREADABLE)
            << what;
        if (frames == 0) {
            ASSERT_EQ(readBytes(damagedPath), damaged) << what << ": touched";
            return;
        }
        const RecordingCheck report = rlx::verifyRecording(damagedPath);
        ASSERT_EQ(report.condition, Condition::INTACT) << what;
        ASSERT_EQ(report.frames, frames) << what;
    }

    Scene recordedScene;
    TemporaryDirectory testFolder;
    std::string wholePath = testFolder.path("whole.rlx2");
    std::string damagedPath = testFolder.path("damaged.rlx2");
    std::vector<unsigned char> wholeBytes;
    uint64_t headSize = 0;
    std::vector<rlx::IndexEntry> indexEntries;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Rlx, EveryMode, testing::ValuesIn(kModes), modeName);

TEST_P(EveryMode, CutAnywhereKeepsEveryWholeFrame) {
    std::set<uint64_t> cuts;
    for (uint64_t i = 1; i <= headSize; i += recordedScene.mode == RLX_RAW ? 1 : 37) {
        cuts.insert(i);
    }
    const rlx::IndexEntry& last = indexEntries.back();
    for (const rlx::IndexEntry& entry : {indexEntries[kFrames - 2], last}) {
        for (uint64_t i = 0; i <= rlx::kPrefixSize; ++i) {
            cuts.insert(entry.offset + i);
        }
        for (uint64_t i = 0; i < 400; ++i) {
            cuts.insert(entry.offset + entry.cluster_size - i);
        }
    }
    std::minstd_rand random(4711);
    for (int i = 0; i < 500; ++i) {
        cuts.insert(1 + random() % (wholeBytes.size() - 1));
    }
    int round = 0;
    for (const uint64_t cut : cuts) {
        const std::vector<unsigned char> damaged(wholeBytes.begin(),
                                                 wholeBytes.begin() + static_cast<std::ptrdiff_t>(cut));
        const std::string what = "cut at " + std::to_string(cut);
        const uint64_t frames = wholeFramesIn(cut);
        const int opening = frames > 0 ? rlxrw::RLX_OPENED : rlxrw::RLX_DAMAGED;
        if (round++ % 8 == 0) {
            ASSERT_NO_FATAL_FAILURE(expectOpens(damaged, frames, opening, what));
        }
        ASSERT_NO_FATAL_FAILURE(expectRepairs(damaged, frames, what));
    }
}

TEST_P(EveryMode, CutFileIsPlayableByOthersAfterRepair) {
    if (std::system("command -v mkvinfo ffprobe >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "ffprobe or mkvinfo is not installed";
    }
    for (const uint64_t cut : {indexEntries[7].offset + 60, indexEntries.back().offset - 1, wholeBytes.size() - 5}) {
        writeBytes(damagedPath, {wholeBytes.begin(), wholeBytes.begin() + static_cast<std::ptrdiff_t>(cut)});
        ASSERT_EQ(rlx::repairRecording(damagedPath, "", ImageCheck::TAIL).result, 0);
        EXPECT_EQ(std::system(("mkvinfo " + damagedPath + " >/dev/null").c_str()), 0) << cut;
        EXPECT_EQ(std::system(("ffmpeg -v error -xerror -i " + damagedPath + " -f null -").c_str()), 0) << cut;
        const Played played = play(damagedPath, recordedScene);
        EXPECT_EQ(played.times.size(), wholeFramesIn(cut));
        EXPECT_EQ(played.wrong_images + played.wrong_facts, 0U);
    }
}

TEST_P(EveryMode, FlippedBitsAreNoticedAndNeverDelivered) {
    std::minstd_rand random(static_cast<unsigned>(815 + recordedScene.mode));
    for (int round = 0; round < 400; ++round) {
        std::vector<unsigned char> damaged = wholeBytes;
        const std::size_t place = random() % damaged.size();
        const std::size_t zeroed = std::min(round % 4 == 0 ? 1 + random() % 4096 : 0, damaged.size() - place);
        damaged[place] ^= static_cast<unsigned char>(1U << random() % 8);
        std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(place), zeroed, 0);
        writeBytes(damagedPath, damaged);

        Played played = play(damagedPath, recordedScene);

        const std::string what = "round " + std::to_string(round) + " at " + std::to_string(place);
        ASSERT_EQ(played.wrong_images + played.wrong_facts, 0U) << what;
        if (damaged != wholeBytes) {
            const bool noticed = rlx::openToPlay(damagedPath).condition != Condition::INTACT;
            ASSERT_TRUE(noticed || played.counters.lost() > 0) << what << ": not noticed";
        }
        if (round % 8 == 0 && damaged != wholeBytes) {
            const RecordingRepair report = rlx::repairRecording(damagedPath, "", ImageCheck::ALL);
            if (report.result == REPAIR_DONE) {
                ASSERT_EQ(rlx::verifyRecording(damagedPath).condition, Condition::INTACT) << what;
                played = play(damagedPath, recordedScene);
                ASSERT_EQ(played.open_result, 0) << what;
                ASSERT_EQ(played.wrong_images + played.wrong_facts, 0U) << what;
                ASSERT_EQ(report.frames_recovered, framesOutside(damaged)) << what;
            }
        }
    }
}

TEST_P(EveryMode, DamageInTheMiddleCostsOnlyTheFramesItTouches) {
    std::vector<unsigned char> damaged(wholeBytes.begin(), wholeBytes.end() - 100);
    const auto at = [&](const rlx::IndexEntry& entry) {
        return damaged.begin() + static_cast<std::ptrdiff_t>(entry.offset);
    };
    std::fill(at(indexEntries[5]), at(indexEntries[5]) + 20, 0xAB);
    std::fill(at(indexEntries[20]) + 30, at(indexEntries[22]) + 10, 0);

    ASSERT_NO_FATAL_FAILURE(expectOpens(damaged, 0, rlxrw::RLX_DAMAGED, "two holes"));
    ASSERT_NO_FATAL_FAILURE(expectRepairs(damaged, kFrames - 4, "two holes"));

    const RecordingRepair report = rlx::repairRecording(damagedPath, testFolder.path("copy.rlx2"), ImageCheck::ALL);
    EXPECT_EQ(report.result, REPAIR_DONE);
    EXPECT_EQ(report.frames_lost, 4U);
    const Played played = play(testFolder.path("copy.rlx2"), recordedScene);
    EXPECT_EQ(played.wrong_images + played.wrong_facts, 0U);
    EXPECT_EQ(played.counters.produced, kFrames - 4);
    EXPECT_EQ(play(damagedPath, recordedScene).times, played.times);
}

TEST_P(EveryMode, OneWholeCopyOfTheHeaderIsEnough) {
    std::vector<unsigned char> damaged = wholeBytes;
    const std::string magic = "RLXH";
    const auto first = std::search(damaged.begin(), damaged.end(), magic.begin(), magic.end());
    std::fill(first + 40, first + 140, 0);

    ASSERT_NO_FATAL_FAILURE(expectOpens(damaged, 0, rlxrw::RLX_DAMAGED, "first copy"));
    ASSERT_NO_FATAL_FAILURE(expectRepairs(damaged, kFrames, "first copy"));

    EXPECT_EQ(readBytes(damagedPath), wholeBytes);
}

TEST(Repair, SaysWhatIsWrongAndTouchesNothingItCannotHelp) {
    const TemporaryDirectory folder;
    const Scene scene;
    const std::string whole = folder.path("whole.rlx2");
    record(whole, scene, 2);
    const std::vector<unsigned char> bytes = readBytes(whole);
    const auto headEnd = bytes.begin() + static_cast<std::ptrdiff_t>(rlx::openRecording(whole, false).head_size);
    writeBytes(folder.path("empty"), {});
    writeBytes(folder.path("text"), std::vector<unsigned char>(5000, 'x'));
    writeBytes(folder.path("head"), {bytes.begin(), headEnd + 100});
    writeBytes(folder.path("cut"), {bytes.begin(), bytes.end() - 1});
    record(folder.path("none"), scene, 0);
    std::filesystem::create_directory(folder.path("directory"));
    using namespace rlxrw;
    const struct {
        const char* name;
        Condition condition;
        int code;
    } cases[] = {
        {"whole.rlx2", Condition::INTACT, REPAIR_DONE},          {"missing", Condition::MISSING, REPAIR_UNREADABLE},
        {"directory", Condition::NOT_A_FILE, REPAIR_UNREADABLE}, {"empty", Condition::EMPTY, REPAIR_UNREADABLE},
        {"text", Condition::NOT_OURS, REPAIR_UNREADABLE},        {"head", Condition::NO_WHOLE_FRAME, REPAIR_UNREADABLE},
        {"none", Condition::NO_WHOLE_FRAME, REPAIR_UNREADABLE},  {"cut", Condition::CUT_OFF, REPAIR_DONE},
    };
    for (const auto& sample : cases) {
        const std::string path = folder.path(sample.name);
        const std::vector<unsigned char> before = readBytes(path);

        const RecordingRepair report = rlx::repairRecording(path, "", ImageCheck::TAIL);

        EXPECT_EQ(report.condition, sample.condition) << sample.name << ": " << describe(report.condition);
        EXPECT_EQ(report.result, sample.code) << sample.name;
        EXPECT_EQ(readBytes(path) == before, sample.condition != Condition::CUT_OFF) << sample.name;
    }
    EXPECT_EQ(rlx::repairRecording(whole, folder.path("text"), ImageCheck::TAIL).result, REPAIR_NOT_WRITABLE)
        << "an existing output";
}

TEST(Repair, KeepsEveryFrameWhenTheHeadOfTheHeaderHasAnotherLength) {
    const TemporaryDirectory folder;
    const Scene scene;
    const std::string path = folder.path("a.rlx2");
    record(path, scene, 3);
    const std::vector<unsigned char> whole = readBytes(path);
    rlx::OpenedFile opened = rlx::openRecording(path, false);
    opened.file.close();
    Bytes right;
    rlx::encodeHeader(opened.header, right);
    const int digits = opened.header.facts.serial_number;
    const struct {
        int serial;
        int inPlace;
    } cases[] = {{digits * 10, 2}, {digits / 10, 2}, {1, 0}};  // no room; too little for a Void element; enough
    for (const auto& sample : cases) {
        rlx::HeaderRecord other = opened.header;
        other.facts.serial_number = sample.serial;
        if (sample.serial == 1) {
            other.facts.camera_fw = 1;
            other.facts.sensors_fw = 1;
        }
        Bytes forged;
        rlx::encodeHeader(other, forged);
        ASSERT_NE(rlx::buildHead(other, std::nullopt).size(), opened.head_size);
        std::vector<unsigned char> bytes = whole;
        for (auto at = bytes.begin();; at += right.size()) {
            at = std::search(at, bytes.end(), right.begin(), right.end());
            if (at == bytes.end()) {
                break;
            }
            std::copy(forged.begin(), forged.end(), at);
        }
        writeBytes(path, bytes);

        const std::string output = folder.path(std::to_string(sample.serial));
        const RecordingRepair report = rlx::repairRecording(path, output, ImageCheck::ALL);
        EXPECT_EQ(report.result, REPAIR_DONE);
        EXPECT_EQ(report.frames_recovered, 3U);
        EXPECT_EQ(rlx::verifyRecording(output).condition, Condition::INTACT);
        EXPECT_EQ(rlx::repairRecording(path, "", ImageCheck::ALL).result, sample.inPlace);
        EXPECT_EQ(readBytes(path) == bytes, sample.inPlace != 0);
        EXPECT_EQ(rlx::verifyRecording(path).frames, 3U);
    }
}

TEST(Repair, InterruptedAtAnyStepLeavesARepairableFile) {
    const TemporaryDirectory folder;
    const Scene scene;
    const std::string path = folder.path("a.rlx2");
    record(path, scene, 6);
    const std::vector<unsigned char> whole = readBytes(path);
    rlx::OpenedFile opened = rlx::openRecording(path, false);
    std::vector<rlx::IndexEntry> entries;
    ASSERT_EQ(rlx::loadIndex(opened, entries), Condition::INTACT);
    const auto clustersEnd = static_cast<std::ptrdiff_t>(entries.back().offset + entries.back().cluster_size);
    const Bytes unfinishedHead = rlx::buildHead(opened.header, std::nullopt);
    opened.file.close();
    // The states between the steps of finishing: no trailer, part of it, all of it; old head, new head without its
    // size.
    for (const std::ptrdiff_t trailer : {std::ptrdiff_t{0}, std::ptrdiff_t{50}, std::ssize(whole) - clustersEnd}) {
        for (const bool newHead : {false, true}) {
            std::vector<unsigned char> state(whole.begin(), whole.begin() + clustersEnd + trailer);
            const auto replaced = newHead ? rlx::segmentBodyOffset() : unfinishedHead.size();
            std::copy_n(unfinishedHead.begin(), replaced, state.begin());
            writeBytes(path, state);

            const RecordingRepair report = rlx::repairRecording(path, "", ImageCheck::TAIL);

            EXPECT_EQ(report.condition, Condition::UNFINISHED);
            EXPECT_EQ(report.result, REPAIR_DONE);
            EXPECT_EQ(report.frames_recovered, 6U);
            EXPECT_EQ(readBytes(path), whole);
        }
    }
}

}  // namespace oru::rlx_test
