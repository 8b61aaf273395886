#include "backends/rlx/file/VideoFile.hpp"
#include "backends/rlx/file/guarded.hpp"
#include "backends/rlx/file/open_recording.hpp"
#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/rlx_factory.hpp"

namespace oru {

namespace {

class RlxIndex final : public RecordingIndex {
public:
    explicit RlxIndex(const std::string& path) : state(rlx::openWithIndex(path, file, entries)) {
        if (file.condition != rlx::Condition::INTACT) {
            file.header.facts.version = 0;
        }
        for (const rlx::IndexEntry& entry : entries) {
            times.push_back(entry.time_ns);
        }
    }

    RECORDING_CONDITION condition() const override { return state; }
    const rlxrw::RlxRecordingHeader& header() const override { return file.header.facts; }
    const std::vector<Timestamp>& frameTimes() const override { return times; }

    std::vector<IMUPacket> packets(int frame) override {
        if (frame < 0 || static_cast<std::size_t>(frame) >= entries.size()) {
            return {};
        }
        return rlx::guarded("Reading the packets", std::vector<IMUPacket>{}, [&] {
            rlx::readStoredFrame(file, entries[static_cast<std::size_t>(frame)], stored);
            return stored.record_whole ? stored.frame.packets : std::vector<IMUPacket>{};
        });
    }

private:
    rlx::OpenedFile file;
    std::vector<rlx::IndexEntry> entries;
    RECORDING_CONDITION state;
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
