#pragma once

#include <array>
#include <charconv>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "oru/text.hpp"

// How the values of a record are shown; for the sources of oru/text.hpp.

namespace oru::texts {

inline std::string shown(bool value) {
    return value ? "true" : "false";
}

template <class Number>
requires std::is_arithmetic_v<Number> std::string shown(Number value) {
    std::array<char, 64> text{};
    const std::to_chars_result end = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), end.ptr};
}

inline std::string shown(std::string_view text) {
    return '"' + std::string(text) + '"';
}

inline std::string shown(const char* text) {
    return shown(std::string_view(text == nullptr ? "" : text));
}

inline std::string shown(const std::string& text) {
    return shown(std::string_view(text));
}

inline std::string shown(const String& text) {
    return shown(std::string_view(text.get()));
}

template <class Value>
std::string listed(std::span<const Value> values) {
    std::string text;
    for (const Value& value : values) {
        text += (text.empty() ? "" : ", ") + shown(value);
    }
    return "(" + text + ")";
}

template <class Value, std::size_t N>
inline std::string shown(const std::array<Value, N>& values) {
    return listed(std::span<const Value>(values));
}

template <class Value, std::size_t N>
inline std::string shown(const VectorN<Value, N>& values) {
    return listed(std::span<const Value>(values.data(), N));
}

inline std::string shown(const Matrix3f& matrix) {
    std::string text;
    for (std::size_t row = 0; row < 3; ++row) {
        text += (row == 0 ? "" : ", ") + shown(std::array{matrix(row, 0), matrix(row, 1), matrix(row, 2)});
    }
    return "(" + text + ")";
}

/// Records in braces, enumerations and sizes as they are.
template <class Value>
requires requires(const Value& value) {
    toString(value);
}
inline std::string shown(const Value& value) {
    const std::string text = toString(value).get();
    return std::is_enum_v<Value> || std::is_same_v<Value, Resolution> ? text : "{" + text + "}";
}

/// One line of "field=value".
class Line {
public:
    template <class Value>
    Line& with(const char* field, const Value& value) {
        text += (text.empty() ? "" : " ") + std::string(field) + "=" + shown(value);
        return *this;
    }
    operator String() const { return text; }

private:
    std::string text;
};

}  // namespace oru::texts
