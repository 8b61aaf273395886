#include <gtest/gtest.h>

#include "oru/calibration.hpp"
#include "unit/calibration/calibration_texts.hpp"

namespace oru {
namespace {

constexpr int kSerial = 30010001;

bool isSound(const std::string& text, Completeness completeness) {
    return calibrationDefect(text, kSerial, completeness).empty();
}

TEST(CalibrationCheck, AcceptsCalibrations) {
    const std::string family2 = "[MISC]\nSensor_ID=2.9\n" + cameraSection("4K") + kLens;
    const std::string owned = "[misc]\nsensor_id=1\nSERIAL_NUMBER=30010001\n" + cameraSection("FHD1200") + kLens;

    for (const std::string& text : {kWholeCalibration, family2, owned, "\xEF\xBB\xBF" + kWholeCalibration,
                                    kMisc + cameraSection("svga") + "[DISTO]\nk1=0"}) {
        EXPECT_EQ(calibrationDefect(text, kSerial, Completeness::KNOWN), "") << text;
    }
    EXPECT_TRUE(isSound(kWholeCalibration, Completeness::UNKNOWN));
}

TEST(CalibrationCheck, RefusesWhatIsNoneOfThisCamera) {
    const std::string fhd = cameraSection("fhd");
    const struct {
        const char* name;
        std::string text;
    } cases[] = {
        {"empty", ""},
        {"page", "<html><body>404 [MISC] not found</body></html>"},
        {"binary", std::string("\x7f"
                               "ELF\0\0",
                               6) +
                       kWholeCalibration},
        {"too large", kWholeCalibration + std::string(kCalibrationTextLimitBytes, '\n')},
        {"no sensor family", fhd + kLens},
        {"unknown family", "[MISC]\nSensor_ID=3\n" + fhd + kLens},
        {"family no number", "[MISC]\nSensor_ID=nan\n" + fhd + kLens},
        {"no resolution", kMisc + kLens},
        {"resolution of the other family", kMisc + cameraSection("4k") + kLens},
        {"no principal point", kMisc + "[CAM_fhd]\nfx=1\nfy=1\ncx=5\n" + kLens},
        {"no focal length", kMisc + "[CAM_fhd]\nfx=0\nfy=1\ncx=5\ncy=5\n" + kLens},
        {"infinite focal length", kMisc + "[CAM_fhd]\nfx=inf\nfy=1\ncx=5\ncy=5\n" + kLens},
        {"no lens", kMisc + fhd},
        {"empty lens", kMisc + fhd + "[DISTO]\n"},
        {"lens no number", kMisc + fhd + "[DISTO]\nk1=nan\n"},
        {"another camera's", "[MISC]\nSensor_ID=1\nSerial_Number=30010002\n" + fhd + kLens},
    };
    for (const auto& [name, text] : cases) {
        EXPECT_FALSE(isSound(text, Completeness::KNOWN)) << name;
    }
}

TEST(CalibrationCheck, RefusesEveryShorterTextWhoseLengthNobodyAnnounced) {
    for (std::size_t size = 0; size < kWholeCalibration.size(); ++size) {
        EXPECT_FALSE(isSound(kWholeCalibration.substr(0, size), Completeness::UNKNOWN)) << size;
    }
}

}  // namespace
}  // namespace oru
