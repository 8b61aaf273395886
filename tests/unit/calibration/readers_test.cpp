#include "calibration/readers.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "doubles/ScopedEnvironment.hpp"
#include "doubles/SettingsRoot.hpp"
#include "doubles/TemporaryDirectory.hpp"

namespace oru {
namespace {

using doubles::ScopedEnvironment;
using doubles::SettingsRoot;
using doubles::TemporaryDirectory;

constexpr int kSerial = 123;

std::string marked(int mark) {
    return "[MISC]\nSensor_ID=" + std::to_string(mark) + "\n";
}

class OpenConfFile : public testing::Test {
protected:
    /// The mark of the file that is found, 0 when none is.
    static float found(const std::string& directory, ConfManager& conf) {
        openConfFile(directory, kSerial, conf);
        return conf.is_open ? conf.getValue("MISC:Sensor_ID", 0.0F) : 0.0F;
    }

    void writeSystemFile(const std::string& text) const {
        std::filesystem::create_directories(folder.path("koru/settings"));
        folder.write("koru/settings/SN123.conf", text);
    }

    TemporaryDirectory folder;
    SettingsRoot root{folder.path("koru")};
    ConfManager conf;
};

TEST_F(OpenConfFile, TriesTheCallersDirectoryFirst) {
    folder.write("SN123.conf", marked(1));
    writeSystemFile(marked(2));

    EXPECT_EQ(found(folder.prefix(), conf), 1.0F);
    EXPECT_EQ(conf.path, folder.path("SN123.conf"));
}

TEST_F(OpenConfFile, FallsBackToTheSystemSettings) {
    writeSystemFile(marked(2));
    ConfManager unprefixed;

    EXPECT_EQ(found(folder.prefix(), conf), 2.0F);
    EXPECT_EQ(found("", unprefixed), 2.0F);
    EXPECT_EQ(unprefixed.path, folder.path("koru/settings/SN123.conf"));
}

TEST_F(OpenConfFile, TakesTheDirectoryAsAPrefix) {
    folder.write("calSN123.conf", marked(1));

    EXPECT_EQ(found(folder.path("cal"), conf), 1.0F);
}

TEST_F(OpenConfFile, ReplacesOnlyTheFirstTilde) {
    const ScopedEnvironment home("HOME", folder.path("u").c_str());
    std::filesystem::create_directories(folder.path("u/~x"));
    folder.write("u/~x/SN123.conf", marked(1));

    EXPECT_EQ(found("~/~x/", conf), 1.0F);
    EXPECT_EQ(expandHome("/a~b"), "/a" + folder.path("u") + "b");
}

TEST_F(OpenConfFile, LeavesTheTildeWhenThereIsNoHome) {
    const ScopedEnvironment home("HOME", nullptr);

    EXPECT_EQ(found("~/nowhere/", conf), 0.0F);
    EXPECT_EQ(expandHome("~/x"), "~/x");
}

TEST_F(OpenConfFile, KeepsALoadedManagerWhenNoDirectoryIsGiven) {
    folder.write("SN123.conf", marked(1));
    writeSystemFile(marked(2));

    found(folder.prefix(), conf);

    EXPECT_EQ(found("", conf), 1.0F);
}

TEST_F(OpenConfFile, MakesTheSystemSettingsDirectory) {
    const mode_t former = ::umask(0);
    EXPECT_EQ(found("", conf), 0.0F);
    ::umask(former);

    struct stat facts = {};
    ASSERT_EQ(::stat(folder.path("koru/settings").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 0775U);
}

TEST(CalibrationFileName, WritesNegativeSerialsWithTheirSign) {
    EXPECT_EQ(calibrationFileName(30010001), "SN30010001.conf");
    EXPECT_EQ(calibrationFileName(-5), "SN-5.conf");
}

TEST(ReadCamera, TakesIntrinsicsAndReplacesEveryCoefficientByTheLensSection) {
    const TemporaryDirectory folder;
    ConfManager conf;
    conf.load(
        folder.write("a.conf",
                     "[CAM_fhd]\nfx=1\nfy=2\ncx=3\ncy=4\nk1=0.1\nk2=0.2\np1=0.3\np2=0.4\nk3=0.5\nk4=0.6\nk5=9\n"
                     "[DISTO]\nk2=-2\np1=-3\np2=-4\nk3=-5\nk4=-6\nk5=-7\nk6=-8\ns1=-9\ns2=-10\ns3=-11\ns4=-12\n"));

    CameraParameters camera = readCamera("CAM_fhd", conf);
    EXPECT_EQ(camera.fx, 1.0F);
    EXPECT_EQ(camera.fy, 2.0F);
    EXPECT_EQ(camera.cx, 3.0F);
    EXPECT_EQ(camera.cy, 4.0F);
    EXPECT_EQ(camera.image_size, Resolution());
    EXPECT_EQ(camera.distortion, (std::array<double, 12>{0.1F, 0.2F, 0.3F, 0.4F, 0.5F, 0.6F, 0, 0, 0, 0, 0, 0}));

    readCameraFullDisto("DISTO", conf, camera);
    EXPECT_EQ(camera.fx, 1.0F);
    EXPECT_EQ(camera.distortion, (std::array<double, 12>{0, -2, -3, -4, -5, -6, -7, -8, -9, -10, -11, -12}));
}

TEST(SetLensLength, FollowsPitchAndReadOut) {
    const struct {
        MODEL model;
        uint64_t height;
        float millimetres;
    } cases[] = {{MODEL_MONO_3UM, 1200, 3.0F}, {MODEL_MONO_3UM, 1080, 3.0F}, {MODEL_MONO_3UM, 600, 6.0F},
                 {MODEL_MONO_2UM, 1200, 2.0F}, {MODEL_MONO_2UM, 1080, 4.0F}, {MODEL_MONO_2UM, 1800, 2.0F},
                 {MODEL_MONO_2UM, 2160, 2.0F}, {MODEL_MONO_2UM, 600, 4.0F},  {MODEL_MONO_3UM, 720, 0.0F},
                 {MODEL_MONO_2UM, 0, 0.0F},    {MODEL_UNKNOWN, 1200, 0.0F},  {MODEL_UNKNOWN, 1080, 0.0F}};
    for (const auto& [model, height, millimetres] : cases) {
        CameraParameters params;
        params.fx = 1000.0F;
        params.focal_length_mm = -1.0F;
        setLensLength(params, {1920, height}, model);
        EXPECT_FLOAT_EQ(params.focal_length_mm, millimetres) << model << " at " << height;
    }
}

}  // namespace
}  // namespace oru
