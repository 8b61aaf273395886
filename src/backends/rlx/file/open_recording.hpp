#pragma once

#include <string>
#include <vector>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/file/File.hpp"

namespace oru::rlx {

/// What a recording looks like before it is read.
enum class Condition {
    INTACT,
    MISSING,
    NOT_A_FILE,  ///< a directory or a device
    UNREADABLE,  ///< no permission, or the medium fails
    EMPTY,
    NOT_OURS,
    TOO_NEW,         ///< written in a version that this reader does not know
    BEING_RECORDED,  ///< or being repaired
    NO_WHOLE_FRAME,
    UNFINISHED,  ///< recording or repair ended without a clean close
    CUT_OFF,     ///< finished, then shortened
    DAMAGED,     ///< head or index do not belong to each other
};

/// Whether repairFile can help.
[[nodiscard]] bool isRepairable(Condition condition);
/// A sentence's end for the log, as in "FILE: is empty".
[[nodiscard]] const char* describe(Condition condition);

/// Opens a recording to read or to change, and locks it (shared or alone). INTACT here means: open and ours.
struct OpenedFile {
    Condition condition = Condition::MISSING;
    File file;
    HeaderRecord header;
    uint64_t head_size = 0;    ///< of the head that belongs to `header`
    uint64_t frames_from = 0;  ///< no frame begins before; `head_size` unless the head in the file is another
    bool head_whole = false;   ///< every byte of the head but for what finishing changes is as it must be
};
[[nodiscard]] OpenedFile openRecording(const std::string& path, bool toChange);

/// A finished recording's index, checked against head and trailer byte for byte; INTACT, NO_WHOLE_FRAME, UNFINISHED,
/// CUT_OFF or DAMAGED. Reads no frame.
[[nodiscard]] Condition loadIndex(const OpenedFile& recording, std::vector<IndexEntry>& entries);

/// A frame's Cluster read and checked.
enum class FrameCheck { WHOLE, DAMAGED };
/// Reads the Cluster of an entry into `cluster`; `frame` and `image` (a part of `cluster`) hold only when WHOLE.
/// When the record is whole but the image is not, `frame` holds and `record_whole` is set.
struct StoredFrame {
    FrameCheck check = FrameCheck::DAMAGED;
    bool record_whole = false;
    FrameRecord frame;
    ByteView image;
    Bytes cluster;
    Bytes scratch;
};
void readStoredFrame(const OpenedFile& recording, const IndexEntry& entry, StoredFrame& out);

}  // namespace oru::rlx
