#pragma once

#include <string>
#include <utility>

namespace oru {

/// The kit's owning character string: a plain copyable value.
/// Threads: as std::string.
class String {
public:
    String() = default;
    /// Copies a zero-terminated text; null gives the empty string.
    String(const char* text) : content(text == nullptr ? "" : text) {}
    String(std::string text) : content(std::move(text)) {}

    /// Valid until the string is changed or destroyed; never null.
    [[nodiscard]] const char* c_str() const { return content.c_str(); }
    [[nodiscard]] const std::string& get() const { return content; }
    [[nodiscard]] bool empty() const { return content.empty(); }

    friend bool operator==(const String&, const String&) = default;

private:
    std::string content;
};

}  // namespace oru
