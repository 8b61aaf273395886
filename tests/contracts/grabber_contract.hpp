#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "contracts/NamedSubject.hpp"
#include "oru_input/grabber/LiveCameraGrabber.hpp"

// What every grabber promises; a test program includes it and names its subjects.

namespace oru {
namespace {

/// A grabber whose camera 0 has the mode that open() asks for, and what it needs to live.
class GrabberSubject {
public:
    static constexpr int kWidth = 960;
    static constexpr int kHeight = 600;

    virtual ~GrabberSubject() = default;
    virtual LiveCameraGrabber& grabber() = 0;

    SETUP_STATE open(int& id) { return grabber().setUp(id, kWidth, kHeight, 60, 0, false, IMU_FREQ_2, true, false); }
    SETUP_STATE open() {
        int id = 0;
        return open(id);
    }
};

/// Runs in real time where the subject does; every wait is for a condition, with a bound that a busy machine keeps.
class GrabberContract : public testing::TestWithParam<NamedSubject<GrabberSubject>> {
protected:
    /// Waits for a frame and takes it, with what `look` does inside the critical section; false after ten seconds.
    template <class Look>
    [[nodiscard]] bool takeFrame(Look look) {
        for (int attempt = 0; attempt < 100; ++attempt) {
            (void)grabber.waitForNewFrame(100);
            if (grabber.getFrameStatus() == NEW_FRAME) {
                grabber.enterCriticalSection();
                look();
                grabber.afterGrab();
                grabber.exitCriticalSection();
                return true;
            }
        }
        return false;
    }

    std::unique_ptr<GrabberSubject> subject = GetParam().make();
    LiveCameraGrabber& grabber = subject->grabber();
};

TEST_P(GrabberContract, HasNoFrameWithoutACameraAndMayBeClosedAgain) {
    EXPECT_EQ(grabber.getPixels(), nullptr);
    EXPECT_EQ(grabber.getIMUPacket(), nullptr);
    EXPECT_FALSE(grabber.hasMCU());
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(grabber.getFrameStatus(), SOURCE_UNAVAILABLE) << "before setUp, then after close";
        ASSERT_EQ(subject->open(), SETUP_OK);
        ASSERT_TRUE(takeFrame([] {}));
        grabber.close(true);
        grabber.close(true);
    }
}

TEST_P(GrabberContract, TakesTheLowestFreeCameraForMinusOneAndTellsItsMode) {
    int id = -1;

    ASSERT_EQ(subject->open(id), SETUP_OK);

    EXPECT_EQ(id, 0);
    EXPECT_EQ(grabber.getEffectiveWidth(), GrabberSubject::kWidth);
    EXPECT_EQ(grabber.getEffectiveHeight(), GrabberSubject::kHeight);
    EXPECT_GT(grabber.getRequestedFPS(), 0);
    EXPECT_NE(grabber.getSerialNumber(), 0);
    EXPECT_NE(grabber.getCameraModel(), MODEL_UNKNOWN);
    EXPECT_TRUE(grabber.hasMCU());
    ASSERT_NE(grabber.getMCU(), nullptr);
    EXPECT_TRUE(grabber.getMCU()->isReady());
}

TEST_P(GrabberContract, DeliversEachFrameOnceInTimeOrderAndClosesTheAccount) {
    ASSERT_EQ(subject->open(), SETUP_OK);
    Timestamp previous = 0;

    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(takeFrame([&] {
            EXPECT_NE(grabber.getPixels(), nullptr);
            EXPECT_GT(grabber.getTimeStamp(), previous);
            previous = grabber.getTimeStamp();
        }));
    }

    const FrameCounters counters = grabber.counters();
    EXPECT_EQ(counters.delivered, 5U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
}

TEST_P(GrabberContract, KeepsTheFrameAsItIsInsideTheCriticalSection) {
    ASSERT_EQ(subject->open(), SETUP_OK);

    ASSERT_TRUE(takeFrame([&] {
        const unsigned char* pixels = grabber.getPixels();
        const Timestamp time = grabber.getTimeStamp();
        const std::vector<unsigned char> before(pixels, pixels + GrabberSubject::kWidth * GrabberSubject::kHeight * 2);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // three frames
        EXPECT_EQ(grabber.getPixels(), pixels);
        EXPECT_EQ(grabber.getTimeStamp(), time);
        EXPECT_TRUE(std::equal(before.begin(), before.end(), pixels));
    }));
}

}  // namespace
}  // namespace oru
