#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>

#include "backends/rlx/CameraRig.hpp"
#include "backends/rlx/records/crc32c.hpp"

namespace oru::rlx_test {

namespace {

double cpuSeconds() {
    timespec time = {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

constexpr int kFramesOfARound = 30;

/// Processor milliseconds a frame of plain write() with the checksum over the same bytes.
double plainWrite(const std::string& path, const std::vector<unsigned char>& image) {
    const int file = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    const double begin = cpuSeconds();
    uint32_t crc = 0;
    for (int i = 0; i < kFramesOfARound; ++i) {
        crc ^= rlx::crc32c(image.data(), image.size());
        EXPECT_EQ(::write(file, image.data(), image.size()), static_cast<ssize_t>(image.size()));
    }
    const double seconds = cpuSeconds() - begin;
    ::close(file);
    EXPECT_EQ(crc, 0U) << "an even number of equal pictures";
    return seconds * 1000.0 / kFramesOfARound;
}

double recorderWrite(const std::string& path, const Scene& scene, const std::vector<unsigned char>& image) {
    CalibrationKeeper calibration;
    const auto recorder = makeRlxVideo(calibration);
    EXPECT_EQ(recorder->create(path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    const double begin = cpuSeconds();
    for (uint64_t i = 0; i < kFramesOfARound; ++i) {
        EXPECT_EQ(writeImage(*recorder, image, scene.time(i)), rlxrw::RLX_WRITTEN);
    }
    const double seconds = cpuSeconds() - begin;
    recorder->close();
    return seconds * 1000.0 / kFramesOfARound;
}

}  // namespace

TEST(Throughput, RawCostsAtMostTwiceAPlainWriteWithChecksum) {
    const TemporaryDirectory folder;
    const Scene scene{.width = 1920, .height = 1200, .fps = 60.0F};
    const std::vector<unsigned char> image = scene.image(1);
    std::vector<double> plain;
    std::vector<double> recorded;
    for (int round = 0; round < 7; ++round) {
        plain.push_back(plainWrite(folder.path("plain"), image));
        recorded.push_back(recorderWrite(folder.path("a.rlx2"), scene, image));
    }
    const double ratio = median(recorded) / median(plain);
    std::cout << "CPU ms a frame: write() and CRC " << median(plain) << ", recorder " << median(recorded) << ", ratio "
              << ratio << '\n';
    EXPECT_LE(ratio, 2.0);
}

TEST(Throughput, LongRecordingOpensAtOnceAndSeeksExactly) {
    constexpr int kFrames = 108'000;
    const TemporaryDirectory folder;
    const Scene scene{.width = 16, .height = 2};
    const std::string path = folder.path("a.rlx2");
    CalibrationKeeper calibration;
    const auto file = makeRlxVideo(calibration);
    ASSERT_EQ(file->create(path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    std::vector<unsigned char> image(16 * 2 * 2);
    for (int i = 0; i < kFrames; ++i) {
        std::copy_n(reinterpret_cast<const unsigned char*>(&i), sizeof i, image.begin());
        ASSERT_EQ(writeImage(*file, image, scene.time(static_cast<uint64_t>(i))), rlxrw::RLX_WRITTEN);
    }
    file->close();

    std::vector<double> openings;
    for (int round = 0; round < 5; ++round) {
        const double begin = wallSeconds();
        ASSERT_EQ(file->open(path.c_str()), rlxrw::RLX_OPENED);
        openings.push_back(wallSeconds() - begin);
    }

    std::vector<double> seeks;
    Timestamp time = 0;
    for (int round = 0; round < 200; ++round) {
        const int wanted = round * 7919 % kFrames;
        const double begin = wallSeconds();
        file->setPosition(wanted);
        ASSERT_EQ(file->readFrame(image.data(), image.size(), time), NEW_FRAME);
        seeks.push_back(wallSeconds() - begin);
        int found = 0;
        std::copy_n(image.begin(), sizeof found, reinterpret_cast<unsigned char*>(&found));
        ASSERT_EQ(found, wanted);
        ASSERT_EQ(time, scene.time(static_cast<uint64_t>(wanted)));
    }
    std::cout << kFrames << " frames: open " << median(openings) * 1000.0 << " ms, seek and read "
              << median(seeks) * 1000.0 << " ms\n";
    EXPECT_LE(*std::min_element(openings.begin(), openings.end()), 0.3);
}

TEST(Throughput, CameraRecordsAtItsRate) {
    const struct {
        RLX_COMPRESSION_MODE mode;
        float fps;
    } cases[] = {{RLX_RAW, 60.0F}, {RLX_H264, 30.0F}, {RLX_LOSSLESS, 30.0F}};
    for (const auto& sample : cases) {
        const TemporaryDirectory folder;
        const Scene scene{.width = 1920, .height = 1200, .fps = sample.fps, .mode = sample.mode};
        const std::unique_ptr<Clock> clock = makeSystemClock();
        CameraRig camera(scene, *clock);
        const std::vector<unsigned char> images[] = {scene.image(0), scene.image(1), scene.image(2)};
        ASSERT_EQ(camera.startRecording(folder.path("a.rlx2")), SUCCESS);
        const double begin = wallSeconds();
        const double cpu = cpuSeconds();
        double longest = 0.0;
        for (uint64_t number = 0; number < 300; ++number) {
            const double due = begin + static_cast<double>(number) / static_cast<double>(sample.fps);
            while (wallSeconds() < due) {
                ::usleep(500);
            }
            const double before = wallSeconds();
            const std::vector<unsigned char>& image = images[number % 3];
            camera.current_timestamp = scene.time(number);
            std::copy(image.begin(), image.end(), camera.frame_buffer);
            camera.finishGrab({});
            longest = std::max(longest, wallSeconds() - before);
        }
        const double wall = wallSeconds() - begin;
        const double used = cpuSeconds() - cpu;
        camera.module->disableRecording(camera.context());
        std::cout << "mode " << sample.mode << " at " << sample.fps << " Hz: " << camera.status.frames_written
                  << " written, " << camera.status.frames_dropped << " dropped in " << wall << " s, "
                  << used / 300.0 * 1000.0 << " CPU ms a frame, longest hand-over " << longest * 1000.0 << " ms\n";
        EXPECT_EQ(camera.status.frames_written + camera.status.frames_dropped, 300U);
        EXPECT_EQ(camera.status.last_result, SUCCESS);
    }
}

}  // namespace oru::rlx_test
