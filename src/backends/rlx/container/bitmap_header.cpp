#include "backends/rlx/container/bitmap_header.hpp"

namespace oru::rlx {

Bytes bitmapHeader(const Fourcc& coder, uint32_t width, uint32_t height, ByteView extra) {
    constexpr uint16_t kPlanes = 1;
    constexpr uint16_t kBitsPerPixel = 16;
    Bytes out;
    LittleEndianWriter fields(out);
    fields.put(static_cast<uint32_t>(kBitmapHeaderSize + extra.size()));
    fields.put(width);
    fields.put(height);
    fields.put(kPlanes);
    fields.put(kBitsPerPixel);
    fields.put(coder);
    fields.put(width * height * 2);
    fields.zeros(16);
    fields.bytes(extra);
    return out;
}

}  // namespace oru::rlx
