#include <algorithm>

#include "backends/rlx/file/FileFollower.hpp"
#include "backends/rlx/file/VideoFile.hpp"
#include "backends/rlx/file/guarded.hpp"
#include "backends/rlx/file/playable.hpp"
#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/rlx_factory.hpp"

namespace oru {

namespace {

class RlxIndex final : public RecordingIndex {
public:
    explicit RlxIndex(const std::string& path)
        : recording(rlx::openToPlay(path)), follower(recording.opened, recording.end) {
        if (recording.opened.condition != rlx::Condition::INTACT) {
            recording.opened.header.facts.version = 0;
        }
        for (const rlx::IndexEntry& entry : recording.entries) {
            times.push_back(entry.time_ns);
        }
    }

    RECORDING_CONDITION condition() const override { return recording.condition; }
    bool isPlayable() const override { return recording.plays(); }
    const rlxrw::RlxRecordingHeader& header() const override { return recording.opened.header.facts; }
    const std::vector<Timestamp>& frameTimes() const override { return times; }

    std::vector<IMUPacket> packets(int frame) override {
        return rlx::guarded("Reading the packets", std::vector<IMUPacket>{}, [&] { return packetsOf(frame); });
    }

private:
    std::vector<IMUPacket> packetsOf(int frame) {
        const auto number = static_cast<std::size_t>(std::max(frame, 0));
        rlx::IndexEntry entry;
        while (number >= recording.entries.size() && recording.whole && follower.next(entry)) {
            recording.entries.push_back(entry);
        }
        if (frame < 0 || number >= recording.entries.size()) {
            return {};
        }
        rlx::readStoredFrame(recording.opened, recording.entries[number], stored);
        return stored.record_whole ? stored.frame.packets : std::vector<IMUPacket>{};
    }

    rlx::PlayableRecording recording;
    rlx::FileFollower follower;
    std::vector<Timestamp> times;
    rlx::StoredFrame stored;
};

class RlxTools final : public RecordingTools {
public:
    std::unique_ptr<RecordingIndex> openIndex(const std::string& path) override {
        return std::make_unique<RlxIndex>(path);
    }
    RecordingCheck verify(const std::string& path, const RecordingProgress& progress) override {
        return rlx::guarded("The check", RecordingCheck{.condition = RECORDING_CONDITION::UNREADABLE},
                            [&] { return rlx::verifyRecording(path, progress); });
    }
    RecordingRepair repair(const std::string& path, const std::string& output,
                           const RecordingProgress& progress) override {
        return rlx::guarded("The repair", RecordingRepair{.condition = RECORDING_CONDITION::UNREADABLE},
                            [&] { return rlx::repairRecording(path, output, rlx::ImageCheck::ALL, progress); });
    }
    std::unique_ptr<VideoWriter> makeVideoWriter() override { return std::make_unique<rlx::VideoFile>(); }
};

}  // namespace

std::unique_ptr<RecordingTools> makeRecordingTools() {
    return std::make_unique<RlxTools>();
}

}  // namespace oru
