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
    explicit ByteWriter(std::vector<uint8_t>& target) : target_(target) {}

    template <class T>
    void put(const T& value) {
        static_assert(std::is_trivially_copyable_v<T>);
        bytes(&value, sizeof(T));
    }
    void bytes(const void* from, std::size_t size) {
        const auto* first = static_cast<const uint8_t*>(from);
        target_.insert(target_.end(), first, first + size);
    }
    [[nodiscard]] std::size_t size() const { return target_.size(); }
    /// Overwrites a value written before, at a byte position inside the vector.
    template <class T>
    void patch(std::size_t at, const T& value) {
        std::memcpy(target_.data() + at, &value, sizeof(T));
    }

private:
    std::vector<uint8_t>& target_;
};

/// Reads little-endian values from bytes of unknown origin: past the end every read leaves its output alone, and `ok()`
/// is false from then on.
class ByteReader {
public:
    ByteReader(const uint8_t* data, std::size_t size) : next_(data), left_(size) {}

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
        if (!good_ || size > left_) {
            good_ = false;
            return false;
        }
        std::memcpy(to, next_, size);
        next_ += size;
        left_ -= size;
        return true;
    }
    [[nodiscard]] const uint8_t* position() const { return next_; }
    [[nodiscard]] std::size_t remaining() const { return good_ ? left_ : 0; }
    [[nodiscard]] bool ok() const { return good_; }
    bool skip(std::size_t size) {
        good_ = good_ && size <= left_;
        if (good_) {
            next_ += size;
            left_ -= size;
        }
        return good_;
    }

private:
    const uint8_t* next_;
    std::size_t left_;
    bool good_ = true;
};

}  // namespace oru::stream
