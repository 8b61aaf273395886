#pragma once

#include <cstdint>

namespace oru {

/// Result of one attempt to take a frame. Only grab() turns it into an ERROR_CODE.
enum FrameStatus : int32_t {
    NO_FRAME,            ///< nothing new yet
    NEW_FRAME,           ///< a new frame is ready
    INPUT_ENDED,         ///< there will be no more
    SOURCE_UNAVAILABLE,  ///< there is no source
    SOURCE_ERROR,        ///< the source failed
};

}  // namespace oru
