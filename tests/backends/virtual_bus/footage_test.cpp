#include "backends/virtual_bus/footage/footage.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "backends/virtual_bus/BusRig.hpp"
#include "backends/virtual_bus/bus_files.hpp"
#include "backends/virtual_bus/footage/euroc.hpp"
#include "backends/virtual_bus/footage/euroc_inertial.hpp"

namespace oru::virtual_bus {
namespace {

constexpr const char* kLens = "fx = 300\nfy = 300\ncx = 159.5\ncy = 99.5\n";

std::string footageText(const std::string& path, const std::string& more) {
    return cameraText("source = footage\nfootage = " + path + "\n" + more);
}

/// Takes frames until the input ends; their luma in the middle of the image. The automatic exposure is off.
std::vector<int> playToTheEnd(BusRig& rig) {
    std::vector<int> greys;
    for (int attempt = 0; attempt < 3000; ++attempt) {
        const FrameStatus status = rig.take();
        if (status == INPUT_ENDED) {
            return greys;
        }
        if (status == NEW_FRAME) {
            greys.push_back(rig.pixels[(300 * 960 + 480) * 2]);
        }
    }
    ADD_FAILURE() << "it does not end";
    return greys;
}

TEST(Footage, PlaysEachImageOfAFolderOnceInOrder) {
    const TemporaryDirectory folder;
    for (int i = 0; i < 8; ++i) {
        (void)writeImage(folder, "images/picture_" + std::to_string(i) + ".ppm", 60 + 10 * i);
    }
    (void)folder.write("images/notes.txt", "no picture");
    BusRig rig(folder.write("bus.ini", footageText("images", std::string(kLens) + "fps = 20\n")));
    int id = 0;
    ASSERT_EQ(rig.open(id, 960, 600, 60), SETUP_OK);
    EXPECT_EQ(rig.grabber->getRequestedFPS(), 20);
    EXPECT_FALSE(rig.grabber->hasMCU());
    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(AEC_AGC, 0, false), 0);

    const auto greys = playToTheEnd(rig);

    const FrameCounters counters = rig.grabber->counters();
    EXPECT_EQ(counters.produced, 8U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
    ASSERT_EQ(greys.size(), counters.delivered);
    for (std::size_t i = 1; i < greys.size(); ++i) {
        EXPECT_GT(greys[i], greys[i - 1]);
    }
    EXPECT_EQ(rig.take(), INPUT_ENDED);
}

TEST(Footage, CountsAnImageThatCannotBeReadAndGoesOn) {
    const TemporaryDirectory folder;
    (void)writeImage(folder, "images/a.ppm", 100);
    (void)folder.write("images/b.png", "\x89PNG\r\n\x1a\n but then nothing");
    (void)writeImage(folder, "images/c.ppm", 100, 100, 100);
    (void)writeImage(folder, "images/d.ppm", 100);
    BusRig rig(folder.write("bus.ini", footageText("images", kLens)));
    ASSERT_EQ(rig.open(), SETUP_OK);

    (void)playToTheEnd(rig);

    const FrameCounters counters = rig.grabber->counters();
    EXPECT_EQ(counters.decode_failed, 2U);
    EXPECT_EQ(counters.produced, 4U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
}

TEST(Footage, LoopsWithRisingTimes) {
    const TemporaryDirectory folder;
    (void)writeImage(folder, "images/a.ppm", 80);
    (void)writeImage(folder, "images/b.ppm", 160);
    BusRig rig(folder.write("bus.ini", footageText("images", std::string(kLens) + "fps = 60\nloop = yes\n")));
    ASSERT_EQ(rig.open(), SETUP_OK);

    Timestamp last = 0;
    for (int i = 0; i < 12; ++i) {
        ASSERT_TRUE(rig.takeFrame());
        ASSERT_GT(rig.time, last);
        last = rig.time;
    }
}

TEST(Footage, PlaysAVideoFileAtItsOwnRate) {
    const TemporaryDirectory folder;
    std::string video = "YUV4MPEG2 W320 H200 F25:1 Ip A1:1 C420jpeg\n";
    for (int i = 0; i < 6; ++i) {
        video += "FRAME\n";
        video.append(320 * 200, static_cast<char>(50 + 20 * i));
        video.append(320 * 100, static_cast<char>(128));
    }
    (void)folder.write("video.y4m", video);
    BusRig rig(folder.write("bus.ini", footageText("video.y4m", kLens)));
    ASSERT_EQ(rig.open(), SETUP_OK);
    EXPECT_EQ(rig.grabber->getRequestedFPS(), 25);

    (void)playToTheEnd(rig);

    EXPECT_EQ(rig.grabber->counters().produced, 6U);
}

TEST(Footage, ScalesAndCropsItsLensWithTheImage) {
    FootageFacts facts;
    facts.width = 640;
    facts.height = 480;
    const Lens lens{500.0, 510.0, 319.5, 239.5, {0.1}};

    const Lens covered = coveredLens(lens, facts, 1920, 1200);

    EXPECT_DOUBLE_EQ(covered.fx, 1500.0);
    EXPECT_DOUBLE_EQ(covered.fy, 1530.0);
    EXPECT_DOUBLE_EQ(covered.cx, 959.5);
    EXPECT_DOUBLE_EQ(covered.cy, 599.5);
    EXPECT_EQ(covered.distortion, lens.distortion);
}

TEST(Footage, PublishesItsLensAsTheCameraCalibration) {
    const TemporaryDirectory folder;
    (void)writeImage(folder, "images/a.ppm", 80, 640, 480);
    BusRig rig(
        folder.write("bus.ini", footageText("images", "fx = 500\nfy = 510\ncx = 319.5\ncy = 239.5\nk1 = -0.25\n")));

    ASSERT_EQ(rig.directory->getGrabberList(true).size(), 1U);

    const std::string text = rig.calibrations.text(30770001);
    EXPECT_NE(text.find("[CAM_fhd1200]\nfx = 1500.000000\nfy = 1530.000000\ncx = 959.500000"), std::string::npos)
        << text;
    EXPECT_NE(text.find("k1 = -0.25"), std::string::npos);
}

/// A data set of 5 images at 20 Hz and 41 samples at 200 Hz, whose body is turned and lies at rest.
std::string writeDataSet(const TemporaryDirectory& folder) {
    const uint64_t start = 1'403'636'579'000'000'000;
    std::string images = "#timestamp [ns],filename\n";
    std::string samples = "#timestamp [ns],w_RS_S_x [rad s^-1],...\n";
    for (uint64_t i = 0; i < 5; ++i) {
        const std::string time = std::to_string(start + i * 50'000'000);
        images += time + "," + time + ".ppm\r\n";
        (void)writeImage(folder, "set/mav0/cam0/data/" + time + ".ppm", static_cast<int>(60 + 20 * i), 752, 480);
    }
    for (uint64_t i = 0; i < 41; ++i) {
        samples += std::to_string(start + i * 5'000'000) + ",0.0,0.0,0.1,9.81,0.0,0.0\n";
    }
    (void)folder.write("set/mav0/cam0/data.csv", images);
    (void)folder.write("set/mav0/imu0/data.csv", samples);
    (void)folder.write("set/mav0/cam0/sensor.yaml",
                       "sensor_type: camera\nT_BS:\n  cols: 4\n  rows: 4\n"
                       "  data: [0.0, -1.0, 0.0, -0.02,\n         1.0, 0.0, 0.0, -0.06,\n"
                       "         0.0, 0.0, 1.0, 0.01,\n         0.0, 0.0, 0.0, 1.0]\n"
                       "rate_hz: 20\nresolution: [752, 480]\ncamera_model: pinhole\n"
                       "intrinsics: [458.654, 457.296, 367.215, 248.375] #fu, fv, cu, cv\n"
                       "distortion_model: radial-tangential\n"
                       "distortion_coefficients: [-0.28340811, 0.07395907, 0.00019359, 1.76187114e-05]\n");
    return folder.path("set");
}

TEST(EurocDataSet, PlaysWithExactFrameAndSampleCounts) {
    const TemporaryDirectory folder;
    BusRig rig(folder.write("bus.ini", footageText(writeDataSet(folder), "")));
    ASSERT_EQ(rig.open(), SETUP_OK);
    ASSERT_TRUE(rig.hasMcu());
    EXPECT_EQ(rig.grabber->getRequestedFPS(), 20);

    (void)playToTheEnd(rig);
    const IMUPacket last = rig.grabber->getMCU()->getIMUPose(0);
    const auto batch = rig.grabber->getMCU()->getIMUPacketBatch(0, ~0UL);

    EXPECT_EQ(rig.grabber->counters().produced, 5U);
    ASSERT_EQ(batch.size(), 41U);
    for (std::size_t i = 1; i < batch.size(); ++i) {
        EXPECT_EQ(batch[i].imu_timestamp - batch[i - 1].imu_timestamp, 5'000'000U);
    }
    EXPECT_EQ(batch.back().imu_timestamp, rig.time) << "both axes move alike";
    EXPECT_EQ(last.imu_timestamp, rig.time);
    // Body x points up, and the camera's -y is body x: the force lies along the camera's -y.
    EXPECT_NEAR(last.vector_4[1], -9.81F, 1e-3F);
    EXPECT_NEAR(last.vector_3[2], 0.1F * 57.29578F, 1e-3F);
}

TEST(EurocDataSet, SensorBesideTheBodyMovesTheMounting) {
    EurocCamera camera;
    camera.pose = {0, -1, 0, 0.5, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::string error;
    ASSERT_TRUE(parseEurocImu("T_BS:\n  data: [0, -1, 0, 0.25, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]\n", camera, error));

    const Mounting mounting = EurocInertial("none", camera, 0, 0).mounting();

    EXPECT_LT(mounting.rotation.angularDistance(Eigen::Quaterniond::Identity()), 1e-9);
    EXPECT_LT((mounting.translation - Eigen::Vector3d(0, -0.25, 0)).norm(), 1e-9);
}

TEST(EurocDataSet, ReaderNamesWhatIsWrong) {
    std::string error;
    std::vector<EurocImage> images;
    EXPECT_FALSE(parseEurocImages("#head\n1,a.png\nx,b.png\n", images, error));
    EXPECT_NE(error.find("line 3"), std::string::npos);
    images.clear();
    EXPECT_FALSE(parseEurocImages("5,a.png\n5,b.png\n", images, error));
    EXPECT_NE(error.find("rise"), std::string::npos);
    images.clear();
    EXPECT_FALSE(parseEurocImages("5,../../etc/passwd\n", images, error));
    EXPECT_FALSE(parseEurocImages("", images, error));
    EurocCamera camera;
    EXPECT_FALSE(parseEurocCamera("resolution: [752, 480]\n", camera, error));
    EXPECT_NE(error.find("intrinsics"), std::string::npos);
    EXPECT_FALSE(parseEurocCamera("resolution: [752, 480]\nintrinsics: [1, 1, 1, 1]\ndistortion_model: equidistant\n",
                                  camera, error));
    EXPECT_NE(error.find("distortion_model"), std::string::npos);
    EXPECT_FALSE(
        parseEurocCamera("resolution: [752, 480]\nintrinsics: [1, 1, 1, 1]\n"
                         "T_BS:\n  data: [2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]\n",
                         camera, error));
    EXPECT_NE(error.find("T_BS"), std::string::npos) << "no rotation stretches";
    EurocSample sample;
    EXPECT_FALSE(parseEurocSample("1,2,3,4,5,6", sample));
    EXPECT_FALSE(parseEurocSample("1,2,3,4,5,6,inf", sample));
    EXPECT_TRUE(parseEurocSample("1,2,3,4,5,6,7", sample));
}

}  // namespace
}  // namespace oru::virtual_bus
