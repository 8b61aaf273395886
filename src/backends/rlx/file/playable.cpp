#include "backends/rlx/file/playable.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "backends/rlx/file/scan.hpp"

namespace oru::rlx {

namespace {

/// Some copiers give the file its size before its bytes.
bool footerIsBlank(const File& file) {
    std::array<uint8_t, kFooterSize> footer{};
    const uint64_t size = file.size();
    return size >= footer.size() && file.readAt(size - footer.size(), footer.data(), footer.size()) &&
           std::ranges::all_of(footer, [](uint8_t byte) { return byte == 0; });
}

Condition scanForFrames(PlayableRecording& recording, Condition condition) {
    Scan scan = scanFrames(recording.opened, ImageCheck::TAIL);
    recording.whole = recording.opened.head_whole && scan.holes.empty();
    if (!recording.whole) {
        return Condition::DAMAGED;
    }
    recording.entries = std::move(scan.entries);
    recording.end = scan.clusters_end;
    if (!recording.opened.locked) {
        return Condition::BEING_RECORDED;
    }
    if (recording.entries.empty()) {
        return Condition::NO_WHOLE_FRAME;
    }
    return condition == Condition::DAMAGED ? Condition::CUT_OFF : condition;
}

/// What plays is in `recording` then.
Condition loadOrScan(PlayableRecording& recording) {
    const Condition condition = loadIndex(recording.opened, recording.entries);
    if (condition == Condition::INTACT) {
        recording.whole = true;
        recording.end = recording.entries.back().offset + recording.entries.back().cluster_size;
        return condition;
    }
    recording.entries.clear();
    const bool endIsMissing = condition == Condition::UNFINISHED || condition == Condition::CUT_OFF ||
                              (condition == Condition::DAMAGED && footerIsBlank(recording.opened.file));
    return endIsMissing ? scanForFrames(recording, condition) : condition;
}

}  // namespace

PlayableRecording openToPlay(const std::string& path) {
    PlayableRecording recording;
    recording.opened = openToRead(path);
    recording.condition = recording.opened.condition;
    if (recording.condition == Condition::INTACT) {
        recording.condition = loadOrScan(recording);
        recording.opened.header.facts.fps = plausibleRate(recording.opened.header.facts.fps);
    }
    return recording;
}

}  // namespace oru::rlx
