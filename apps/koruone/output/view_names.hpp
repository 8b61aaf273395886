#pragma once

#include "oru/image.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {

/// The views as options name them.
inline const Choices<oru::VIEW> kViews{
    {"rectified", oru::RECTIFIED},
    {"rectified_gray", oru::RECTIFIED_GRAY},
    {"unrectified", oru::UNRECTIFIED},
    {"unrectified_gray", oru::UNRECTIFIED_GRAY},
};

}  // namespace koruone
