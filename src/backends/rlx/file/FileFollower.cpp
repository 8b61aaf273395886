#include "backends/rlx/file/FileFollower.hpp"

#include <array>

#include "backends/rlx/container/ebml.hpp"

namespace oru::rlx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{5};

/// The element that begins at `offset`; id 0 when its head is not there.
Element elementAt(const File& file, uint64_t offset) {
    std::array<uint8_t, 12> bytes{};
    Element element;
    const std::size_t count = file.readUpTo(offset, bytes.data(), bytes.size());
    return readElement(ByteView(bytes).first(count), element) ? element : Element{};
}

}  // namespace

FileFollower::FileFollower(const OpenedFile& recording, uint64_t end)
    : openedFile(recording), endOffset(end), lastSize(recording.file.size()), grownAt(Clock::now()) {}

bool FileFollower::next(IndexEntry& entry) {
    const uint64_t size = openedFile.file.size();
    if (size != lastSize) {
        lastSize = size;
        grownAt = Clock::now();
    }
    passVoid(size);
    std::array<uint8_t, kPrefixSize> prefix{};
    if (!openedFile.file.readAt(endOffset, prefix.data(), prefix.size())) {
        return false;
    }
    const std::optional<ClusterShape> shape = readPrefix(prefix);
    if (!shape || endOffset + shape->total > size) {
        return false;
    }
    entry = {endOffset, 0, static_cast<uint32_t>(shape->total), true, 0};
    readStoredFrame(openedFile, entry, stored);
    if (stored.check != FrameCheck::WHOLE) {
        return false;
    }
    entry.time_ns = stored.frame.time_ns;
    entry.time_ms = stored.frame.time_ms;
    entry.key = stored.frame.key;
    endOffset += shape->total;
    grownAt = Clock::now();
    return true;
}

/// What a repair blanked out.
void FileFollower::passVoid(uint64_t fileSize) {
    const Element element = elementAt(openedFile.file, endOffset);
    const uint64_t left = fileSize > endOffset ? fileSize - endOffset : 0;
    if (element.id == ID_VOID && element.size <= left && element.header_size <= left - element.size) {
        endOffset += element.header_size + element.size;
    }
}

bool FileFollower::isFinished() const {
    return elementAt(openedFile.file, endOffset).id == ID_CUES;
}

bool FileFollower::mayGrow() const {
    return Clock::now() - grownAt < kPatience && !isFinished();
}

}  // namespace oru::rlx
