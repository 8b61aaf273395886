#pragma once

#include <string>
#include <vector>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/file/File.hpp"
#include "oru/recording.hpp"

namespace oru::rlx {

using Condition = RECORDING_CONDITION;

/// INTACT as the condition of an opened file means: open and ours.
struct OpenedFile {
    Condition condition = Condition::MISSING;
    File file;
    bool locked = false;
    bool writable = false;
    HeaderRecord header;
    uint64_t head_size = 0;    ///< of the head that belongs to `header`
    uint64_t frames_from = 0;  ///< no frame begins before; `head_size` unless the head in the file is another
    bool head_whole = false;   ///< every byte of the head but for what finishing changes is as it must be
};
/// Opens a recording to check or to change it, and locks it (shared or alone); BEING_RECORDED when it cannot.
[[nodiscard]] OpenedFile openRecording(const std::string& path, bool toChange);
/// Opens a recording to play it: locked shared unless it is being recorded or repaired.
[[nodiscard]] OpenedFile openToRead(const std::string& path);

/// A finished recording's index, checked against head and trailer byte for byte; INTACT, NO_WHOLE_FRAME, UNFINISHED,
/// CUT_OFF or DAMAGED. Reads no frame.
[[nodiscard]] Condition loadIndex(const OpenedFile& recording, std::vector<IndexEntry>& entries);

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
