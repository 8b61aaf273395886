#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "backends/virtual_bus/BusRig.hpp"
#include "backends/virtual_bus/bus_files.hpp"

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

TEST(VirtualDirectory, TellsWhatIsWrongWithItsFileAndWhere) {
    const TemporaryDirectory folder;
    const std::string path = folder.write("bus.ini", "[camera 0]\nmodel = 30\nmodle = 31\n");
    BusRig wrong(path);
    BusRig missing(folder.path("none.ini"));
    BusRig off("off");
    BusRig standard;

    EXPECT_TRUE(wrong.directory->getGrabberList(true).empty());
    EXPECT_EQ(wrong.directory->problem().get(),
              "KORU_VIRTUAL_BUS " + path + ": line 3: unknown key modle in [camera 0]");
    EXPECT_NE(missing.directory->problem().get().find("No such file"), std::string::npos);
    EXPECT_TRUE(off.directory->problem().empty());
    EXPECT_TRUE(standard.directory->problem().empty());
    (void)folder.write("bus.ini", "[camera 0]\nmodel = 30\n");
    EXPECT_TRUE(wrong.directory->problem().empty()) << "mended";
    EXPECT_EQ(wrong.directory->getGrabberList(true).size(), 1U);
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

/// Footage from memory: so many images, or a failure that a decoder can have.
class StrangeDecoder final : public FootageDecoder {
public:
    enum class Mood { WHOLE, OUT_OF_MEMORY, THROWS, THROWS_AT_OPEN };

    Mood mood = Mood::WHOLE;
    std::atomic<bool> hanging{false};

    bool probe(const std::string& /*path*/, ImageFileFacts& facts, std::string& /*error*/) override {
        facts = {960, 600, 120.0};
        return true;
    }
    std::unique_ptr<FootageReader> openVideo(const std::string& /*path*/, double /*fps*/,
                                             const ImageScaling& /*scaling*/, std::string& /*error*/) override {
        if (mood == Mood::THROWS_AT_OPEN) {
            throw std::runtime_error("the decoder is broken");
        }
        return std::make_unique<Reader>(*this);
    }
    std::unique_ptr<FootageReader> openImages(std::vector<ListedImage> /*images*/, const ImageScaling& /*scaling*/,
                                              std::string& /*error*/) override {
        return nullptr;
    }

private:
    class Reader final : public FootageReader {
    public:
        explicit Reader(StrangeDecoder& decoder) : owner(decoder), image(960 * 600 * 2, 100) {}
        bool next(uint64_t& time) override {
            time = 0;
            return index++ == 0;
        }
        const unsigned char* read() override {
            while (owner.hanging.load(std::memory_order_acquire)) {
                std::this_thread::sleep_for(milliseconds(5));
            }
            if (owner.mood == Mood::THROWS) {
                throw std::runtime_error("the decoder is broken");
            }
            if (owner.mood == Mood::OUT_OF_MEMORY) {
                throw std::bad_alloc();
            }
            return image.data();
        }
        void skip() override {}
        bool rewind() override { return false; }

    private:
        StrangeDecoder& owner;
        std::vector<unsigned char> image;
        int index = 0;
    };
};

/// Camera 0 of a bus whose footage comes from a strange decoder.
struct StrangeRig {
    StrangeRig()
        : bus(makeVirtualBus(*clock, nullptr, decoder,
                             folder.write("bus.ini", cameraText("source = footage\nfootage = any\nfx = 500\nfy = 500\n"
                                                                "cx = 480\ncy = 300\n")))),
          grabber(makeVirtualGrabber(bus, GMSL)) {}

    SETUP_STATE open() {
        int id = 0;
        return grabber->setUp(id, 960, 600, 60, 0, false, IMU_FREQ_2, true, false);
    }
    /// Without a pause, as a thread that happens to ask at the worst moment.
    FrameStatus finalStatus() {
        const auto start = steady_clock::now();
        FrameStatus status = NO_FRAME;
        while (status == NO_FRAME && steady_clock::now() - start < std::chrono::seconds(10)) {
            status = grabber->getFrameStatus();
        }
        return status;
    }

    TemporaryDirectory folder;
    StrangeDecoder decoder;
    std::unique_ptr<Clock> clock = makeSystemClock();
    std::shared_ptr<VirtualBus> bus;
    std::unique_ptr<LiveCameraGrabber> grabber;
};

TEST(VirtualGrabber, DeliversTheLastImageOfItsFootageBeforeTheEnd) {
    StrangeRig rig;
    for (int round = 0; round < 200; ++round) {
        ASSERT_EQ(rig.open(), SETUP_OK);

        ASSERT_EQ(rig.finalStatus(), NEW_FRAME) << "round " << round;
        rig.grabber->enterCriticalSection();
        rig.grabber->afterGrab();
        rig.grabber->exitCriticalSection();
        ASSERT_EQ(rig.finalStatus(), INPUT_ENDED) << "round " << round;
    }
}

TEST(VirtualGrabber, TurnsWhatItsDecoderThrowsIntoItsOwnStates) {
    using Mood = StrangeDecoder::Mood;
    StrangeRig rig;

    rig.decoder.mood = Mood::THROWS_AT_OPEN;
    EXPECT_EQ(rig.open(), ERROR_STREAM_START);
    rig.decoder.mood = Mood::THROWS;
    ASSERT_EQ(rig.open(), SETUP_OK);
    EXPECT_EQ(rig.finalStatus(), SOURCE_ERROR);
    rig.decoder.mood = Mood::OUT_OF_MEMORY;
    ASSERT_EQ(rig.open(), SETUP_OK);
    EXPECT_EQ(rig.finalStatus(), INPUT_ENDED);
    EXPECT_EQ(rig.grabber->counters().decode_failed, 1U) << "memory for one image costs one image";
    rig.decoder.mood = Mood::WHOLE;
    ASSERT_EQ(rig.open(), SETUP_OK);
    EXPECT_EQ(rig.finalStatus(), NEW_FRAME);
}

TEST(VirtualGrabber, NoticesACaptureThreadThatHangs) {
    StrangeRig rig;
    rig.decoder.hanging.store(true, std::memory_order_release);
    ASSERT_EQ(rig.open(), SETUP_OK);

    const auto start = steady_clock::now();
    FrameStatus status = NO_FRAME;
    while (status == NO_FRAME && steady_clock::now() - start < std::chrono::seconds(20)) {
        (void)rig.grabber->waitForNewFrame(100);
        status = rig.grabber->getFrameStatus();
    }

    EXPECT_EQ(status, SOURCE_ERROR);
    EXPECT_GE(steady_clock::now() - start, milliseconds(1900));
    rig.decoder.hanging.store(false, std::memory_order_release);
}

TEST(VirtualGrabber, TellsHowEachFrameWasTakenAndWhatWasLostBeforeIt) {
    const TemporaryDirectory folder;
    BusRig rig(folder.write("bus.ini", cameraText("drop_rate = 0.4\n")));
    ASSERT_EQ(rig.open(), SETUP_OK);
    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(AEC_AGC, 0, false), 0);
    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(GMSL_SETTING_13, 5000, false), 0);
    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(GMSL_SETTING_14, 3000, false), 0);
    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(SETTING_10, 3200, false), 0);
    ASSERT_EQ(rig.grabber->setROIforAECAGC(0, {8, 16, 320, 200}), 0);
    FrameInfo info;
    EXPECT_FALSE(rig.grabber->getFrameInfo(info)) << "no frame is held yet";

    uint64_t lost = 0;
    uint64_t expected = 0;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(rig.takeFrame());
        ASSERT_TRUE(rig.grabber->getFrameInfo(info));
        EXPECT_EQ(info.number, expected + info.lost_before);
        EXPECT_EQ(info.capture_time, rig.time);
        expected = info.number + 1;
        lost += info.lost_before;
    }

    EXPECT_TRUE(info.knows(FrameInfo::NUMBER) && info.knows(FrameInfo::LOST_BEFORE));
    EXPECT_TRUE(info.knows(FrameInfo::SYNC_COUNT));
    EXPECT_FALSE(info.knows(FrameInfo::SENSOR_TEMPERATURE));
    EXPECT_EQ(info.exposure_time_us, 5000U);
    EXPECT_EQ(info.analogue_gain_mdb, 3000U);
    EXPECT_EQ(info.white_balance_k, 3200U);
    EXPECT_EQ(info.region, (Rect{8, 16, 320, 200}));
    EXPECT_EQ(info.sync_count, 1);
    const FrameCounters counters = rig.grabber->counters();
    EXPECT_GT(lost, 0U);
    EXPECT_LE(lost, counters.lost()) << "what is lost since then belongs to a later frame";
}

TEST(VirtualGrabber, HoldsNoFrameAfterClose) {
    BusRig rig;
    ASSERT_EQ(rig.open(), SETUP_OK);
    ASSERT_TRUE(rig.takeFrame());
    ASSERT_NE(rig.grabber->getPixels(), nullptr);
    ASSERT_NE(rig.grabber->getIMUPacket(), nullptr);

    rig.grabber->close(true);

    EXPECT_EQ(rig.grabber->getPixels(), nullptr);
    EXPECT_EQ(rig.grabber->getIMUPacket(), nullptr);
    EXPECT_EQ(rig.grabber->getTimeStamp(), 0U);
    const FrameCounters counters = rig.grabber->counters();
    EXPECT_GE(counters.delivered, 1U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
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
