#include <gtest/gtest.h>

#include <filesystem>

#include "doubles/TemporaryDirectory.hpp"
#include "oru/calibration.hpp"
#include "unit/calibration/calibration_texts.hpp"

namespace oru {
namespace {

using doubles::TemporaryDirectory;

constexpr int kSerial = 30010001;
constexpr Lens kSensor{
    2013.5, 2013.25, 1926.5, 1071.75, {0.28, 0.01, -0.0003, 0.0002, 0.0001, 0.4, 0.03, 0, 0, 0, 0, 0.0001}};

TEST(CalibrationFile, ComparesNumbersNotTheirSpelling) {
    const CalibrationFile factory{"", {{"a:x", "1.50"}, {"a:y", "2"}, {"a:z", "3"}, {"a:t", "word"}}};
    const CalibrationFile file{"f", {{"a:x", "1.5000"}, {"a:y", "2.1"}, {"a:t", "word"}, {"b:more", "4"}}};

    const auto differences = compareCalibrations(file, factory);

    ASSERT_EQ(differences.size(), 3U);
    EXPECT_EQ(differences[0].key, "a:y");
    EXPECT_EQ(differences[1].key, "a:z");
    EXPECT_EQ(differences[1].file, "nothing");
    EXPECT_EQ(differences[2].key, "b:more");
}

TEST(CalibrationFile, GivesBackTheLensOfEveryModeThatWasWritten) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("SN30010001.conf");
    for (const MODEL model : {MODEL_MONO_3UM, MODEL_MONO_2UM}) {
        ASSERT_EQ(writeCalibration(path, calibrationText(model, kSensor), kSerial), "");

        const CalibrationFile file = readCalibration(path);

        EXPECT_EQ(file.path, path);
        EXPECT_EQ(file.model(), model);
        ASSERT_FALSE(sensorModes(model).empty());
        for (const SensorMode& mode : sensorModes(model)) {
            const Lens expected = modeLens(model, kSensor, mode);
            const auto lens = file.lens(mode);
            ASSERT_TRUE(lens) << mode.section;
            EXPECT_NEAR(lens->fx, expected.fx, 1e-3) << mode.section;
            EXPECT_NEAR(lens->cy, expected.cy, 1e-3) << mode.section;
            EXPECT_NEAR(lens->distortion[11], expected.distortion[11], 1e-9) << mode.section;
            EXPECT_EQ(findMode(model, mode.width, mode.height), &mode);
        }
    }
}

TEST(CalibrationFile, WritesOnlyWholeCalibrationsOfTheCamera) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("SN30010001.conf");
    const std::string whole = calibrationText(MODEL_MONO_3UM, kSensor);

    EXPECT_EQ(writeCalibration(path, whole.substr(0, whole.size() - 1), kSerial), "it ends in the middle of a line");
    EXPECT_EQ(writeCalibration(path, "[MISC]\nSerial_Number=7\nSensor_ID=1\n" + whole, kSerial),
              "it belongs to another camera");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_NE(writeCalibration(folder.path("missing/SN30010001.conf"), whole, kSerial), "");
}

TEST(CalibrationFile, HasNoValuesWhereNoPlainFileOfSoundSizeLies) {
    const TemporaryDirectory folder;
    const std::string huge = kWholeCalibration + std::string(kCalibrationTextLimitBytes, '\n');

    EXPECT_TRUE(readCalibration(folder.path("missing.conf")).empty());
    EXPECT_TRUE(readCalibration(folder.path("")).empty());
    EXPECT_TRUE(readCalibration(folder.write("huge.conf", huge)).empty());
    EXPECT_TRUE(parseCalibration("no sections at all").empty());
    EXPECT_EQ(parseCalibration(kWholeCalibration).number("cam_FHD", "FX"), 1066.5F);
}

TEST(SensorModes, CutAndBinTheSensorForAMode) {
    const Lens sensor{2000.0, 2000.0, 1919.5, 1079.5, {}};

    const Lens binned = modeLens(MODEL_MONO_2UM, sensor, *findMode(MODEL_MONO_2UM, 1920, 1080));
    const Lens cut = modeLens(MODEL_MONO_2UM, sensor, *findMode(MODEL_MONO_2UM, 1920, 1200));

    EXPECT_DOUBLE_EQ(binned.fx, 1000.0);
    EXPECT_DOUBLE_EQ(binned.cx, 959.5);
    EXPECT_DOUBLE_EQ(binned.cy, 539.5);
    EXPECT_DOUBLE_EQ(cut.fx, 2000.0);
    EXPECT_DOUBLE_EQ(cut.cx, 959.5);
    EXPECT_DOUBLE_EQ(cut.cy, 599.5);
}

}  // namespace
}  // namespace oru
