#include <gtest/gtest.h>

#include "backends/virtual_bus/BusRig.hpp"
#include "backends/virtual_bus/bus_files.hpp"
#include "backends/virtual_bus/config/camera_config.hpp"

namespace oru::virtual_bus {
namespace {

BusConfig parse(const std::string& text) {
    BusConfig bus;
    std::string error;
    EXPECT_TRUE(parseBus(text, "", &footageDecoder(), bus, error)) << error;
    return bus;
}

TEST(BusConfig, ReadsEveryKey) {
    const BusConfig bus = parse(
        "\xEF\xBB\xBF; a comment\r\n[bus]\r\ncontrol = /run/faults.ini\r\n"
        "[Camera  3] ; the left one\nModel = 31 ; two micrometres\nserial = 31777777\navailability = 2\nfirmware = "
        "11\nmcu_firmware = 12\nmcu = no\n"
        "magnetometer = yes\nbarometer = on\nupside_down = true\nmotion = lively\nsource = scene\n"
        "fx = 2000.5\nfy = 2001\ncx = 1900\ncy = 1000\nk1 = 0.1\np2 = -1e-3\ns4 = 2e-4\n"
        "drop_rate = 0.25 from 2 for 3\nstall = on from 1\n");

    ASSERT_EQ(bus.cameras.size(), 1U);
    const CameraConfig& camera = bus.cameras[0];
    EXPECT_EQ(bus.control_file, "/run/faults.ini");
    EXPECT_EQ(camera.id, 3);
    EXPECT_EQ(camera.model, MODEL_MONO_2UM);
    EXPECT_EQ(camera.serial, 31777777U);
    EXPECT_EQ(camera.availability, 2U);
    EXPECT_EQ(camera.firmware, 11);
    EXPECT_EQ(camera.mcu_firmware, 12U);
    EXPECT_FALSE(camera.mcu);
    EXPECT_TRUE(camera.magnetometer && camera.barometer && camera.upside_down);
    EXPECT_EQ(camera.motion, Motion::LIVELY);
    EXPECT_EQ(camera.lens.fx, 2000.5);
    EXPECT_EQ(camera.lens.distortion[0], 0.1);
    EXPECT_EQ(camera.lens.distortion[3], -1e-3);
    EXPECT_EQ(camera.lens.distortion[11], 2e-4);
    EXPECT_EQ(camera.faults.at(Fault::DROP_RATE, 1.9), 0.0);
    EXPECT_EQ(camera.faults.at(Fault::DROP_RATE, 4.9), 0.25);
    EXPECT_EQ(camera.faults.at(Fault::DROP_RATE, 5.0), 0.0);
    EXPECT_EQ(camera.faults.at(Fault::STALL, 1e6), 1.0);
}

TEST(BusConfig, ASerialOfItsOwnFollowsTheLens) {
    const std::string lens = "fx = 900\nfy = 900\ncx = 960\ncy = 600\n";
    const uint32_t first = parse("[camera 0]\n" + lens + "k1 = 0.1\n").cameras[0].serial;
    const uint32_t same = parse("[camera 0]\n" + lens + "k1 = 0.1\n").cameras[0].serial;
    const uint32_t other = parse("[camera 0]\n" + lens + "k1 = 0.2\n").cameras[0].serial;
    const uint32_t neighbour = parse("[camera 1]\n" + lens + "k1 = 0.1\n").cameras[0].serial;

    EXPECT_EQ(first, same);
    EXPECT_NE(first, other);
    EXPECT_NE(first, neighbour);
    EXPECT_GT(first, 0U);
}

TEST(BusConfig, NamesLineAndKeyOfWhatIsWrong) {
    struct Case {
        const char* text;
        const char* named[2];
    };
    const Case cases[] = {
        {"[camera 0]\nmodel = 29\n", {"line 2", "model"}},
        {"[camera 0]\n\nserial = 12x\n", {"line 3", "serial"}},
        {"[camera 0]\nserial = 0\n", {"line 2", "serial"}},
        {"[camera 0]\nserial = 1.5\n", {"line 2", "serial"}},
        {"[camera 0]\ncolour = red\n", {"line 2", "colour"}},
        {"[camera x]\nmodel = 30\n", {"line 2", "camera x"}},
        {"model = 30\n", {"line 1", "model"}},
        {"[bus]\ncontrol =\n", {"line 2", "control"}},
        {"[camera 0]\nmodel\n", {"line 2", "key = value"}},
        {"[camera 0\n", {"line 1", "section"}},
        {"[camera 0]\nmcu = maybe\n", {"line 2", "mcu"}},
        {"[camera 0]\nmotion = wild\n", {"line 2", "motion"}},
        {"[camera 0]\nfx = -3\n", {"line 2", "fx"}},
        {"[camera 0]\nfx = 300\n", {"line 2", "fy"}},
        {"[camera 0]\nk1 = 0.5\n", {"line 2", "fx"}},
        {"[camera 0]\nfx = nan\n", {"line 2", "fx"}},
        {"[camera 0]\nmodel = 30\nmodel = 31\n", {"line 3", "model"}},
        {"[camera 0]\nsource = footage\n", {"line 2", "footage"}},
        {"[camera 0]\nfootage = /tmp\n", {"line 2", "footage"}},
        {"[camera 0]\nsource = footage\nfootage = /no/such/file.mkv\n", {"line 3", "footage"}},
        {"[camera 0]\nserial = 7\n[camera 1]\nserial = 7\n", {"line 4", "serial"}},
        {"[camera 0]\ndrop_rate = 2\n", {"line 2", "drop_rate"}},
        {"[camera 0]\nstall = on for 3\n", {"line 2", "stall"}},
        {"[camera 0]\nunplugged = on from -1\n", {"line 2", "unplugged"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        BusConfig bus;
        std::string error;
        EXPECT_FALSE(parseBus(c.text, "", &footageDecoder(), bus, error));
        for (const char* named : c.named) {
            EXPECT_NE(error.find(named), std::string::npos) << error;
        }
    }
}

TEST(BusConfig, AWrongOrMissingFileLeavesNoCamera) {
    const TemporaryDirectory folder;
    for (const std::string& file : {folder.path("missing.ini"), folder.write("wrong.ini", "[camera 0]\nmodel = 5\n")}) {
        BusRig rig(file);
        EXPECT_TRUE(rig.directory->getGrabberList(true).empty());
        EXPECT_EQ(rig.open(), KORU_NOT_RECOGNIZED);
    }
}

TEST(BusConfig, ConfiguresTheCameraThatIsOpened) {
    const TemporaryDirectory folder;
    BusRig rig(folder.write("bus.ini",
                            "[camera 4]\nmodel = 31\nserial = 31770004\nmcu = no\nfirmware = 99\n"
                            "[camera 2]\nmodel = 30\nserial = 31770002\navailability = 1\n"));
    int id = -1;

    ASSERT_EQ(rig.open(id, 1920, 1080), SETUP_OK) << "the lower id is not available";

    EXPECT_EQ(id, 4);
    EXPECT_EQ(rig.grabber->getSerialNumber(), 31770004);
    EXPECT_EQ(rig.grabber->getFWVersion(), 99);
    EXPECT_FALSE(rig.grabber->hasMCU());
    ASSERT_NE(rig.grabber->getMCU(), nullptr);
    EXPECT_EQ(rig.grabber->getMCU()->getMCUFirmwareVersion(), 0U);
    ASSERT_TRUE(rig.takeFrame());
    EXPECT_EQ(rig.grabber->getIMUPacket(), nullptr);
    EXPECT_EQ(rig.directory->getGrabberList(true)[1].availability, 1U);
}

}  // namespace
}  // namespace oru::virtual_bus
