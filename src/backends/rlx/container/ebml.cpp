#include "backends/rlx/container/ebml.hpp"

#include <bit>

namespace oru::rlx {

std::size_t idBytes(uint32_t id) {
    return id > 0xFFFFFF ? 4 : (id > 0xFFFF ? 3 : (id > 0xFF ? 2 : 1));
}

void putBigEndian(Bytes& out, uint64_t value, std::size_t count) {
    BigEndianWriter(out).number(value, count);
}

void putId(Bytes& out, uint32_t id) {
    putBigEndian(out, id, idBytes(id));
}

void putSize(Bytes& out, uint64_t size) {
    putBigEndian(out, size | (uint64_t{1} << 56), kSizeBytes);
}

void putMaster(Bytes& out, uint32_t id, ByteView body) {
    putBinary(out, id, body);
}

void putBinary(Bytes& out, uint32_t id, ByteView data) {
    putId(out, id);
    putSize(out, data.size());
    out.insert(out.end(), data.begin(), data.end());
}

void putText(Bytes& out, uint32_t id, std::string_view text) {
    putId(out, id);
    putSize(out, text.size());
    out.insert(out.end(), text.begin(), text.end());
}

void putUnsigned(Bytes& out, uint32_t id, uint64_t value) {
    putId(out, id);
    putSize(out, 8);
    putBigEndian(out, value, 8);
}

void putSigned(Bytes& out, uint32_t id, int64_t value) {
    putUnsigned(out, id, static_cast<uint64_t>(value));
}

void putFloat(Bytes& out, uint32_t id, double value) {
    putUnsigned(out, id, std::bit_cast<uint64_t>(value));
}

void putVoid(Bytes& out, std::size_t total) {
    putId(out, ID_VOID);
    putSize(out, total - 1 - kSizeBytes);
    out.insert(out.end(), total - 1 - kSizeBytes, 0);
}

namespace {

/// Reads a big-endian number whose first byte's leading zeros tell its length.
bool readNumber(ByteView view, std::size_t longest, bool keepMarker, uint64_t& value, std::size_t& length) {
    if (view.empty() || view[0] == 0) {
        return false;
    }
    length = static_cast<std::size_t>(std::countl_zero(view[0])) + 1;
    if (length > longest || length > view.size()) {
        return false;
    }
    value = loadNumber<std::endian::big>(view.first(length));
    if (!keepMarker) {
        value &= ~uint64_t{0} >> (64 - 7 * length);
    }
    return true;
}

}  // namespace

bool readElement(ByteView view, Element& element) {
    uint64_t id = 0;
    std::size_t idLength = 0;
    std::size_t sizeLength = 0;
    if (!readNumber(view, 4, true, id, idLength) ||
        !readNumber(view.subspan(idLength), 8, false, element.size, sizeLength)) {
        return false;
    }
    const uint64_t allOnes = (uint64_t{1} << (7 * sizeLength)) - 1;
    if (element.size == allOnes) {
        element.size = kUnknownSize;
    }
    element.id = static_cast<uint32_t>(id);
    element.header_size = idLength + sizeLength;
    return true;
}

}  // namespace oru::rlx
