#include "backends/rlx/file/mode_codecs.hpp"

namespace oru::rlx {

coding::VideoCodec modeCodec(RLX_COMPRESSION_MODE mode) {
    switch (mode) {
        case RLX_H264:
            return coding::VideoCodec::H264;
        case RLX_H265:
            return coding::VideoCodec::H265;
        case RLX_LOSSLESS:
            return coding::VideoCodec::FFVHUFF;
        case RLX_FFV1:
            return coding::VideoCodec::FFV1;
        default:
            return coding::VideoCodec::NONE;
    }
}

}  // namespace oru::rlx
