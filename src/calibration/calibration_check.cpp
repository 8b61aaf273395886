#include <SimpleIni.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "calibration/numbers.hpp"
#include "oru/calibration.hpp"

namespace oru {
namespace {

using Document = CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>>;

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

/// The modes of a model from full HD outwards: defects are named in this order.
std::vector<SensorMode> modesToCheck(MODEL model) {
    const auto fromFullHd = [](const SensorMode& mode) { return std::abs(mode.width * mode.height - 1920 * 1080); };
    const auto modes = sensorModes(model);
    std::vector<SensorMode> ordered(modes.begin(), modes.end());
    std::sort(ordered.begin(), ordered.end(),
              [&](const SensorMode& a, const SensorMode& b) { return fromFullHd(a) < fromFullHd(b); });
    return ordered;
}

std::string intrinsicsDefect(const Document& document, MODEL model, Completeness completeness) {
    int found = 0;
    for (const SensorMode& mode : modesToCheck(model)) {
        const char* section = mode.section;
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
    if (document.GetSectionSize(kDistortionSection) <= 0) {
        return "section DISTO is missing";
    }
    for (const char* key : kDistortionNames) {
        const bool present = document.GetValue(kDistortionSection, key, nullptr) != nullptr;
        if (present ? !std::isfinite(number(document, kDistortionSection, key))
                    : completeness == Completeness::UNKNOWN) {
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
    const MODEL model = modelOfFamily(number(document, "MISC", "Sensor_ID"));
    if (model == MODEL_UNKNOWN) {
        return "MISC:Sensor_ID is neither 1 nor 2";
    }
    std::string defect = ownerDefect(document, serialNumber);
    if (defect.empty()) {
        defect = intrinsicsDefect(document, model, completeness);
    }
    return defect.empty() ? distortionDefect(document, completeness) : defect;
}

}  // namespace oru
