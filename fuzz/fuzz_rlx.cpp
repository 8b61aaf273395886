// Reader, walk and repair of recorded files. The first byte chooses: the rest is a file as it is, or a list of changes
// to a whole recording whose checksums are then made right again, so that the fields behind them are reached.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/records/crc32c.hpp"
#include "backends/rlx/rlx_factory.hpp"
#include "doubles/CalibrationKeeper.hpp"
#include "logging/KoruLogger.hpp"

using namespace oru;

namespace {

/// A file in memory with a path.
class MemoryFile {
public:
    MemoryFile() : descriptor(::memfd_create("recording", MFD_CLOEXEC)) {}
    ~MemoryFile() { ::close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }
    void set(const std::vector<uint8_t>& bytes) const {
        if (::ftruncate(descriptor, 0) != 0 || ::pwrite(descriptor, bytes.data(), bytes.size(), 0) < 0) {
            std::abort();
        }
    }
    std::vector<uint8_t> get() const {
        std::vector<uint8_t> bytes(static_cast<std::size_t>(::lseek(descriptor, 0, SEEK_END)));
        bytes.resize(
            static_cast<std::size_t>(std::max<ssize_t>(0, ::pread(descriptor, bytes.data(), bytes.size(), 0))));
        return bytes;
    }

private:
    int descriptor;
};

constexpr uint32_t kWidth = 32;
constexpr uint32_t kHeight = 16;

std::vector<uint8_t> makeRecording(RLX_COMPRESSION_MODE mode) {
    const MemoryFile file;
    oru::doubles::CalibrationKeeper calibration;
    const auto recorder = makeRlxVideo(calibration);
    rlxrw::RlxRecordingHeader header;
    header.width = kWidth;
    header.height = kHeight;
    header.fps = 30.0F;
    header.compression_mode = mode;
    if (recorder->create(file.path().c_str(), header) != 0) {
        std::abort();
    }
    const std::vector<IMUPacket> packets(2);
    for (unsigned number = 0; number < 4; ++number) {
        const std::vector<unsigned char> image(kWidth * kHeight * 2, static_cast<unsigned char>(number * 40));
        rlxrw::RlxFrame frame;
        frame.pixels = image.data();
        frame.size = image.size();
        frame.time = number * 33'000'000U;
        frame.packets = packets.data();
        frame.packet_count = packets.size();
        if (recorder->writeFrame(frame) != 0) {
            std::abort();
        }
    }
    recorder->close();
    return file.get();
}

struct Record {
    std::size_t offset = 0;
    std::size_t size = 0;  // without the checksum behind it
};

/// Where the records with checksums lie in a whole recording.
std::vector<Record> findRecords(const std::vector<uint8_t>& bytes) {
    std::vector<Record> records;
    for (const char* magic : {"RLXH", "RLXF", "RLXI"}) {
        for (auto hit = bytes.begin();; ++hit) {
            hit = std::search(hit, bytes.end(), magic, magic + 4);
            if (hit == bytes.end()) {
                break;
            }
            const auto offset = static_cast<std::size_t>(hit - bytes.begin());
            for (std::size_t size = 4; offset + size + 4 <= bytes.size(); ++size) {
                uint32_t stored = 0;
                std::memcpy(&stored, &bytes[offset + size], sizeof stored);
                if (size > 16 && stored == rlx::crc32c(&bytes[offset], size)) {
                    records.push_back({offset, size});
                    break;
                }
            }
        }
    }
    return records;
}

struct Sample {
    std::vector<uint8_t> bytes;
    std::vector<Record> records;
};

const std::vector<Sample>& samples() {
    static const std::vector<Sample> all = [] {
        (void)KoruLogger::get_instance().set_logger(MAIN, nullptr);
        std::vector<Sample> made;
        for (const auto mode : {RLX_RAW, RLX_H264, RLX_LOSSLESS}) {
            Sample sample{makeRecording(mode), {}};
            sample.records = findRecords(sample.bytes);
            made.push_back(std::move(sample));
        }
        return made;
    }();
    return all;
}

/// Changes of five bytes: offset, what to do, value.
std::vector<uint8_t> changed(const Sample& sample, const uint8_t* data, std::size_t size) {
    std::vector<uint8_t> bytes = sample.bytes;
    for (; size >= 5 && !bytes.empty(); data += 5, size -= 5) {
        const std::size_t offset = (data[0] | data[1] << 8 | data[2] << 16) % bytes.size();
        if (data[3] == 0) {
            bytes.resize(offset);
        } else {
            bytes[offset] = data[3] % 2 != 0 ? data[4] : static_cast<uint8_t>(bytes[offset] ^ data[4]);
        }
    }
    for (const Record& record : sample.records) {
        if (record.offset + record.size + 4 <= bytes.size()) {
            const uint32_t crc = rlx::crc32c(&bytes[record.offset], record.size);
            std::memcpy(&bytes[record.offset + record.size], &crc, sizeof crc);
        }
    }
    return bytes;
}

int play(const std::string& path) {
    oru::doubles::CalibrationKeeper calibration;
    const auto reader = makeRlxVideo(calibration);
    const int opened = reader->open(path.c_str());
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    Timestamp time = 0;
    for (int attempt = 0; opened == 0 && attempt < 20; ++attempt) {
        const FrameStatus status = reader->readFrame(image.data(), image.size(), time);
        (void)reader->getFrameIMUPackets();
        if (status != NEW_FRAME && status != NO_FRAME) {
            break;
        }
    }
    reader->setPosition(2);
    return opened;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t choice = data[0] % (samples().size() + 1);
    static const MemoryFile file;
    const std::vector<uint8_t> bytes =
        choice == 0 ? std::vector<uint8_t>(data + 1, data + size) : changed(samples()[choice - 1], data + 1, size - 1);
    file.set(bytes);
    const std::string path = file.path();
    (void)play(path);
    const RecordingCheck before = rlx::verifyRecording(path);
    const RecordingRepair repair = rlx::repairRecording(path, "", rlx::ImageCheck::ALL);
    const RecordingCheck after = rlx::verifyRecording(path);
    if (repair.result == 0 && (after.condition != rlx::Condition::INTACT || after.frames < before.frames)) {
        std::abort();
    }
    if (repair.result != 0 && file.get() != bytes) {
        std::abort();
    }
    (void)play(path);
    return 0;
}
