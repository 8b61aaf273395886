#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <set>
#include <thread>
#include <vector>

#include "backends/virtual_bus/BusRig.hpp"

namespace oru::virtual_bus {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

double meanDifference(const std::vector<unsigned char>& a, const unsigned char* b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += std::abs(static_cast<int>(a[i]) - static_cast<int>(b[i]));
    }
    return sum / static_cast<double>(a.size());
}

TEST(VirtualDirectory, ListsTheDefaultCamerasWithTheirCalibration) {
    BusRig rig;

    const auto devices = rig.directory->getGMSLDevices(true, false);

    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].id, 0);
    EXPECT_EQ(devices[0].model, MODEL_MONO_3UM);
    EXPECT_EQ(devices[0].serial_number, 30010001U);
    EXPECT_STREQ(devices[0].path.c_str(), "virtual:0");
    EXPECT_EQ(devices[1].model, MODEL_MONO_2UM);
    EXPECT_EQ(devices[1].serial_number, 31020002U);
    EXPECT_NE(rig.calibrations.text(30010001).find("[CAM_fhd1200]"), std::string::npos);
    EXPECT_NE(rig.calibrations.text(31020002).find("[CAM_4k]"), std::string::npos);
}

TEST(VirtualDirectory, IsEmptyWhenTheBusIsOff) {
    BusRig rig("off");

    EXPECT_TRUE(rig.directory->getGrabberList(true).empty());
    EXPECT_EQ(rig.open(), KORU_NOT_RECOGNIZED);
    EXPECT_EQ(rig.directory->resetMCU(1), DEVICE_NOT_FOUND);
}

TEST(VirtualGrabber, AcceptsExactlyTheModesOfItsModel) {
    struct Case {
        int id, width, height, asked, granted;
        SETUP_STATE state;
    };
    const Case cases[] = {
        {0, 1920, 1200, 30, 30, SETUP_OK}, {0, 1920, 1080, 100, 60, SETUP_OK},
        {0, 960, 600, 120, 120, SETUP_OK}, {0, 3840, 2160, 15, 0, ERROR_SIZE},
        {0, 1280, 720, 30, 0, ERROR_SIZE}, {1, 3840, 2160, 60, 30, SETUP_OK},
        {1, 3200, 1800, 15, 15, SETUP_OK}, {1, 960, 600, 30, 0, ERROR_SIZE},
        {1, 1920, 1200, 60, 60, SETUP_OK}, {7, 1920, 1200, 30, 0, KORU_NOT_RECOGNIZED},
    };
    BusRig rig;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.id) + ": " + std::to_string(c.width) + "x" + std::to_string(c.height));
        int id = c.id;

        ASSERT_EQ(rig.open(id, c.width, c.height, c.asked), c.state);

        if (c.state == SETUP_OK) {
            EXPECT_EQ(rig.grabber->getRequestedFPS(), c.granted);
            EXPECT_EQ(rig.grabber->getEffectiveWidth(), c.width);
            EXPECT_EQ(rig.grabber->getEffectiveHeight(), c.height);
        }
        rig.grabber->close(true);
    }
}

TEST(VirtualGrabber, GivesTheLowestFreeCameraForMinusOne) {
    BusRig first;
    BusRig second;
    BusRig third;
    int firstId = -1;
    int secondId = -1;
    int thirdId = -1;

    ASSERT_EQ(first.open(firstId, 1920, 1200), SETUP_OK);
    ASSERT_EQ(second.open(secondId, 1920, 1200), SETUP_OK);

    EXPECT_EQ(firstId, 0);
    EXPECT_EQ(secondId, 1);
    EXPECT_EQ(third.open(thirdId, 1920, 1200), ERROR_STREAM_START);
    EXPECT_EQ(thirdId, -1);
}

TEST(VirtualGrabber, HoldsItsCameraAloneUntilItLetsGo) {
    BusRig owner;
    BusRig rival;
    ASSERT_EQ(owner.open(), SETUP_OK);

    EXPECT_EQ(rival.open(), ERROR_STREAM_START);
    EXPECT_NE(rival.directory->getGrabberList(true)[0].availability, 0U);

    owner.grabber->close(true);
    EXPECT_EQ(rival.directory->getGrabberList(true)[0].availability, 0U);
    EXPECT_EQ(rival.open(), SETUP_OK);
    rival.grabber.reset();
    EXPECT_EQ(owner.open(), SETUP_OK) << "the destructor releases the camera too";
}

TEST(VirtualGrabber, DeliversMovingColourfulFramesOnTheSystemClock) {
    BusRig rig;
    ASSERT_EQ(rig.open(), SETUP_OK);
    const std::size_t bytes = 960 * 600 * 2;
    ASSERT_TRUE(rig.takeFrame());
    const std::vector<unsigned char> first(rig.pixels, rig.pixels + bytes);
    const Timestamp firstTime = rig.time;

    for (int i = 0; i < 10; ++i) {
        const Timestamp before = rig.time;
        ASSERT_TRUE(rig.takeFrame());
        ASSERT_GT(rig.time, before);
    }

    const uint64_t now = rig.clock->systemNanoseconds();
    EXPECT_LT(now - firstTime, 60'000'000'000ULL);
    EXPECT_LE(rig.time, now);
    EXPECT_GT(meanDifference(first, rig.pixels), 0.5) << "the scene moves";
    const std::set<unsigned char> chroma{first[1], first[bytes / 3 | 1U], first[bytes / 2 | 1U], first[bytes - 1]};
    EXPECT_GT(chroma.size(), 1U);
    EXPECT_TRUE(std::all_of(first.begin(), first.end(), [](unsigned char v) { return v >= 16 && v <= 240; }));
}

TEST(VirtualGrabber, ReportsEachFrameAsNewOnce) {
    BusRig rig;
    int id = 0;
    ASSERT_EQ(rig.open(id, 960, 600, 1), SETUP_OK);
    ASSERT_TRUE(rig.takeFrame());

    const Timestamp taken = rig.time;
    const auto before = steady_clock::now();
    (void)rig.grabber->waitForNewFrame(50);
    const auto waited = steady_clock::now() - before;

    // On a machine so busy that a second has passed the next frame is really there.
    if (rig.take() == NEW_FRAME) {
        EXPECT_GT(rig.time, taken);
    } else {
        EXPECT_GE(waited, milliseconds(40));
        EXPECT_LT(waited, milliseconds(5000));
    }
}

TEST(VirtualGrabber, ServesControlsSensorsAndCountersBesideTheFrames) {
    BusRig rig;
    ASSERT_EQ(rig.open(), SETUP_OK);
    std::atomic<bool> done{false};
    int rounds = 0;
    std::thread beside([&] {
        uint64_t newest = 0;
        while (!done.load(std::memory_order_acquire)) {
            (void)rig.grabber->setGrabberSettingsValue(GAIN, rounds % 100, false);
            (void)rig.grabber->setROIforAECAGC(0, {0, 0, 100, 100});
            const IMUPacket packet = rig.grabber->getMCU()->getIMUPose(0);
            EXPECT_GE(packet.imu_timestamp, newest);
            newest = packet.imu_timestamp;
            const FrameCounters counters = rig.grabber->counters();
            EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
            ++rounds;
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    bool all = true;
    for (int i = 0; i < 20; ++i) {
        all = rig.takeFrame() && all;
    }
    done.store(true, std::memory_order_release);
    beside.join();

    EXPECT_TRUE(all);
    EXPECT_GT(rounds, 0);
}

}  // namespace
}  // namespace oru::virtual_bus
