#include "utils/ini_text.hpp"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

namespace oru {
namespace {

constexpr std::size_t kMaxEntries = 10'000;
constexpr std::string_view kBlanks = " \t\r";

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// A line without the comment behind it, which begins with a semicolon after a blank.
std::string_view withoutComment(std::string_view line) {
    for (std::size_t i = 1; i < line.size(); ++i) {
        if (line[i] == ';' && kBlanks.find(line[i - 1]) != std::string_view::npos) {
            return trim(line.substr(0, i));
        }
    }
    return line;
}

/// Lower case (ASCII) with runs of blanks as one.
std::string normalise(std::string_view text) {
    std::string result;
    for (const char c : trim(text)) {
        if (kBlanks.find(c) != std::string_view::npos) {
            if (result.back() != ' ') {
                result.push_back(' ');
            }
        } else {
            result.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
        }
    }
    return result;
}

/// One line that is neither empty nor a comment.
bool parseLine(std::string_view line, IniEntry& entry, bool& isSection) {
    isSection = line.front() == '[';
    if (isSection) {
        if (line.back() != ']' || trim(line.substr(1, line.size() - 2)).empty()) {
            return false;
        }
        entry.section = normalise(line.substr(1, line.size() - 2));
        return true;
    }
    const auto equals = line.find('=');
    if (equals == std::string_view::npos || trim(line.substr(0, equals)).empty()) {
        return false;
    }
    entry.key = normalise(line.substr(0, equals));
    entry.value = std::string(trim(line.substr(equals + 1)));
    return true;
}

}  // namespace

bool parseIni(std::string_view text, std::vector<IniEntry>& entries, std::string& error) {
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    IniEntry entry;
    while (!text.empty()) {
        ++entry.line;
        const auto end = text.find('\n');
        const std::string_view line = withoutComment(trim(text.substr(0, end)));
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        if (line.empty() || line.front() == ';' || line.front() == '#') {
            continue;
        }
        bool isSection = false;
        if (line.find('\0') != std::string_view::npos || !parseLine(line, entry, isSection)) {
            error = fmt::format("line {}: neither a [section] nor key = value", entry.line);
            return false;
        }
        if (!isSection) {
            if (entries.size() == kMaxEntries) {
                error = fmt::format("line {}: more than {} entries", entry.line, kMaxEntries);
                return false;
            }
            entries.push_back(entry);
        }
    }
    return true;
}

bool toNumber(std::string_view text, double& number) {
    text = trim(text);
    if (text.starts_with('+')) {
        text.remove_prefix(1);
    }
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && std::isfinite(number);
}

bool toSwitch(std::string_view text, bool& on) {
    const std::string word = normalise(text);
    on = word == "on" || word == "yes" || word == "true" || word == "1";
    return on || word == "off" || word == "no" || word == "false" || word == "0";
}

}  // namespace oru
