#pragma once

#include <optional>
#include <string>

#include "oru/RecordedFile.hpp"

namespace koruone {

/// A place in a recording: the number of a frame ("120"), seconds from its start ("2.5s", "2.5", "1:02") or a time in
/// nanoseconds since 1970, which has at least 16 digits.
struct FramePlace {
    enum class Kind { NUMBER, SECONDS, TIME } kind = Kind::NUMBER;
    int number = 0;
    double seconds = 0.0;
    oru::Timestamp time = 0;
};
/// Nothing for any other text.
std::optional<FramePlace> parseFramePlace(const std::string& text);

/// The first frame at or after the place; frameCount() when there is none.
int firstFrameAt(const oru::RecordedFile& recording, const FramePlace& place);
/// The last frame at or before the place; -1 when there is none.
int lastFrameAt(const oru::RecordedFile& recording, const FramePlace& place);

/// Chooses frames of a faster source for a rate: every one whose time has come.
class RateChooser {
public:
    /// Frames per second of both; a wanted 0 takes every frame.
    RateChooser(double wanted, double source);
    [[nodiscard]] bool takes(oru::Timestamp time);

private:
    double periodNs = 0.0;
    double toleranceNs = 0.0;
    oru::Timestamp first = 0;
    double taken = 0.0;
};

}  // namespace koruone
