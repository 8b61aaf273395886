#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace oru::rlx {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

/// Appends fields in little-endian order, as all records of the format are stored.
class FieldWriter {
public:
    explicit FieldWriter(Bytes& out) : target(out) {}

    void u8(uint8_t value) { target.push_back(value); }
    void u16(uint16_t value) { put(value, 2); }
    void u32(uint32_t value) { put(value, 4); }
    void u64(uint64_t value) { put(value, 8); }
    void i32(int32_t value) { u32(static_cast<uint32_t>(value)); }
    void f32(float value) { u32(std::bit_cast<uint32_t>(value)); }
    void bytes(ByteView view) { target.insert(target.end(), view.begin(), view.end()); }
    void zeros(std::size_t count) { target.insert(target.end(), count, 0); }
    template <std::size_t N>
    void floats(const std::array<float, N>& values) {
        for (const float value : values) {
            f32(value);
        }
    }

private:
    void put(uint64_t value, int count) {
        std::array<uint8_t, 8> raw{};
        for (std::size_t i = 0; i < raw.size(); ++i) {
            raw[i] = static_cast<uint8_t>(value >> (8 * i));
        }
        target.insert(target.end(), raw.begin(), raw.begin() + count);
    }

    Bytes& target;
};

/// Reads little-endian fields; after a read past the end every value is zero and ok() is false.
class FieldReader {
public:
    explicit FieldReader(ByteView view) : source(view) {}

    [[nodiscard]] bool ok() const { return complete; }
    [[nodiscard]] std::size_t left() const { return source.size() - position; }
    uint8_t u8() { return static_cast<uint8_t>(get(1)); }
    uint16_t u16() { return static_cast<uint16_t>(get(2)); }
    uint32_t u32() { return static_cast<uint32_t>(get(4)); }
    uint64_t u64() { return get(8); }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    float f32() { return std::bit_cast<float>(u32()); }
    ByteView bytes(std::size_t count) {
        if (!has(count)) {
            return {};
        }
        const ByteView part = source.subspan(position, count);
        position += count;
        return part;
    }
    std::string text(std::size_t count) {
        const ByteView part = bytes(count);
        return {part.begin(), part.end()};
    }
    template <std::size_t N>
    void floats(std::array<float, N>& values) {
        for (float& value : values) {
            value = f32();
        }
    }

private:
    bool has(std::size_t count) {
        complete = complete && count <= left();
        return complete;
    }
    uint64_t get(std::size_t count) {
        if (!has(count)) {
            return 0;
        }
        uint64_t value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            value |= static_cast<uint64_t>(source[position + i]) << (8 * i);
        }
        position += count;
        return value;
    }

    ByteView source;
    std::size_t position = 0;
    bool complete = true;
};

}  // namespace oru::rlx
