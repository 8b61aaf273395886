#include "backends/rlx/file/repair.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/file/finalise.hpp"

namespace oru::rlx {

namespace {

constexpr int kMostOriginals = 100;

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
bool hasRoomInPlace(const Scan& scan) {
    const auto holdsVoid = [](const Hole& hole) { return hole.size >= 1 + kSizeBytes; };
    return scan.head_fits && std::ranges::all_of(scan.holes, holdsVoid);
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

bool repairInPlace(OpenedFile& recording, const Scan& scan) {
    return markUnfinished(recording.file) && restoreHead(recording) && voidHoles(recording.file, scan.holes) &&
           finaliseRecording(recording.file, recording.header, scan.entries, scan.clusters_end);
}

bool copyFrames(const OpenedFile& recording, const Scan& scan, File& output) {
    if (!output.writeAt(0, buildHead(recording.header, std::nullopt))) {
        return false;
    }
    std::vector<IndexEntry> entries = scan.entries;
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
    return finaliseRecording(output, recording.header, entries, end);
}

REPAIR_RESULT repairToOutput(const OpenedFile& recording, const Scan& scan, const std::string& path) {
    File output;
    if (!output.createNew(path)) {
        return REPAIR_NOT_WRITABLE;
    }
    if (!copyFrames(recording, scan, output)) {
        (void)::unlink(path.c_str());
        return REPAIR_NOT_WRITABLE;
    }
    syncDirectoryOf(path);
    return REPAIR_DONE;
}

/// One that may only be read is judged all the same; repaired in place it is "not writable".
OpenedFile openToRepair(const std::string& path, bool inPlace) {
    if (inPlace && File::isBeingWritten(path)) {
        OpenedFile refused;
        refused.condition = Condition::BEING_RECORDED;
        return refused;
    }
    OpenedFile recording = openRecording(path, inPlace);
    return inPlace && recording.condition == Condition::UNREADABLE ? openRecording(path, false) : std::move(recording);
}

/// Frames, or what is left of them.
bool removesMoreThanTheIndex(const OpenedFile& recording, const Scan& scan) {
    Bytes cues;
    putId(cues, ID_CUES);
    Bytes following(cues.size());
    following.resize(recording.file.readUpTo(scan.clusters_end, following.data(), following.size()));
    return !scan.holes.empty() || !std::equal(following.begin(), following.end(), cues.begin());
}

/// Copies the file beside itself under a new name, which is put into `name`.
bool keepOriginal(const File& file, const std::string& path, std::string& name) {
    File copy;
    for (int number = 1; number <= kMostOriginals && !copy.isOpen(); ++number) {
        name = path + (number == 1 ? ".original" : ".original-" + std::to_string(number));
        if (!copy.createNew(name) && errno != EEXIST) {
            return false;
        }
    }
    if (!copy.isOpen()) {
        return false;
    }
    if (!file.copyTo(copy)) {
        (void)::unlink(name.c_str());
        return false;
    }
    syncDirectoryOf(path);
    return true;
}

REPAIR_RESULT repairWhereItLies(OpenedFile& recording, const Scan& scan, const std::string& path,
                                std::string* original) {
    if (!recording.writable || !hasRoomInPlace(scan)) {
        return REPAIR_NOT_WRITABLE;
    }
    const bool keeps = original != nullptr && removesMoreThanTheIndex(recording, scan);
    const bool kept = !keeps || keepOriginal(recording.file, path, *original);
    return kept && repairInPlace(recording, scan) ? REPAIR_DONE : REPAIR_NOT_WRITABLE;
}

Condition conditionOf(const OpenedFile& recording, std::vector<IndexEntry>& entries) {
    return recording.condition == Condition::INTACT ? loadIndex(recording, entries) : recording.condition;
}

/// Whether the recording went on behind the last whole frame: a torn Cluster, or Cues that once began further on.
bool framesFollowed(const OpenedFile& recording, Condition condition, const Scan& scan) {
    uint8_t id[4] = {};
    Bytes clusterId;
    putId(clusterId, ID_CLUSTER);
    const std::size_t count = recording.file.readUpTo(scan.clusters_end, id, sizeof id);
    if (count > 0 && std::equal(id, id + count, clusterId.begin())) {
        return true;
    }
    uint8_t position[8] = {};
    if (condition != Condition::CUT_OFF || !recording.file.readAt(cuesPositionOffset(), position, sizeof position)) {
        return false;
    }
    Bytes expected;
    putBigEndian(expected, scan.clusters_end - segmentBodyOffset(), sizeof position);
    return !std::equal(expected.begin(), expected.end(), position);
}

bool modeIsKnown(RLX_COMPRESSION_MODE mode) {
    return mode >= RLX_RAW && mode <= RLX_MODE_10;
}

}  // namespace

RecordingRepair repairRecording(const std::string& input, const std::string& output, ImageCheck check,
                                const RecordingProgress& progress, std::string* original) {
    RecordingRepair report;
    OpenedFile recording = openToRepair(input, output.empty());
    std::vector<IndexEntry> indexed;
    report.condition = conditionOf(recording, indexed);
    const bool ours = recording.condition == Condition::INTACT;
    if (!ours || report.condition == Condition::UNREADABLE) {
        return report;
    }
    if (!modeIsKnown(recording.header.facts.compression_mode)) {
        report.result = REPAIR_UNKNOWN_FORMAT;
        return report;
    }
    const Scan scan = scanFrames(recording, check, progress);
    if (scan.stopped) {
        return report;
    }
    if (scan.entries.empty()) {
        report.condition = Condition::NO_WHOLE_FRAME;
        return report;
    }
    report.frames_recovered = scan.entries.size();
    report.frames_lost = scan.bad_images + scan.missing_frames;
    report.frame_cut = framesFollowed(recording, report.condition, scan);
    report.bytes_cut = recording.file.size() - scan.clusters_end;
    if (!output.empty()) {
        report.result = repairToOutput(recording, scan, output);
        return report;
    }
    if (report.condition == Condition::INTACT && scan.entries == indexed) {
        report.result = REPAIR_DONE;
        report.bytes_cut = 0;
        return report;
    }
    report.result = repairWhereItLies(recording, scan, input, original);
    return report;
}

RecordingCheck verifyRecording(const std::string& path, const RecordingProgress& progress) {
    RecordingCheck report;
    const OpenedFile recording = openRecording(path, false);
    std::vector<IndexEntry> entries;
    report.condition = conditionOf(recording, entries);
    if (recording.condition != Condition::INTACT) {
        return report;
    }
    if (report.condition != Condition::INTACT) {
        const Scan scan = scanFrames(recording, ImageCheck::ALL, progress);
        report.frames = scan.entries.size();
        report.damaged = scan.bad_images + scan.missing_frames;
        report.condition = scan.entries.empty() ? Condition::NO_WHOLE_FRAME : report.condition;
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
