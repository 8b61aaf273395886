#include "koruone/camera/control_table.hpp"

#include <strings.h>

#include <array>

namespace koruone {
namespace {

using Kind = ControlKind;

constexpr std::array kControls{
    Control{oru::SETTING_0, "SETTING_0", Kind::VALUE, {}},
    Control{oru::SETTING_1, "SETTING_1", Kind::VALUE, {}},
    Control{oru::SETTING_2, "SETTING_2", Kind::VALUE, {}},
    Control{oru::SETTING_3, "SETTING_3", Kind::VALUE, {}},
    Control{oru::SHARPNESS, "SHARPNESS", Kind::VALUE, {}},
    Control{oru::SETTING_5, "SETTING_5", Kind::VALUE, {}},
    Control{oru::GAIN, "GAIN", Kind::VALUE, oru::AEC_AGC},
    Control{oru::EXPOSURE, "EXPOSURE", Kind::VALUE, oru::AEC_AGC},
    Control{oru::AEC_AGC, "AEC_AGC", Kind::VALUE, {}},
    Control{oru::AEC_AGC_ROI, "AEC_AGC_ROI", Kind::REGION, {}},
    Control{oru::SETTING_10, "SETTING_10", Kind::VALUE, oru::SETTING_10_AUTO},
    Control{oru::SETTING_10_AUTO, "SETTING_10_AUTO", Kind::VALUE, {}},
    Control{oru::SETTING_12, "SETTING_12", Kind::WRITE_ONLY, {}},
    Control{oru::GMSL_SETTING_13, "GMSL_SETTING_13", Kind::VALUE, oru::AEC_AGC},
    Control{oru::GMSL_SETTING_14, "GMSL_SETTING_14", Kind::VALUE, oru::AEC_AGC},
    Control{oru::GMSL_SETTING_15, "GMSL_SETTING_15", Kind::VALUE, oru::AEC_AGC},
    Control{oru::RANGE_SETTING_16, "RANGE_SETTING_16", Kind::RANGE, {}},
    Control{oru::RANGE_SETTING_17, "RANGE_SETTING_17", Kind::RANGE, {}},
    Control{oru::RANGE_SETTING_18, "RANGE_SETTING_18", Kind::RANGE, {}},
    Control{oru::GMSL_SETTING_19, "GMSL_SETTING_19", Kind::VALUE, {}},
    Control{oru::GMSL_SETTING_20, "GMSL_SETTING_20", Kind::VALUE, {}},
};

}  // namespace

std::span<const Control> controls() {
    return kControls;
}

const Control* findControl(const std::string& name) {
    for (const Control& control : kControls) {
        if (strcasecmp(control.name, name.c_str()) == 0) {
            return &control;
        }
    }
    return nullptr;
}

const char* kindName(ControlKind kind) {
    switch (kind) {
        case Kind::VALUE:
            return "value";
        case Kind::WRITE_ONLY:
            return "write only";
        case Kind::REGION:
            return "region";
        case Kind::RANGE:
            return "range";
    }
    return "";
}

}  // namespace koruone
