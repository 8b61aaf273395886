#include "backends/virtual_bus/sensor/faults.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "backends/virtual_bus/BusRig.hpp"
#include "backends/virtual_bus/CameraLock.hpp"
#include "backends/virtual_bus/bus_files.hpp"
#include "doubles/ChildProcess.hpp"

namespace oru::virtual_bus {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Attempts until the status is that one, for at most the given time; the frames taken meanwhile.
struct Watch {
    bool reached = false;
    int frames = 0;
    double seconds = 0.0;
};
Watch watch(BusRig& rig, FrameStatus wanted, int limitS) {
    Watch result;
    const auto start = steady_clock::now();
    Timestamp newest = 0;
    while (!result.reached && steady_clock::now() - start < std::chrono::seconds(limitS)) {
        const FrameStatus status = rig.take();
        if (status == NEW_FRAME) {
            ++result.frames;
            EXPECT_GT(rig.time, newest) << "a stale frame";
            newest = rig.time;
        }
        result.reached = status == wanted;
    }
    result.seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
    return result;
}

void expectClosed(const FrameCounters& counters) {
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
    EXPECT_GT(counters.produced, 0U);
}

TEST(VirtualFaults, LoseTheirShareOfFramesAndCountIt) {
    struct Case {
        const char* keys;
        uint64_t FrameCounters::*cause;
    };
    for (const Case& c : {Case{"drop_rate = 0.5\n", &FrameCounters::sensor_gap},
                          Case{"damage_rate = 0.5\n", &FrameCounters::damaged}}) {
        SCOPED_TRACE(c.keys);
        const TemporaryDirectory folder;
        BusRig rig(folder.write("bus.ini", cameraText(c.keys)));
        ASSERT_EQ(rig.open(), SETUP_OK);
        for (int i = 0; i < 20; ++i) {
            ASSERT_TRUE(rig.takeFrame());
        }
        rig.grabber->close(true);

        const FrameCounters counters = rig.grabber->counters();

        expectClosed(counters);
        EXPECT_EQ(counters.delivered, 20U);
        EXPECT_GE(counters.*c.cause, 4U);
    }
}

TEST(VirtualFaults, AStallIsAnErrorAfterTwoSecondsAndEndsByItself) {
    const TemporaryDirectory folder;
    BusRig rig(folder.write("bus.ini", cameraText("stall = on from 0.3 for 2.6\n")));
    ASSERT_EQ(rig.open(), SETUP_OK);

    const Watch stalled = watch(rig, SOURCE_ERROR, 20);
    const Watch resumed = watch(rig, NEW_FRAME, 20);

    EXPECT_TRUE(stalled.reached);
    EXPECT_TRUE(resumed.reached);
    expectClosed(rig.grabber->counters());
    EXPECT_GE(rig.grabber->counters().sensor_gap, 60U);
    EXPECT_TRUE(rig.grabber->getMCU()->isReady()) << "the micro-controller goes on";
}

TEST(VirtualFaults, AShortUnplugResumesALongOneIsFinal) {
    const TemporaryDirectory folder;
    BusRig brief(folder.write("brief.ini", cameraText("unplugged = on from 0.2 for 0.5\n")));
    BusRig final(folder.write("final.ini", "[camera 0]\nserial = 30770002\nunplugged = on from 0.2 for 3\n"));
    ASSERT_EQ(brief.open(), SETUP_OK);
    ASSERT_EQ(final.open(), SETUP_OK);

    const Watch ended = watch(final, SOURCE_ERROR, 20);
    const Watch resumed = watch(brief, NEW_FRAME, 20);
    const Timestamp pluggedIn = brief.time + 1'200'000'000;
    while (brief.time < pluggedIn) {
        ASSERT_TRUE(brief.takeFrame());
    }

    EXPECT_TRUE(resumed.reached);
    EXPECT_TRUE(ended.reached);
    EXPECT_EQ(final.take(), SOURCE_ERROR) << "plugged in again too late";
    EXPECT_FALSE(final.grabber->getMCU()->isReady());
    expectClosed(brief.grabber->counters());
    expectClosed(final.grabber->counters());
}

TEST(VirtualFaults, AClockStepMovesImageAndSamplesAlike) {
    const TemporaryDirectory folder;
    for (const int stepMs : {-5000, 5000}) {
        SCOPED_TRACE(stepMs);
        BusRig rig(folder.write("bus.ini", cameraText("clock_offset_ms = " + std::to_string(stepMs) + " from 0.4\n")));
        ASSERT_EQ(rig.open(), SETUP_OK);
        bool stepped = false;
        for (int i = 0; i < 2000 && !stepped; ++i) {
            ASSERT_TRUE(rig.takeFrame());
            const auto difference = static_cast<int64_t>(rig.time - rig.clock->systemNanoseconds());
            stepped = std::abs(difference) > 3'000'000'000;
        }

        ASSERT_TRUE(stepped);
        ASSERT_NE(rig.grabber->getIMUPacket(), nullptr);
        EXPECT_EQ(rig.grabber->getIMUPacket()->imu_timestamp, rig.time);
        expectClosed(rig.grabber->counters());
    }
}

TEST(VirtualFaults, JitterKeepsOrderAndAccount) {
    const TemporaryDirectory folder;
    BusRig rig(folder.write("bus.ini", cameraText("jitter_ms = 12\n")));
    ASSERT_EQ(rig.open(), SETUP_OK);
    Timestamp last = 0;
    bool uneven = false;
    for (int i = 0; i < 30; ++i) {
        ASSERT_TRUE(rig.takeFrame());
        ASSERT_GT(rig.time, last);
        const uint64_t step = rig.time - last;
        uneven = uneven || (last != 0 && step % 16'666'666 > 1'000'000 && step % 16'666'666 < 15'000'000);
        last = rig.time;
    }
    EXPECT_TRUE(uneven);
    expectClosed(rig.grabber->counters());
}

TEST(VirtualFaults, SetUpAnswersWhatItIsTold) {
    struct Case {
        const char* keys;
        int state;
    };
    for (const Case& c : {Case{"setup_state = 1\n", 1}, Case{"setup_state = 2\n", 2}, Case{"setup_state = 4\n", 4},
                          Case{"setup_state = 9\n", 9}, Case{"setup_state = 12\n", 12},
                          Case{"wrong_sensors_serial = on\n", ERROR_SENSORS_SERIAL}}) {
        SCOPED_TRACE(c.keys);
        const TemporaryDirectory folder;
        BusRig rig(folder.write("bus.ini", cameraText(c.keys)));

        EXPECT_EQ(static_cast<int>(rig.open()), c.state);
        EXPECT_EQ(rig.directory->getGrabberList(true)[0].availability, 0U) << "nothing stays locked";
    }
}

TEST(VirtualFaults, TheControlFileWorksWhileTheCameraRuns) {
    const TemporaryDirectory folder;
    const std::string setting = folder.write("bus.ini", "[bus]\ncontrol = faults.ini\n" + cameraText(""));
    BusRig rig(setting);
    ASSERT_EQ(rig.open(), SETUP_OK);
    ASSERT_TRUE(rig.takeFrame());
    ASSERT_TRUE(rig.grabber->getMCU()->isReady());
    const auto eventually = [&](bool ready) {
        for (int i = 0; i < 500; ++i) {
            (void)rig.take();
            if (rig.grabber->getMCU()->isReady() == ready) {
                return true;
            }
        }
        return false;
    };

    (void)folder.write("faults.ini", "[camera 0]\nmcu_silent = on\n[camera 5]\nstall = on\n");
    EXPECT_TRUE(eventually(false));
    (void)folder.write("faults.ini", "[camera 0]\nmcu_silent = perhaps\n");
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_TRUE(eventually(false)) << "a wrong file changes nothing";
    (void)folder.write("faults.ini", "[camera 0]\nmcu_silent = off\n");
    EXPECT_TRUE(eventually(true));
    (void)folder.write("faults.ini", "[camera 0]\nunplugged = on\n");
    EXPECT_TRUE(watch(rig, SOURCE_ERROR, 20).reached);
    EXPECT_TRUE(rig.directory->getGrabberList(true).empty());
    EXPECT_EQ(rig.open(), KORU_NOT_RECOGNIZED);
    std::filesystem::remove(folder.path("faults.ini"));
    EXPECT_EQ(rig.open(), SETUP_OK);
    EXPECT_TRUE(rig.takeFrame());
}

TEST(VirtualGrabber, AStoppedProcessFindsItsCameraWell) {
    doubles::ChildProcess taker({ORU_BUS_TAKER, "4"});
    ASSERT_TRUE(taker.hasStarted());
    taker.waitForOutput();

    ASSERT_EQ(::kill(taker.id(), SIGSTOP), 0);
    std::this_thread::sleep_for(milliseconds(3000));
    ASSERT_EQ(::kill(taker.id(), SIGCONT), 0);

    EXPECT_EQ(taker.line(), "started\n");
    EXPECT_EQ(taker.rest(), "every frame came\n");
    EXPECT_EQ(taker.exitStatus(), 0);
}

TEST(CameraLock, OfAKilledProcessIsFree) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        CameraLock lock;
        const char answer = lock.acquire(30010001) == CameraLock::Result::TAKEN ? 'y' : 'n';
        (void)!::write(ready[1], &answer, 1);
        for (;;) {
            ::pause();
        }
    }
    char answer = 0;
    ASSERT_EQ(::read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');
    BusRig rig;

    EXPECT_EQ(rig.open(), ERROR_STREAM_START);
    EXPECT_NE(rig.directory->getGrabberList(true)[0].availability, 0U);
    EXPECT_TRUE(CameraLock::holder(30010001).starts_with("process " + std::to_string(child) + " ("));

    ASSERT_EQ(::kill(child, SIGKILL), 0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    EXPECT_EQ(rig.open(), SETUP_OK);
    ::close(ready[0]);
    ::close(ready[1]);
}

}  // namespace
}  // namespace oru::virtual_bus
