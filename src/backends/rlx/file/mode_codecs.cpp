#include "backends/rlx/file/mode_codecs.hpp"

#include <array>

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

Bytes bitmapHeader(uint32_t width, uint32_t height, ByteView extra) {
    constexpr std::array<uint8_t, 4> kFourcc = {'F', 'F', 'V', 'H'};
    constexpr uint16_t kPlanes = 1;
    constexpr uint16_t kBitsPerPixel = 16;
    Bytes out;
    LittleEndianWriter fields(out);
    fields.put(static_cast<uint32_t>(kBitmapHeaderSize + extra.size()));
    fields.put(width);
    fields.put(height);
    fields.put(kPlanes);
    fields.put(kBitsPerPixel);
    fields.put(kFourcc);
    fields.put(width * height * 2);
    fields.zeros(16);
    fields.bytes(extra);
    return out;
}

}  // namespace oru::rlx
