#include "backends/rlx/file/scan.hpp"

#include <algorithm>
#include <array>

#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/file/FrameSearch.hpp"

namespace oru::rlx {

namespace {

constexpr uint64_t kTailMs = 2000;
constexpr std::size_t kFramesBetweenQuestions = 256;

/// Bytes of a Void element at `offset`, 0 when there is none.
uint64_t voidAt(const OpenedFile& recording, uint64_t offset, uint64_t fileSize) {
    std::array<uint8_t, 12> bytes{};
    Element element;
    const std::size_t count = recording.file.readUpTo(offset, bytes.data(), bytes.size());
    if (!readElement(ByteView(bytes).first(count), element) || element.id != ID_VOID ||
        element.size > fileSize - offset) {
        return 0;
    }
    return element.header_size + element.size;
}

void leaveOutBadImages(const OpenedFile& recording, ImageCheck check, Scan& scan, StoredFrame& scratch,
                       const RecordingProgress& progress) {
    const uint64_t last = scan.entries.empty() ? 0 : scan.entries.back().time_ms;
    const uint64_t from = check == ImageCheck::ALL || last < kTailMs ? 0 : last - kTailMs;
    const auto isBad = [&](const IndexEntry& entry) {
        if (entry.time_ms < from || scan.stopped) {
            return false;
        }
        scan.stopped = progress && !progress(entry.offset, recording.file.size());
        readStoredFrame(recording, entry, scratch);
        if (scratch.check == FrameCheck::WHOLE) {
            return false;
        }
        scan.holes.push_back({entry.offset, entry.cluster_size});
        ++scan.bad_images;
        return true;
    };
    std::erase_if(scan.entries, isBad);
}

}  // namespace

Scan scanFrames(const OpenedFile& recording, ImageCheck check, const RecordingProgress& progress) {
    Scan scan;
    FrameSearch search(recording);
    const uint64_t fileSize = recording.file.size();
    uint64_t offset = recording.frames_from;
    uint64_t expectedNumber = 0;
    const auto goOn = [&] {
        scan.stopped = scan.stopped || (progress && !progress(0, fileSize));
        return !scan.stopped;
    };
    while (offset + kMinClusterSize <= fileSize) {
        if (scan.entries.size() % kFramesBetweenQuestions == 0 && !goOn()) {
            break;
        }
        if (!search.frameAt(offset)) {
            const uint64_t behindVoid = offset + voidAt(recording, offset, fileSize);
            if (behindVoid == offset || !search.frameAt(behindVoid)) {
                if (!search.findFrom(offset + 1, goOn)) {
                    break;
                }
                const uint64_t hole = std::max(offset, recording.head_size);
                if (hole < search.entry().offset) {
                    scan.holes.push_back({hole, search.entry().offset - hole});
                }
            }
        }
        const uint64_t number = search.record().number;
        scan.missing_frames += number > expectedNumber ? number - expectedNumber : 0;
        expectedNumber = number + 1;
        scan.entries.push_back(search.entry());
        offset = search.entry().offset + search.entry().cluster_size;
    }
    scan.head_fits = scan.entries.empty() || scan.entries.front().offset >= recording.head_size;
    StoredFrame scratch;
    leaveOutBadImages(recording, check, scan, scratch, progress);
    scan.clusters_end =
        scan.entries.empty() ? recording.head_size : scan.entries.back().offset + scan.entries.back().cluster_size;
    std::erase_if(scan.holes, [&](const Hole& hole) { return hole.offset >= scan.clusters_end; });
    return scan;
}

}  // namespace oru::rlx
