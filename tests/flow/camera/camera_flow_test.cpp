// The whole camera on the virtual bus, as an application drives it.

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "doubles/ScopedEnvironment.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"

namespace oru {
namespace {

using doubles::ScopedEnvironment;
constexpr float kGravity = 9.80665F;

Eigen::Quaternionf orientationOf(const SensorsData& data) {
    const Orientation q = data.imu.pose.getOrientation();
    return {q[3], q[0], q[1], q[2]};
}

Eigen::Quaternionf turnOf(const Vector3<float>& degreesPerSecond, float seconds) {
    const Eigen::Vector3f rate = Eigen::Vector3f(degreesPerSecond[0], degreesPerSecond[1], degreesPerSecond[2]) *
                                 (static_cast<float>(M_PI) / 180);
    const float angle = rate.norm() * seconds;
    return Eigen::Quaternionf(angle > 0 ? Eigen::AngleAxisf(angle, rate.normalized()) : Eigen::AngleAxisf::Identity());
}

class VirtualCamera : public ::testing::Test {
protected:
    VirtualCamera() { parameters.settings_path = directory.prefix().c_str(); }
    ~VirtualCamera() override { (void)camera.close(); }
    void open(RESOLUTION resolution, int fps) {
        parameters.requested_resolution = resolution;
        parameters.requested_fps = fps;
        ASSERT_EQ(camera.open(parameters), SUCCESS);
    }

    doubles::TemporaryDirectory directory;
    InitParametersOne parameters;
    CameraOne camera;
};

TEST_F(VirtualCamera, DeliversEachFrameOnceWithItsTimeAndAccountsForTheRest) {
    open(HD600, 60);
    Mat view;
    Timestamp previous = 0;
    for (int i = 0; i < 60; ++i) {
        ASSERT_EQ(camera.grab(), SUCCESS);
        ASSERT_EQ(camera.retrieveImage(view, UNRECTIFIED_GRAY, CPU, {}), SUCCESS);
        EXPECT_GT(camera.getTimestamp(IMAGE), previous);
        previous = camera.getTimestamp(IMAGE);
    }
    EXPECT_LT(camera.getTimestamp(CURRENT) - previous, 2'000'000'000U);
    const FrameCounters counters = camera.getFrameCounters();
    EXPECT_EQ(counters.delivered, 60U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
}

TEST_F(VirtualCamera, EveryViewIsCompleteInEitherMemory) {
    open(HD600, 30);
    ASSERT_EQ(camera.grab(), SUCCESS);
    for (const VIEW asked : {RECTIFIED, RECTIFIED_GRAY, UNRECTIFIED, UNRECTIFIED_GRAY}) {
        for (const Resolution size : {Resolution{}, Resolution{480, 300}, Resolution{101, 67}}) {
            Mat host;
            Mat device;
            ASSERT_EQ(camera.retrieveImage(host, asked, CPU, size), SUCCESS);
            ASSERT_EQ(camera.retrieveImage(device, asked, GPU, size), SUCCESS);
            const auto* pixels = host.getPtr<unsigned char>(CPU);
            ASSERT_NE(pixels, nullptr);
            EXPECT_NE(device.getPtr<unsigned char>(GPU), nullptr);
            const std::size_t bytes = host.getStepBytes(CPU) * host.getHeight();
            double sum = 0.0;
            double squares = 0.0;
            for (std::size_t i = 0; i < bytes; ++i) {
                sum += pixels[i];
                squares += double{1} * pixels[i] * pixels[i];
            }
            const double mean = sum / static_cast<double>(bytes);
            EXPECT_GT(squares / static_cast<double>(bytes) - mean * mean, 400.0) << "a textured picture";
        }
    }
}

TEST_F(VirtualCamera, OpenFailuresNameTheirReasonAndLeaveNothingBehind) {
    const auto opened = [this](auto change) {
        InitParametersOne changed = parameters;
        change(changed);
        CameraOne fresh;
        const ERROR_CODE result = fresh.open(changed);
        EXPECT_FALSE(fresh.isOpened());
        EXPECT_EQ(fresh.grab(), CAMERA_UNAVAILABLE);
        return result;
    };
    EXPECT_EQ(opened([](auto& p) { p.input.setFromSerialNumber(4711); }), DEVICE_NOT_FOUND);
    EXPECT_EQ(opened([](auto& p) {
                  p.input.setFromSerialNumber(31020002);
                  p.requested_resolution = HD600;
              }),
              RESOLUTION_NOT_SUPPORTED);
    EXPECT_EQ(opened([](auto& p) {
                  p.input.setFromCameraID(0);
                  p.requested_resolution = HD720;
              }),
              DEVICE_SETUP_FAILED);
    EXPECT_EQ(opened([](auto& p) { p.input.setFromFile("/nonexistent.rlx2"); }) == SUCCESS, false);
    EXPECT_TRUE(directory.list().empty());

    (void)directory.write("file", "x");
    (void)directory.write("SN30010001.conf", "garbage\n\xff\x01[[[");
    EXPECT_EQ(opened([](auto& p) { p.input.setFromCameraID(0); }), CALIBRATION_INCOMPLETE);
    EXPECT_EQ(directory.list().size(), 2U);
}

TEST_F(VirtualCamera, EmptySettingsPathIsTheUsersOwn) {
    const ScopedEnvironment data("XDG_DATA_HOME", directory.path("data").c_str());
    parameters.settings_path = "";
    open(HD600, 30);
    EXPECT_TRUE(std::filesystem::exists(directory.path("data/koru/settings/SN30010001.conf")));
}

TEST_F(VirtualCamera, AngularRateIntegratesToThePoseChange) {
    open(HD600, 60);
    ASSERT_EQ(camera.grab(), SUCCESS);
    SensorsData start;
    ASSERT_EQ(camera.getSensorsData(start, IMAGE), SUCCESS);
    Eigen::Quaternionf turned = Eigen::Quaternionf::Identity();
    uint64_t last = start.imu.timestamp;
    SensorsData end;
    std::vector<SensorsData> batch;
    double force = 0.0;
    int samples = 0;
    while (end.imu.timestamp < start.imu.timestamp + 1'000'000'000) {
        ASSERT_EQ(camera.grab(), SUCCESS);
        ASSERT_EQ(camera.getSensorsDataBatch(batch), SUCCESS);
        ASSERT_EQ(camera.getSensorsData(end, IMAGE), SUCCESS);
        for (const SensorsData& sample : batch) {
            const Vector3<float>& f = sample.imu.vector_2;
            force += std::hypot(f[0], f[1], f[2]);
            ++samples;
            if (sample.imu.timestamp > last) {
                turned = turned * turnOf(sample.imu.vector_1, static_cast<float>(sample.imu.timestamp - last) * 1e-9F);
                last = sample.imu.timestamp;
            }
        }
    }
    const Eigen::Quaternionf seen = orientationOf(start).inverse() * orientationOf(end);

    EXPECT_GT(seen.angularDistance(Eigen::Quaternionf::Identity()), 0.01F) << "the camera moves";
    EXPECT_LT(seen.angularDistance(turned) * 180 / static_cast<float>(M_PI), 0.2F);
    EXPECT_NEAR(force / samples, kGravity, 0.5);
}

/// ORU_SENSORS_SECONDS, or what is enough for every day.
int sensorsSeconds(int usual) {
    const char* asked = std::getenv("ORU_SENSORS_SECONDS");
    return asked == nullptr ? usual : std::atoi(asked);
}

TEST_F(VirtualCamera, BatchesJoinWithoutGapOrOverlap) {
    const int seconds = sensorsSeconds(1);
    for (const int fps : {30, 60, 120}) {
        open(HD600, fps);
        std::vector<SensorsData> batch;
        uint64_t previous = 0;
        std::size_t samples = 0;
        for (int i = 0; i < fps * seconds; ++i) {
            ASSERT_EQ(camera.grab(), SUCCESS);
            ASSERT_EQ(camera.getSensorsDataBatch(batch), SUCCESS);
            for (const SensorsData& sample : batch) {
                if (previous != 0) {
                    ASSERT_EQ(sample.imu.timestamp - previous, 2'500'000U) << fps;
                }
                previous = sample.imu.timestamp;
                ++samples;
            }
            EXPECT_LE(previous, camera.getTimestamp(IMAGE));
        }
        EXPECT_GT(samples, 300U * static_cast<unsigned>(seconds));
    }
}

TEST_F(VirtualCamera, SensorsThreadRunsBesideTheGrabThread) {
    const auto duration = std::chrono::seconds(sensorsSeconds(3));
    open(HD600, 60);
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    float rate = 0.0F;
    std::thread sensors([&] {
        SensorsData data;
        std::vector<SensorsData> batch;
        while (!stop) {
            failures += camera.getSensorsData(data, CURRENT) == SUCCESS ? 0 : 1;
            rate = data.imu.measured_rate;
            SensorsData image;
            failures += camera.getSensorsData(image, IMAGE) == SUCCESS ? 0 : 1;
            failures += camera.getSensorsDataBatch(batch) == SUCCESS ? 0 : 1;
            (void)camera.getTimestamp(IMAGE);
            (void)camera.getCurrentFPS();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const auto end = std::chrono::steady_clock::now() + duration;
    int frames = 0;
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(camera.grab(), SUCCESS);
        ++frames;
    }
    stop = true;
    sensors.join();

    EXPECT_EQ(failures, 0);
    EXPECT_GT(frames, 0);
    EXPECT_GT(rate, 40.0F) << "of the samples that the thread came to see";
    EXPECT_LT(rate, 401.0F);
}

}  // namespace
}  // namespace oru
