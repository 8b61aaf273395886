#include "koruone/runs/frame_range.hpp"

#include <algorithm>
#include <cmath>

#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

constexpr double kSecond = 1e9;
constexpr std::size_t kDigitsOfATime = 16;

/// "2.5", "1:02.5", "1:00:00"; nothing below 0.
std::optional<double> parseClock(std::string_view text) {
    double seconds = 0.0;
    while (true) {
        const std::size_t colon = text.find(':');
        const auto part = parseNumber<double>(text.substr(0, colon));
        if (!part || !(*part >= 0.0) || !std::isfinite(*part)) {
            return std::nullopt;
        }
        seconds = seconds * 60.0 + *part;
        if (colon == std::string_view::npos) {
            return seconds;
        }
        text.remove_prefix(colon + 1);
    }
}

oru::Timestamp timeOf(const oru::RecordedFile& recording, const FramePlace& place) {
    return place.kind == FramePlace::Kind::TIME
               ? place.time
               : recording.frameTime(0) + static_cast<oru::Timestamp>(std::llround(place.seconds * kSecond));
}

}  // namespace

std::optional<FramePlace> parseFramePlace(const std::string& text) {
    FramePlace place;
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if (digits && text.size() >= kDigitsOfATime) {
        const auto time = parseNumber<oru::Timestamp>(text);
        place.kind = FramePlace::Kind::TIME;
        place.time = time.value_or(0);
        return time ? std::optional(place) : std::nullopt;
    }
    if (digits) {
        const auto number = parseNumber<int>(text);
        place.number = number.value_or(0);
        return number ? std::optional(place) : std::nullopt;
    }
    const std::string_view clock = text.ends_with('s') ? std::string_view(text).substr(0, text.size() - 1) : text;
    const auto seconds = parseClock(clock);
    place.kind = FramePlace::Kind::SECONDS;
    place.seconds = seconds.value_or(0.0);
    return seconds && *seconds < 1e9 ? std::optional(place) : std::nullopt;
}

int firstFrameAt(const oru::RecordedFile& recording, const FramePlace& place) {
    return place.kind == FramePlace::Kind::NUMBER ? std::min(place.number, recording.frameCount())
                                                  : recording.frameAt(timeOf(recording, place));
}

int lastFrameAt(const oru::RecordedFile& recording, const FramePlace& place) {
    return place.kind == FramePlace::Kind::NUMBER ? std::min(place.number, recording.frameCount() - 1)
                                                  : recording.frameAt(timeOf(recording, place) + 1) - 1;
}

RateChooser::RateChooser(double wanted, double source)
    : periodNs(wanted > 0.0 ? kSecond / wanted : 0.0), toleranceNs(source > 0.0 ? 0.5 * kSecond / source : 0.0) {}

bool RateChooser::takes(oru::Timestamp time) {
    if (first == 0) {
        first = time;
        return true;
    }
    const double elapsed = static_cast<double>(time - first);
    if (elapsed + toleranceNs < (taken + 1.0) * periodNs) {
        return false;
    }
    // A gap in the recording is not made up for.
    taken = periodNs > 0.0 ? std::max(taken + 1.0, std::floor((elapsed + toleranceNs) / periodNs)) : 0.0;
    return true;
}

}  // namespace koruone
