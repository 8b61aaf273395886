#include "backends/calibration_fetch/calibration_check.hpp"

#include <SimpleIni.h>

#include <array>
#include <cmath>
#include <string_view>

#include "calibration/numbers.hpp"

namespace oru {
namespace {

using Document = CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>>;

constexpr std::array<const char*, 12> kCoefficients = {"k1", "k2", "p1", "p2", "k3", "k4",
                                                       "k5", "k6", "s1", "s2", "s3", "s4"};
constexpr std::array<std::array<const char*, 4>, 2> kSections = {{
    {"CAM_fhd", "CAM_fhd1200", "CAM_svga", nullptr},
    {"CAM_fhd", "CAM_fhd1200", "CAM_qhdplus", "CAM_4k"},
}};

/// As the camera will read it; NaN where the key is missing.
float number(const Document& document, const char* section, const char* key) {
    const char* text = document.GetValue(section, key, nullptr);
    return text == nullptr ? std::nanf("") : static_cast<float>(parseNumber(text));
}

bool isIntrinsicsComplete(const Document& document, const char* section) {
    const float fx = number(document, section, "fx");
    const float fy = number(document, section, "fy");
    return std::isfinite(fx) && std::isfinite(fy) && fx > 0 && fy > 0 &&
           std::isfinite(number(document, section, "cx")) && std::isfinite(number(document, section, "cy"));
}

std::string intrinsicsDefect(const Document& document, int family, Completeness completeness) {
    int found = 0;
    for (const char* section : kSections.at(static_cast<std::size_t>(family - 1))) {
        if (section == nullptr) {
            continue;
        }
        if (document.GetSection(section) == nullptr) {
            if (completeness == Completeness::UNKNOWN) {
                return std::string("section ") + section + " is missing";
            }
            continue;
        }
        if (!isIntrinsicsComplete(document, section)) {
            return std::string("section ") + section + " lacks fx, fy, cx or cy";
        }
        ++found;
    }
    return found > 0 ? std::string() : "it has no section for any resolution";
}

std::string distortionDefect(const Document& document, Completeness completeness) {
    if (document.GetSectionSize("DISTO") <= 0) {
        return "section DISTO is missing";
    }
    for (const char* key : kCoefficients) {
        const bool present = document.GetValue("DISTO", key, nullptr) != nullptr;
        if (present ? !std::isfinite(number(document, "DISTO", key)) : completeness == Completeness::UNKNOWN) {
            return std::string("DISTO:") + key + " is missing or no number";
        }
    }
    return {};
}

std::string ownerDefect(const Document& document, int serialNumber) {
    const char* serial = document.GetValue("MISC", "Serial_Number", nullptr);
    if (serial != nullptr && std::trunc(parseNumber(serial)) != static_cast<double>(serialNumber)) {
        return "it belongs to another camera";
    }
    return {};
}

}  // namespace

std::string calibrationDefect(const std::string& text, int serialNumber, Completeness completeness) {
    if (text.empty() || text.size() > kCalibrationTextLimitBytes || text.find('\0') != std::string::npos) {
        return "it is empty, too large or no text";
    }
    if (completeness == Completeness::UNKNOWN && text.back() != '\n') {
        return "it ends in the middle of a line";
    }
    Document document(true, false, false);
    if (document.LoadData(text) < 0) {
        return "it is no INI file";
    }
    const float family = std::trunc(number(document, "MISC", "Sensor_ID"));
    if (family != 1 && family != 2) {
        return "MISC:Sensor_ID is neither 1 nor 2";
    }
    std::string defect = ownerDefect(document, serialNumber);
    if (defect.empty()) {
        defect = intrinsicsDefect(document, static_cast<int>(family), completeness);
    }
    return defect.empty() ? distortionDefect(document, completeness) : defect;
}

}  // namespace oru
