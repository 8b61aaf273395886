#include "backends/rlx/file/repair.hpp"

#include <unistd.h>

#include <algorithm>

#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/file/finalise.hpp"

namespace oru::rlx {

namespace {

constexpr int kRepaired = 0;
constexpr int kOutputRefused = 2;
constexpr int kBadCompression = 3;

bool markUnfinished(File& file) {
    Bytes unknown;
    putSize(unknown, kUnknownSize);
    return file.writeAt(segmentSizeOffset(), unknown) && file.syncData();
}

/// Writes only the bytes that differ, so that a whole copy of the record stays whole throughout.
bool restoreHead(OpenedFile& recording) {
    const Bytes right = buildHead(recording.header, std::nullopt);
    Bytes stored(right.size());
    stored.resize(recording.file.readUpTo(0, stored.data(), stored.size()));
    stored.resize(right.size());
    std::size_t i = 0;
    while (i < right.size()) {
        std::size_t end = i;
        while (end < right.size() && stored[end] != right[end]) {
            ++end;
        }
        if (end > i && !recording.file.writeAt(i, ByteView(right).subspan(i, end - i))) {
            return false;
        }
        i = end + 1;
    }
    return recording.file.syncData();
}

/// False where the head of this header or the Void elements would cover bytes of whole frames.
bool hasRoomInPlace(const Walk& walk) {
    const auto holdsVoid = [](const Hole& hole) { return hole.size >= 1 + kSizeBytes; };
    return walk.head_fits && std::ranges::all_of(walk.holes, holdsVoid);
}

/// Turns each hole into a Void element; what it contained stays inside.
bool voidHoles(File& file, const std::vector<Hole>& holes) {
    for (const Hole& hole : holes) {
        Bytes header;
        putId(header, ID_VOID);
        putSize(header, hole.size - 1 - kSizeBytes);
        if (!file.writeAt(hole.offset, header)) {
            return false;
        }
    }
    return holes.empty() || file.syncData();
}

bool repairInPlace(OpenedFile& recording, const Walk& walk) {
    return markUnfinished(recording.file) && restoreHead(recording) && voidHoles(recording.file, walk.holes) &&
           finishRecording(recording.file, recording.header, walk.entries, walk.clusters_end);
}

bool copyFrames(const OpenedFile& recording, const Walk& walk, File& output) {
    if (!output.writeAt(0, buildHead(recording.header, std::nullopt))) {
        return false;
    }
    std::vector<IndexEntry> entries = walk.entries;
    uint64_t end = recording.head_size;
    Bytes cluster;
    for (IndexEntry& entry : entries) {
        cluster.resize(entry.cluster_size);
        if (!recording.file.readAt(entry.offset, cluster.data(), cluster.size()) || !output.writeAt(end, cluster)) {
            return false;
        }
        entry.offset = end;
        end += entry.cluster_size;
    }
    return finishRecording(output, recording.header, entries, end);
}

int repairToOutput(const OpenedFile& recording, const Walk& walk, const std::string& path) {
    File output;
    if (!output.createToWrite(path, false)) {
        return kOutputRefused;
    }
    if (!output.lockAlone() || !copyFrames(recording, walk, output)) {
        (void)::unlink(path.c_str());
        return kOutputRefused;
    }
    syncDirectoryOf(path);
    return kRepaired;
}

Condition conditionOf(const OpenedFile& recording, std::vector<IndexEntry>& entries) {
    return recording.condition == Condition::INTACT ? loadIndex(recording, entries) : recording.condition;
}

/// Whether the recording went on behind the last whole frame: a torn Cluster, or Cues that once began further on.
bool framesFollowed(const OpenedFile& recording, Condition condition, const Walk& walk) {
    uint8_t id[4] = {};
    Bytes clusterId;
    putId(clusterId, ID_CLUSTER);
    const std::size_t count = recording.file.readUpTo(walk.clusters_end, id, sizeof id);
    if (count > 0 && std::equal(id, id + count, clusterId.begin())) {
        return true;
    }
    uint8_t position[8] = {};
    if (condition != Condition::CUT_OFF || !recording.file.readAt(cuesPositionOffset(), position, sizeof position)) {
        return false;
    }
    Bytes expected;
    putBigEndian(expected, walk.clusters_end - segmentBodyOffset(), sizeof position);
    return !std::equal(expected.begin(), expected.end(), position);
}

bool modeIsKnown(RLX_COMPRESSION_MODE mode) {
    return mode >= RLX_RAW && mode <= RLX_MODE_10;
}

}  // namespace

RepairReport repairRecording(const std::string& input, const std::string& output, PictureCheck check,
                             const ProgressSink& progress) {
    RepairReport report;
    OpenedFile recording = openRecording(input, true);
    std::vector<IndexEntry> indexed;
    report.condition = conditionOf(recording, indexed);
    const bool ours = recording.condition == Condition::INTACT;
    if (!ours || report.condition == Condition::UNREADABLE) {
        return report;
    }
    if (!modeIsKnown(recording.header.facts.compression_mode)) {
        report.code = kBadCompression;
        return report;
    }
    const Walk walk = walkFrames(recording, check, progress);
    if (walk.stopped) {
        return report;
    }
    if (walk.entries.empty()) {
        report.condition = Condition::NO_WHOLE_FRAME;
        return report;
    }
    report.frames_recovered = walk.entries.size();
    report.frames_lost = walk.bad_pictures + walk.missing_frames;
    report.frame_cut = framesFollowed(recording, report.condition, walk);
    report.bytes_cut = recording.file.size() - walk.clusters_end;
    if (!output.empty()) {
        report.code = repairToOutput(recording, walk, output);
        return report;
    }
    if (report.condition == Condition::INTACT && walk.entries == indexed) {
        report.code = kRepaired;
        report.bytes_cut = 0;
        return report;
    }
    report.code = hasRoomInPlace(walk) && repairInPlace(recording, walk) ? kRepaired : kOutputRefused;
    return report;
}

VerifyReport verifyRecording(const std::string& path, const ProgressSink& progress) {
    VerifyReport report;
    const OpenedFile recording = openRecording(path, false);
    std::vector<IndexEntry> entries;
    report.condition = conditionOf(recording, entries);
    if (recording.condition != Condition::INTACT) {
        return report;
    }
    if (report.condition != Condition::INTACT) {
        const Walk walk = walkFrames(recording, PictureCheck::ALL, progress);
        report.frames = walk.entries.size();
        report.damaged = walk.bad_pictures + walk.missing_frames;
        report.condition = walk.entries.empty() ? Condition::NO_WHOLE_FRAME : report.condition;
        return report;
    }
    StoredFrame frame;
    for (const IndexEntry& entry : entries) {
        if (progress && !progress(entry.offset, recording.file.size())) {
            break;
        }
        readStoredFrame(recording, entry, frame);
        const bool whole = frame.check == FrameCheck::WHOLE;
        ++(whole ? report.frames : report.damaged);
        report.imu_packets += whole ? frame.frame.packets.size() : 0;
    }
    report.condition = report.damaged == 0 ? Condition::INTACT
                       : report.frames > 0 ? Condition::DAMAGED
                                           : Condition::NO_WHOLE_FRAME;
    return report;
}

}  // namespace oru::rlx
