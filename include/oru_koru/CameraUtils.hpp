#pragma once

#include "oru/image.hpp"

namespace oru {

/// Whether a size can be served from an image. A request whose area is 0 becomes the image size.
/// When it is too wide (or else too high) that dimension is clamped, a warning logged and false returned.
bool checkRequestedResolution(Resolution& requested, Resolution& image);

}  // namespace oru
