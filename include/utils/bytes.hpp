#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

// Numbers in the bytes of files and packets. Every operation names the order of the bytes, so that the result is the
// same on every host; a float counts as its IEEE 754 bits, a bool as one byte.

namespace oru {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

/// A number, or an array of numbers, that has a fixed size in a record.
template <class T>
concept ByteField = std::is_arithmetic_v<T> || requires {
    typename T::value_type;
    requires std::is_arithmetic_v<typename T::value_type>;
    requires std::is_same_v<T, std::array<typename T::value_type, sizeof(T) / sizeof(typename T::value_type)>>;
};

/// Copies a number and turns its bytes around where the host's order is another one.
template <std::endian Order, class T>
requires std::is_arithmetic_v<T>
void storeBytes(const T& value, uint8_t* to) {
    std::memcpy(to, &value, sizeof(T));
    if constexpr (Order != std::endian::native) {
        std::reverse(to, to + sizeof(T));
    }
}

template <std::endian Order, class T>
requires std::is_arithmetic_v<T>
void loadBytes(const uint8_t* from, T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        value = *from != 0;
    } else if constexpr (Order == std::endian::native) {
        std::memcpy(&value, from, sizeof(T));
    } else {
        std::array<uint8_t, sizeof(T)> raw;
        std::reverse_copy(from, from + sizeof(T), raw.begin());
        std::memcpy(&value, raw.data(), sizeof(T));
    }
}

template <std::endian Order, class T, std::size_t N>
void storeBytes(const std::array<T, N>& values, uint8_t* to) {
    if constexpr (Order == std::endian::native || sizeof(T) == 1) {
        std::memcpy(to, values.data(), sizeof(values));
    } else {
        for (const T& value : values) {
            storeBytes<Order>(value, to);
            to += sizeof(T);
        }
    }
}

template <std::endian Order, class T, std::size_t N>
void loadBytes(const uint8_t* from, std::array<T, N>& values) {
    if constexpr (Order == std::endian::native || sizeof(T) == 1) {
        std::memcpy(values.data(), from, sizeof(values));
    } else {
        for (T& value : values) {
            loadBytes<Order>(from, value);
            from += sizeof(T);
        }
    }
}

/// The unsigned number in all of `bytes`, at most eight.
template <std::endian Order>
constexpr uint64_t loadNumber(ByteView bytes) {
    uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        value = value << 8 | bytes[Order == std::endian::big ? i : bytes.size() - 1 - i];
    }
    return value;
}

/// The lowest bytes of `value` into all of `bytes`, at most eight.
template <std::endian Order>
constexpr void storeNumber(uint64_t value, std::span<uint8_t> bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i, value >>= 8) {
        bytes[Order == std::endian::big ? bytes.size() - 1 - i : i] = static_cast<uint8_t>(value);
    }
}

/// Appends fields to a caller's vector, whose capacity is reused from record to record.
template <std::endian Order>
class ByteWriter {
public:
    explicit ByteWriter(Bytes& bytes) : target(bytes) {}

    template <ByteField T>
    void put(const T& value) {
        std::array<uint8_t, sizeof(T)> raw;
        storeBytes<Order>(value, raw.data());
        bytes(raw);
    }
    void bytes(ByteView view) { target.insert(target.end(), view.begin(), view.end()); }
    void zeros(std::size_t count) { target.insert(target.end(), count, 0); }
    /// The lowest `count` bytes of a number, at most eight.
    void number(uint64_t value, std::size_t count) {
        std::array<uint8_t, sizeof(value)> raw;
        const std::span<uint8_t> used(raw.data(), count);
        storeNumber<Order>(value, used);
        bytes(used);
    }
    [[nodiscard]] std::size_t size() const { return target.size(); }
    /// Overwrites a value written before, at a byte position inside the vector.
    template <ByteField T>
    void patch(std::size_t at, const T& value) {
        storeBytes<Order>(value, target.data() + at);
    }

private:
    Bytes& target;
};

/// Reads fields from bytes of unknown origin: past the end every read leaves its output alone or gives zero, and `ok()`
/// is false from then on.
template <std::endian Order>
class ByteReader {
public:
    explicit ByteReader(ByteView view) : source(view) {}

    template <ByteField T>
    bool get(T& value) {
        if (!has(sizeof(T))) {
            return false;
        }
        loadBytes<Order>(source.data(), value);
        source = source.subspan(sizeof(T));
        return true;
    }
    template <ByteField T>
    T get() {
        T value{};
        (void)get(value);
        return value;
    }
    /// A view into the source; empty past the end.
    ByteView bytes(std::size_t count) {
        if (!has(count)) {
            return {};
        }
        const ByteView part = source.first(count);
        source = source.subspan(count);
        return part;
    }
    /// A number of `count` bytes, at most eight.
    uint64_t number(std::size_t count) { return loadNumber<Order>(bytes(count)); }
    [[nodiscard]] std::size_t remaining() const { return good ? source.size() : 0; }
    [[nodiscard]] bool ok() const { return good; }

private:
    bool has(std::size_t count) {
        if (!good || count > source.size()) {
            good = false;
        }
        return good;
    }

    ByteView source;
    bool good = true;
};

using LittleEndianWriter = ByteWriter<std::endian::little>;
using LittleEndianReader = ByteReader<std::endian::little>;
using BigEndianWriter = ByteWriter<std::endian::big>;
using BigEndianReader = ByteReader<std::endian::big>;

}  // namespace oru
