#pragma once

#include <string>
#include <vector>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/file/File.hpp"
#include "oru/recording.hpp"

namespace oru::rlx {

using Condition = RECORDING_CONDITION;

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

/// Opens a finished recording to read, with its index. A rate that no camera has becomes 0: the head cannot be compared
/// or built from `recording` any more.
[[nodiscard]] Condition openWithIndex(const std::string& path, OpenedFile& recording, std::vector<IndexEntry>& entries);

/// A frame's Cluster read and checked.
enum class FrameCheck { WHOLE, DAMAGED };
/// Reads the Cluster of an entry; `frame` and `image` hold only when WHOLE. When the record is whole but the image is
/// not, `frame` holds and `record_whole` is set. No memory is taken for a size that the frame's framing does not
/// confirm or no image of this recording can have.
struct StoredFrame {
    FrameCheck check = FrameCheck::DAMAGED;
    bool record_whole = false;
    FrameRecord frame;
    Bytes image;
    Bytes suffix;
    Bytes scratch;
};
void readStoredFrame(const OpenedFile& recording, const IndexEntry& entry, StoredFrame& out);

}  // namespace oru::rlx
