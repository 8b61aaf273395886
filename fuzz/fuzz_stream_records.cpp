// The records of a data packet. What can be read must come out the same when it is written and read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "backends/stream/wire/records.hpp"

using namespace oru::stream;

namespace {

class Rewriter final : public RecordSink {
public:
    void onFrameRecord(const FrameRecord& record, const std::vector<oru::IMUPacket>& packets) override {
        if (packets.size() > kMaxImuPerRecord) {
            std::abort();
        }
        const std::size_t count = writeFrameRecord(written, record, packets.data(), packets.size());
        everything = everything && count == packets.size();
    }
    void onDescription(DescriptionRecord&& record) override {
        if (record.camera.width > kMaxImageSide || record.controls.size() > kMaxControls ||
            record.calibration.size() > kMaxCalibrationBytes) {
            std::abort();
        }
        writeDescription(written, record);
    }

    std::vector<uint8_t> written;
    bool everything = true;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    RecordReader reader;
    Rewriter first;
    if (!reader.read(data, size, first) || !first.everything) {
        return 0;
    }
    Rewriter second;
    if (!reader.read(first.written.data(), first.written.size(), second) || second.written != first.written) {
        std::abort();
    }
    return 0;
}
