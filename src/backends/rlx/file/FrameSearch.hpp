#pragma once

#include <functional>

#include "backends/rlx/file/open_recording.hpp"

namespace oru::rlx {

/// Finds the whole frames of a file without its index. A place is looked at more closely only while every field of it
/// can be a frame's, and all places together may cost twice the bytes that were searched: a damaged frame costs no more
/// than its own bytes, so that only a file made to look like frames that overlap comes to this end, and what lies
/// behind is given up. Holes of the file are passed over unread. Threads: one.
class FrameSearch {
public:
    /// The recording outlives the search.
    explicit FrameSearch(const OpenedFile& recording) : openedFile(recording), fileSize(recording.file.size()) {}

    /// Whether a whole frame begins at `offset`, its image unread; entry() and record() are its then.
    [[nodiscard]] bool frameAt(uint64_t offset);
    /// Looks for the next whole frame at or behind `from`; `goOn` is asked for each piece and answers false to end it.
    [[nodiscard]] bool findFrom(uint64_t from, const std::function<bool()>& goOn);

    [[nodiscard]] const IndexEntry& entry() const { return foundEntry; }
    [[nodiscard]] const FrameRecord& record() const { return stored.frame; }

private:
    [[nodiscard]] bool windowHolds(uint64_t offset, uint64_t count) const;
    [[nodiscard]] bool loadWindow(uint64_t& from);
    [[nodiscard]] bool searchWindow(uint64_t& from);
    [[nodiscard]] bool isFrame(uint64_t offset, ByteView prefix);
    [[nodiscard]] bool suffixIsWhole(uint64_t offset, std::size_t size, ByteView prefix);

    const OpenedFile& openedFile;
    const uint64_t fileSize;
    uint64_t allowance = kMaxRecordSize;  // bytes that candidates may still cost
    uint64_t cost = 0;                    // of the last candidate
    uint64_t windowOffset = 0;
    Bytes window;
    StoredFrame stored;
    IndexEntry foundEntry;
};

}  // namespace oru::rlx
