#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backends/virtual_bus/footage/FootageDecoder.hpp"
#include "backends/virtual_bus/inertial/inertial_source.hpp"
#include "backends/virtual_bus/scene/image_source.hpp"
#include "oru/Lens.hpp"

namespace oru::virtual_bus {

struct FootageSettings {
    std::string path;  ///< a folder of images, a video file, or a folder that holds mav0/
    double fps = 0.0;  ///< 0: the footage's own rate
    bool loop = false;
};

/// What footage says about itself.
struct FootageFacts {
    int width = 0;
    int height = 0;
    double fps = 0.0;
    bool has_lens = false;
    Lens lens;  ///< at its own size
    bool has_inertial = false;
};

/// Looks at footage; false with what is wrong. Never throws.
[[nodiscard]] bool probeFootage(FootageDecoder& decoder, const FootageSettings& settings, FootageFacts& facts,
                                std::string& error);

/// How footage fills an image: scaled to cover it, then cropped about the centre. The crop is even, so that pairs of
/// pixels stay whole.
struct Cover {
    int scaled_width = 0;
    int scaled_height = 0;
    int left = 0;
    int top = 0;
};
[[nodiscard]] Cover coverOf(int footageWidth, int footageHeight, int width, int height);
/// A lens given at the footage's size as it is at the image's.
[[nodiscard]] Lens coveredLens(const Lens& lens, const FootageFacts& facts, int width, int height);

/// Plays footage as images of that size; null with what is wrong.
[[nodiscard]] std::unique_ptr<ImageSource> openFootage(FootageDecoder& decoder, const FootageSettings& settings,
                                                       const FootageFacts& facts, int width, int height,
                                                       std::string& error);
/// The inertial samples of a data set, on the time axis of its images; null when it has none.
[[nodiscard]] std::unique_ptr<InertialSource> openFootageInertial(const FootageSettings& settings);

}  // namespace oru::virtual_bus
