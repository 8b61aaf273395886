// Files made to cost: what a recording takes of memory and time follows from the bytes that it really holds.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <condition_variable>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <mutex>
#include <new>

#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/file/DecodeAhead.hpp"
#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/recording_fixture.hpp"
#include "backends/rlx/records/crc32c.hpp"
#include "doubles/LogCapture.hpp"

namespace oru::rlx_test {

namespace {

using rlx::Condition;
using rlx::ImageCheck;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr uint64_t kSparse = uint64_t{1} << 38;

/// Head, Clusters and trailer with right checksums around whatever the test says of them.
struct Crafted {
    explicit Crafted(const Scene& scene) {
        header.facts = scene.header();
        header.recording_id = 0x1234'5678'9ABC'DEF0;
    }

    [[nodiscard]] uint64_t clustersFrom() const { return rlx::buildHead(header, std::nullopt).size(); }

    /// A frame whose image is these bytes.
    void addFrame(const Bytes& image) {
        rlx::FrameRecord frame;
        frame.recording_id = header.recording_id;
        frame.number = entries.size();
        frame.time_ms = entries.size() * 33;
        frame.time_ns = frame.time_ms * 1'000'000;
        frame.image_size = static_cast<uint32_t>(image.size());
        frame.image_crc = rlx::crc32c(image.data(), image.size());
        Bytes record;
        rlx::encodeFrame(frame, 2, record);
        Bytes cluster;
        rlx::buildPrefix(frame, record.size(), cluster);
        cluster.insert(cluster.end(), image.begin(), image.end());
        rlx::buildSuffixFraming(frame, record.size(), cluster);
        cluster.insert(cluster.end(), record.begin(), record.end());
        const uint64_t offset = entries.empty() ? clustersFrom() : entries.back().offset + entries.back().cluster_size;
        entries.push_back({offset, frame.time_ns, static_cast<uint32_t>(cluster.size()), true, frame.time_ms});
        clusters.insert(clusters.end(), cluster.begin(), cluster.end());
    }

    /// A finished file; what the entries reach beyond the Clusters is a hole.
    void writeTo(const std::string& path) const {
        const uint64_t end = entries.empty() ? clustersFrom() : entries.back().offset + entries.back().cluster_size;
        const Bytes trailer = rlx::buildTrailer(header, entries, end);
        const uint64_t lastMs = entries.empty() ? 0 : entries.back().time_ms;
        writeBytes(path, rlx::buildHead(header, rlx::finishedFacts(header, lastMs, end, end + trailer.size())));
        put(path, clustersFrom(), clusters);
        put(path, end, trailer);
    }

    static void put(const std::string& path, uint64_t offset, const Bytes& bytes) {
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        ASSERT_TRUE(file.good());
    }

    rlx::HeaderRecord header;
    Bytes clusters;
    std::vector<rlx::IndexEntry> entries;
};

std::size_t peakMemory() {
    rusage usage{};
    EXPECT_EQ(::getrusage(RUSAGE_SELF, &usage), 0);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

/// What this thread takes of a processor, the least of three runs, so that other load does not count.
int64_t processorNs(const std::function<void()>& work) {
    int64_t least = std::numeric_limits<int64_t>::max();
    for (int run = 0; run < 3; ++run) {
        timespec before{};
        timespec after{};
        (void)::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
        work();
        (void)::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
        least = std::min<int64_t>(least,
                                  (after.tv_sec - before.tv_sec) * 1'000'000'000LL + (after.tv_nsec - before.tv_nsec));
    }
    return least;
}

void repeat(Bytes& out, const Bytes& pattern, std::size_t size) {
    while (out.size() + pattern.size() <= size) {
        out.insert(out.end(), pattern.begin(), pattern.end());
    }
}

/// The first bytes of a header record that claims the longest that is allowed.
Bytes claimedHeader(const rlx::HeaderRecord& header) {
    Bytes record;
    rlx::encodeHeader(header, record);
    record.resize(28);
    storeBytes<std::endian::little>(static_cast<uint32_t>(rlx::kMaxHeaderSize), record.data() + 8);
    storeBytes<std::endian::little>(uint32_t{0}, record.data() + 12);
    storeBytes<std::endian::little>(static_cast<uint32_t>(rlx::kMaxHeaderSize - 308), record.data() + 16);
    return record;
}

/// A frame right in every field up to its samples, whose record claims to be as long as a record may be.
Bytes claimedFrame(uint64_t recordingId) {
    rlx::FrameRecord frame;
    frame.recording_id = recordingId;
    frame.packets.resize(rlx::kMaxPackets - 1);
    Bytes record;
    rlx::encodeFrame(frame, 2, record);
    Bytes bytes;
    rlx::buildPrefix(frame, record.size(), bytes);
    rlx::buildSuffixFraming(frame, record.size(), bytes);
    bytes.insert(bytes.end(), record.begin(), record.begin() + 72);
    return bytes;
}

}  // namespace

TEST(Crafted, SizesThatNothingInTheFileConfirmTakeNoMemory) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    const Scene scene;
    Crafted first(scene);
    first.addFrame(scene.image(0));
    first.writeTo(path);
    std::vector<unsigned char> bytes = readBytes(path);
    // A footer at the far end of a hole says that the hole is an index.
    Bytes footer;
    LittleEndianWriter fields(footer);
    fields.put(first.clustersFrom());
    fields.put(kSparse - rlx::kFooterSize - first.clustersFrom());
    fields.bytes(ByteView(bytes).last(8).first(4));
    fields.put(rlx::crc32c(footer.data(), footer.size()));
    Crafted::put(path, kSparse - footer.size(), footer);
    Bytes segmentSize;
    rlx::putSize(segmentSize, kSparse - rlx::segmentBodyOffset());
    Crafted::put(path, rlx::segmentSizeOffset(), segmentSize);
    Crafted second(scene);
    second.addFrame(scene.image(0));
    second.entries[0].cluster_size = UINT32_MAX - 4096;  // the frame is said to go on in a hole
    second.writeTo(folder.path("b.rlx2"));
    const std::size_t before = peakMemory();

    EXPECT_EQ(play(path, scene).open_result, rlxrw::RLX_DAMAGED);
    const Played played = play(folder.path("b.rlx2"), scene);

    EXPECT_EQ(played.open_result, rlxrw::RLX_OPENED);
    EXPECT_EQ(played.counters.damaged, 1U);
    EXPECT_EQ(rlx::verifyRecording(path).frames, 1U) << "a hole is passed over";
    EXPECT_EQ(rlx::repairRecording(path, "", ImageCheck::ALL).result, REPAIR_DONE);
    EXPECT_EQ(std::filesystem::file_size(path), bytes.size());
    EXPECT_LT(peakMemory() - before, 32 * kMebibyte);
}

TEST(Crafted, ImagesTakeMemoryOnlyOnceTheyAreDecoded) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    Scene scene;
    const std::size_t before = peakMemory();
    for (const RLX_COMPRESSION_MODE mode : {RLX_RAW, RLX_FFV1}) {
        scene.mode = mode;
        Crafted crafted(scene);
        crafted.header.facts.width = crafted.header.facts.height = 8192;
        for (int i = 0; i < 6; ++i) {
            crafted.addFrame(Bytes(16, 0x55));
        }
        crafted.writeTo(path);
        EXPECT_EQ(play(path, scene).counters.decode_failed, 6U);
        crafted.header.facts.width = 8194;
        crafted.writeTo(path);
        EXPECT_EQ(rlx::openRecording(path, false).condition, Condition::TOO_NEW) << "no camera delivers that";
    }
    EXPECT_LT(peakMemory() - before, 96 * kMebibyte);
}

TEST(Crafted, SearchesTakeNoLongerThanThreeTimesACheckOfThatSize) {
    constexpr std::size_t kSize = 4 * kMebibyte;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int64_t kTimes = 12;  // a check's sums are hardly instrumented, a search's comparisons are
#else
    constexpr int64_t kTimes = 3;
#endif
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    const Scene scene;
    const auto allowedFor = [&](const Bytes& image) {
        Crafted intact(scene);
        while (intact.clusters.size() < kSize) {
            intact.addFrame(image);
        }
        intact.writeTo(path);
        return kTimes * processorNs([&] { EXPECT_EQ(rlx::verifyRecording(path).condition, Condition::INTACT); });
    };
    const int64_t allowed = allowedFor(scene.image(0));
    const int64_t allowedForSmall = allowedFor({1, 2, 3});
    Crafted small(scene);
    const Bytes head = rlx::buildHead(small.header, std::nullopt);
    small.addFrame({1, 2, 3});
    small.clusters.push_back(0);
    const struct {
        const char* name;
        Bytes start;
        Bytes pattern;
        int64_t limit;
    } cases[] = {
        {"headers that claim to be long", {}, claimedHeader(small.header), allowed},
        {"Clusters that begin everywhere", head, {0x1F, 0x43, 0xB6, 0x75, 0x01}, allowed},
        {"frames with long records", head, claimedFrame(small.header.recording_id), allowed},
        {"small frames with something between them", head, small.clusters, allowedForSmall},
    };
    for (const auto& sample : cases) {
        Bytes bytes = sample.start;
        repeat(bytes, sample.pattern, kSize);
        writeBytes(path, bytes);

        EXPECT_LT(processorNs([&] { (void)rlx::openRecording(path, false); }), sample.limit) << "open: " << sample.name;
        EXPECT_LT(processorNs([&] { (void)rlx::verifyRecording(path); }), sample.limit) << "scan: " << sample.name;
    }
}

TEST(Crafted, ScanEndsWhenItsCallerSaysSo) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    Crafted crafted{Scene{}};
    Bytes bytes = rlx::buildHead(crafted.header, std::nullopt);
    bytes.resize(bytes.size() + 64 * kMebibyte, 1);
    writeBytes(path, bytes);
    int questions = 0;

    const RecordingRepair report =
        rlx::repairRecording(path, "", ImageCheck::ALL, [&](uint64_t, uint64_t) { return ++questions < 3; });

    EXPECT_EQ(report.result, REPAIR_UNREADABLE);
    EXPECT_EQ(questions, 3);
}

TEST(Crafted, NumbersThatNoRecorderWritesAreNotBelieved) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float fps : {std::numeric_limits<float>::quiet_NaN(), kInfinity, -kInfinity, -30.0F, 1e30F}) {
        const Scene scene;
        Crafted crafted(scene);
        crafted.header.facts.fps = fps;
        crafted.addFrame(scene.image(0));
        crafted.writeTo(path);
        OneFile reader;
        ASSERT_EQ(reader.file->open(path.c_str()), rlxrw::RLX_OPENED) << fps;
        EXPECT_EQ(reader.file->v2()->fps, 0.0F) << fps;
        EXPECT_EQ(makeRecordingTools()->openIndex(path)->header().fps, 0.0F) << fps;

        rlxrw::RlxRecordingHeader header = scene.header();
        header.fps = fps;
        header.compression_mode = RLX_H264;
        ASSERT_EQ(reader.file->create(reader.path.c_str(), header), rlxrw::RLX_CREATED) << fps;
        EXPECT_EQ(writeSceneFrame(*reader.file, scene, 0), rlxrw::RLX_WRITTEN);
    }
    rlx::FrameRecord frame;
    frame.key = false;
    frame.time_ms = frame.reference_delta = uint64_t{1} << 63;
    Bytes record;
    rlx::encodeFrame(frame, 2, record);
    EXPECT_FALSE(rlx::decodeFrame(record, frame)) << "a reference before all time";
}

namespace {

/// A decoder that has no memory for its second image, and waits for the test at the others when told to.
class TroubledDecoder final : public rlx::ImageDecoder {
public:
    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool open = true;
        bool waits = false;
        bool gone = false;
    };

    explicit TroubledDecoder(std::shared_ptr<Gate> shared) : gate(std::move(shared)) {}
    ~TroubledDecoder() override {
        const std::lock_guard lock(gate->mutex);
        gate->gone = true;
        gate->changed.notify_all();
    }

    bool decode(ByteView stored, Bytes* yuyv) override {
        std::unique_lock lock(gate->mutex);
        gate->waits = !gate->open;
        gate->changed.notify_all();
        gate->changed.wait(lock, [this] { return gate->open; });
        if (++count == 2) {
            throw std::bad_alloc();
        }
        yuyv->assign(stored.begin(), stored.end());
        return true;
    }
    void reset() override {}

private:
    std::shared_ptr<Gate> gate;
    int count = 0;
};

struct Ahead {
    Ahead() {
        record(path, scene, 3);
        ahead =
            std::make_unique<rlx::DecodeAhead>(rlx::openToPlay(path), false, std::make_unique<TroubledDecoder>(gate));
    }

    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    const Scene scene;
    std::shared_ptr<TroubledDecoder::Gate> gate = std::make_shared<TroubledDecoder::Gate>();
    std::unique_ptr<rlx::DecodeAhead> ahead;
};

}  // namespace

TEST(DecodeAhead, FrameWithoutMemoryFailsAndTheNextOneIsThere) {
    Ahead recording;
    using enum rlx::FrameQuality;
    for (const rlx::FrameQuality expected : {WHOLE, DECODE_FAILED, WHOLE}) {
        const rlx::DecodedFrame* frame = recording.ahead->waitForFront(std::chrono::seconds(60));
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->quality, expected);
        recording.ahead->popFront();
    }
}

TEST(DecodeAhead, HungStorageLeavesTheThreadBehindWithAllThatItTouches) {
    Ahead recording;
    std::unique_lock lock(recording.gate->mutex);
    recording.gate->open = false;
    recording.ahead->restartAt(0);
    recording.gate->changed.wait(lock, [&] { return recording.gate->waits; });
    lock.unlock();
    doubles::LogCapture log;

    recording.ahead->stop(std::chrono::milliseconds(20));
    recording.ahead.reset();

    EXPECT_EQ(log.texts(LogLevel::Warning).size(), 1U);
    lock.lock();
    EXPECT_FALSE(recording.gate->gone);
    recording.gate->open = true;
    recording.gate->changed.notify_all();
    EXPECT_TRUE(recording.gate->changed.wait_for(lock, std::chrono::seconds(60), [&] { return recording.gate->gone; }))
        << "ends with the storage's answer";
}

}  // namespace oru::rlx_test
