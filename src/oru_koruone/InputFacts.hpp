#pragma once

#include <cstdint>
#include <optional>

#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru {

/// The value of image_flip that leaves the flip to the input.
inline constexpr int kAutomaticFlip = 2;

/// The models that a recording or a stream may come from.
constexpr bool isDrivenModel(MODEL model) {
    return model == MODEL_MONO_3UM || model == MODEL_MONO_2UM;
}

/// What an input says of itself when it is opened. A fact that it was not asked for, or does not give, leaves the
/// camera's own as it is.
struct InputFacts {
    std::optional<int32_t> serial_number;
    std::optional<MODEL> model;
    std::optional<MODEL>
        described_model;  ///< what the camera's description says: asked again once the device is set up
    std::optional<uint32_t> camera_firmware;
    std::optional<uint32_t> sensors_firmware;
    std::optional<Resolution> image_size;
    std::optional<RESOLUTION> resolution;
    std::optional<int32_t> fps;
    std::optional<float> sharpness_factor;
    std::optional<bool> flipped;  ///< counts where the application left the flip to the input; nobody knows: false
    std::optional<ImuCalibration> imu_calibration;
    bool has_imu = false;
};

}  // namespace oru
