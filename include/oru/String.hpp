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
    String(const char* text) : text_(text == nullptr ? "" : text) {}
    String(std::string text) : text_(std::move(text)) {}

    /// Valid until the string is changed or destroyed; never null.
    [[nodiscard]] const char* c_str() const { return text_.c_str(); }
    [[nodiscard]] const std::string& get() const { return text_; }
    [[nodiscard]] bool empty() const { return text_.empty(); }

    friend bool operator==(const String&, const String&) = default;

private:
    std::string text_;
};

}  // namespace oru
