#pragma once

#include <cstdint>

namespace oru {

/// Which input the camera reads; also where its IMU packets come from.
enum InputMode : int32_t {
    INPUT_MODE_NONE,
    INPUT_MODE_LIVE,
    INPUT_MODE_RECORDED,
    INPUT_MODE_STREAM,
};

}  // namespace oru
