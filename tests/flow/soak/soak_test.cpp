// The whole camera for a long time: nothing grows, nothing is lost without a cause, nothing comes twice.
// ORU_SOAK_SECONDS says how long each test runs; ten minutes without it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"

namespace oru {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// Instrumented programs keep freed memory on purpose.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsMeaningful = false;
#else
constexpr bool kMemoryIsMeaningful = true;
#endif
constexpr std::size_t kAllowedGrowth = std::size_t{24} << 20;

seconds soakTime() {
    const char* text = std::getenv("ORU_SOAK_SECONDS");
    const int64_t value = text == nullptr ? 600 : std::strtoll(text, nullptr, 10);
    return seconds(value > 0 ? value : 600);
}

std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

class Soak : public ::testing::Test {
protected:
    Soak() {
        parameters.settings_path = directory.prefix();
        parameters.requested_resolution = HD600;
        parameters.requested_fps = 60;
    }

    doubles::TemporaryDirectory directory;
    InitParametersOne parameters;
};

/// Asks for sensor data as fast as a control loop would, until it is stopped.
class SensorReader {
public:
    explicit SensorReader(CameraOne& camera) : thread([this, &camera] { run(camera); }) {}
    ~SensorReader() {
        stopped.store(true, std::memory_order_release);
        thread.join();
    }

    std::atomic<uint64_t> samples{0};
    std::atomic<uint64_t> backwards{0};

private:
    void run(CameraOne& camera) {
        uint64_t previous = 0;
        while (!stopped.load(std::memory_order_acquire)) {
            SensorsData data;
            const bool current = samples.load(std::memory_order_relaxed) % 2 == 0;
            if (camera.getSensorsData(data, current ? CURRENT : IMAGE) == SUCCESS) {
                samples.fetch_add(1, std::memory_order_relaxed);
                if (current && data.imu.timestamp < previous) {
                    backwards.fetch_add(1, std::memory_order_relaxed);
                }
                previous = current ? data.imu.timestamp : previous;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::atomic<bool> stopped{false};
    std::thread thread;
};

TEST_F(Soak, LiveCameraBesideASensorThreadStaysExactAndFlat) {
    CameraOne camera;
    ASSERT_EQ(camera.open(parameters), SUCCESS);
    ASSERT_EQ(camera.grab(), SUCCESS);

    const auto end = steady_clock::now() + soakTime();
    const auto warm = steady_clock::now() + soakTime() / 4;
    std::size_t residentWhenWarm = 0;
    uint64_t frames = 1;
    Timestamp image = camera.getTimestamp(IMAGE);
    Timestamp lastSample = 0;
    Mat view;
    std::vector<SensorsData> batch;
    {
        SensorReader reader(camera);
        while (steady_clock::now() < end) {
            ASSERT_EQ(camera.grab(), SUCCESS);
            ASSERT_GT(camera.getTimestamp(IMAGE), image) << "a frame came twice or went back";
            image = camera.getTimestamp(IMAGE);
            ++frames;
            ASSERT_EQ(camera.retrieveImage(view, RECTIFIED_GRAY), SUCCESS);
            ASSERT_EQ(view.timestamp, image);
            if (residentWhenWarm == 0 && steady_clock::now() > warm) {
                residentWhenWarm = residentBytes();
            }
        }
        EXPECT_GT(reader.samples.load(), 0U);
        EXPECT_EQ(reader.backwards.load(), 0U);
    }
    ASSERT_EQ(camera.grab(), SUCCESS);
    ASSERT_EQ(camera.getSensorsDataBatch(batch), SUCCESS);
    for (const SensorsData& sample : batch) {
        EXPECT_GT(sample.imu.timestamp, lastSample);
        lastSample = sample.imu.timestamp;
    }
    const FrameCounters counters = camera.getFrameCounters();
    EXPECT_EQ(counters.delivered, frames + 1);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
    // On a busy machine the application is late, or the image is; neither may be called anything else.
    EXPECT_EQ(counters.lost(), counters.overwritten + counters.sensor_gap);
    if (kMemoryIsMeaningful) {
        EXPECT_LT(residentBytes(), residentWhenWarm + kAllowedGrowth);
    }
    RecordProperty("frames", static_cast<int>(frames));
}

TEST_F(Soak, OpeningAgainAndAgainLeavesNothingBehind) {
    CameraOne camera;
    const auto openOnce = [&] {
        ASSERT_EQ(camera.open(parameters), SUCCESS);
        ASSERT_EQ(camera.grab(), SUCCESS);
        ASSERT_EQ(camera.close(), SUCCESS);
    };
    for (int i = 0; i < 5; ++i) {
        ASSERT_NO_FATAL_FAILURE(openOnce());
    }
    const std::size_t descriptors = openDescriptors();
    const std::size_t resident = residentBytes();

    const auto end = steady_clock::now() + soakTime() / 4;
    while (steady_clock::now() < end) {
        ASSERT_NO_FATAL_FAILURE(openOnce());
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    if (kMemoryIsMeaningful) {
        EXPECT_LT(residentBytes(), resident + kAllowedGrowth);
    }
}

}  // namespace
}  // namespace oru
