// Reader, scan and repair of recorded files. The first byte chooses: the rest is a file as it is, a list of changed
// bytes of a whole recording, or a list of forged facts of one. Checksums are then made right again, so that the fields
// behind them are reached. No input may take more than kLongestNs of the processor's time.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "ForgedRecording.hpp"
#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/records/crc32c.hpp"
#include "backends/rlx/rlx_factory.hpp"
#include "doubles/CalibrationKeeper.hpp"
#include "logging/KoruLogger.hpp"

using namespace oru;
using oru::fuzz::ForgedRecording;
using oru::fuzz::MemoryFile;

namespace {

constexpr uint32_t kWidth = 32;
constexpr uint32_t kHeight = 16;
/// Fifty times what the slowest seed takes with the sanitizers.
constexpr int64_t kLongestNs = 4'000'000'000;
/// Larger files are sparse, and only their size is compared.
constexpr uint64_t kComparedBytes = uint64_t{16} << 20;

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
    if (const auto* facts = reader->v2(); facts != nullptr && !(facts->fps >= 0.0F && facts->fps <= rlx::kMaxRate)) {
        std::abort();
    }
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

/// What the whole process has taken of the processors, so that a loaded machine does not count.
int64_t processorNs() {
    timespec time{};
    (void)::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

void fillFile(const MemoryFile& file, const uint8_t* data, std::size_t size) {
    const std::size_t kinds = samples().size();
    const std::size_t choice = data[0] % (2 * kinds + 1);
    if (choice == 0) {
        file.set({data + 1, data + size});
    } else if (choice <= kinds) {
        file.set(changed(samples()[choice - 1], data + 1, size - 1));
    } else {
        const MemoryFile whole;
        whole.set(samples()[choice - kinds - 1].bytes);
        ForgedRecording forged(whole);
        forged.change(data + 1, size - 1);
        forged.writeTo(file);
    }
}

void checkFile(const MemoryFile& file) {
    const std::string path = file.path();
    const uint64_t size = file.size();
    const Bytes bytes = size <= kComparedBytes ? file.get() : Bytes{};
    (void)play(path);
    const RecordingCheck before = rlx::verifyRecording(path);
    const RecordingRepair repair = rlx::repairRecording(path, "", rlx::ImageCheck::ALL);
    const RecordingCheck after = rlx::verifyRecording(path);
    if (repair.result == 0 && (after.condition != rlx::Condition::INTACT || after.frames < before.frames)) {
        std::abort();
    }
    if (repair.result != 0 && (file.size() != size || (size <= kComparedBytes && file.get() != bytes))) {
        std::abort();
    }
    (void)play(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    static const MemoryFile file;
    fillFile(file, data, size);
    const int64_t before = processorNs();
    checkFile(file);
    if (const int64_t taken = processorNs() - before; taken > kLongestNs) {
        std::fprintf(stderr, "one input took %.1f s of processor time\n", static_cast<double>(taken) / 1e9);
        std::abort();
    }
    return 0;
}
