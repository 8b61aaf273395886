#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

namespace oru::stream {

static_assert(std::endian::native == std::endian::little, "records are written in the host's order");

/// Appends little-endian values to a caller's vector, whose capacity is reused from record to record.
class ByteWriter {
public:
    explicit ByteWriter(std::vector<uint8_t>& bytes) : target(bytes) {}

    template <class T>
    void put(const T& value) {
        static_assert(std::is_trivially_copyable_v<T>);
        bytes(&value, sizeof(T));
    }
    void bytes(const void* from, std::size_t size) {
        const auto* first = static_cast<const uint8_t*>(from);
        target.insert(target.end(), first, first + size);
    }
    [[nodiscard]] std::size_t size() const { return target.size(); }
    /// Overwrites a value written before, at a byte position inside the vector.
    template <class T>
    void patch(std::size_t at, const T& value) {
        std::memcpy(target.data() + at, &value, sizeof(T));
    }

private:
    std::vector<uint8_t>& target;
};

/// Reads little-endian values from bytes of unknown origin: past the end every read leaves its output alone, and `ok()`
/// is false from then on.
class ByteReader {
public:
    ByteReader(const uint8_t* data, std::size_t size) : next(data), left(size) {}

    template <class T>
    bool get(T& value) {
        static_assert(std::is_trivially_copyable_v<T>);
        return bytes(&value, sizeof(T));
    }
    bool get(bool& value) {
        uint8_t raw = 0;
        if (!get(raw)) {
            return false;
        }
        value = raw != 0;
        return true;
    }
    bool bytes(void* to, std::size_t size) {
        if (!good || size > left) {
            good = false;
            return false;
        }
        std::memcpy(to, next, size);
        next += size;
        left -= size;
        return true;
    }
    [[nodiscard]] const uint8_t* position() const { return next; }
    [[nodiscard]] std::size_t remaining() const { return good ? left : 0; }
    [[nodiscard]] bool ok() const { return good; }
    bool skip(std::size_t size) {
        good = good && size <= left;
        if (good) {
            next += size;
            left -= size;
        }
        return good;
    }

private:
    const uint8_t* next;
    std::size_t left;
    bool good = true;
};

}  // namespace oru::stream
