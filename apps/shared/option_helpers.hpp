#pragma once

#include <strings.h>
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace koruone {

// Options whose complaints say in one sentence what would be right.

/// The whole text as a number, else nothing. No blanks, no sign but "-".
template <class T>
std::optional<T> parseNumber(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

/// An option that takes a whole number from `low` to `high`. `Target` is a number or an optional one.
template <class Target, class Number>
CLI::Option* addNumberOption(CLI::App& command, const std::string& name, Target& target, Number low, Number high,
                             const std::string& text) {
    const auto take = [&target, low, high, name](const std::string& value) {
        const auto number = parseNumber<Number>(value);
        if (!number || *number < low || *number > high) {
            const bool openEnded = std::cmp_greater_equal(high, std::numeric_limits<int32_t>::max());
            const std::string to = openEnded ? "" : " to " + std::to_string(high);
            throw CLI::ValidationError(name, "'" + value + "' is not a whole number from " + std::to_string(low) + to);
        }
        target = *number;
    };
    return command.add_option_function<std::string>(name, take, text)->type_name("N");
}

/// An option that takes seconds above 0, also a fraction of one. `Target` is a number or an optional one.
template <class Target>
CLI::Option* addSecondsOption(CLI::App& command, const std::string& name, Target& target, const std::string& text) {
    constexpr double kMost = 1e9;
    const auto take = [&target, name](const std::string& value) {
        const auto seconds = parseNumber<double>(value);
        if (!seconds || !(*seconds > 0.0) || *seconds > kMost) {
            throw CLI::ValidationError(name, "'" + value + "' is not a number of seconds above 0, such as 2.5");
        }
        target = *seconds;
    };
    return command.add_option_function<std::string>(name, take, text)->type_name("SECONDS");
}

/// An option or argument that names a file or directory; an empty name is refused.
inline CLI::Option* addPathOption(CLI::App& command, const std::string& name, std::string& path,
                                  const std::string& text, const std::string& form = "FILE") {
    const auto filled = [form](const std::string& value) {
        return value.empty() ? "an empty name is no " + form : std::string();
    };
    return command.add_option(name, path, text)->check(CLI::Validator(filled, ""))->type_name(form);
}

/// The names with their values, in the order in which they are shown.
template <class T>
using Choices = std::vector<std::pair<const char*, T>>;

/// An option that takes one of a few names, in any case. `Target` is a T or an optional one.
template <class Target, class T>
CLI::Option* addChoiceOption(CLI::App& command, const std::string& name, Target& target, const Choices<T>& choices,
                             const std::string& text) {
    const auto take = [&target, choices, name](const std::string& value) {
        std::string names;
        for (const auto& [choice, meaning] : choices) {
            if (strcasecmp(choice, value.c_str()) == 0) {
                target = meaning;
                return;
            }
            names += (names.empty() ? "" : ", ") + std::string(choice);
        }
        throw CLI::ValidationError(name, "'" + value + "' is none of " + names);
    };
    return command.add_option_function<std::string>(name, take, text)->type_name("NAME");
}

}  // namespace koruone
