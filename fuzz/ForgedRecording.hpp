#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/file/open_recording.hpp"
#include "backends/rlx/records/crc32c.hpp"

namespace oru::fuzz {

/// A file in memory with a path; what nobody wrote is a hole that takes no room.
class MemoryFile {
public:
    MemoryFile() : descriptor(::memfd_create("recording", MFD_CLOEXEC)) {}
    ~MemoryFile() { ::close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }
    [[nodiscard]] uint64_t size() const { return static_cast<uint64_t>(::lseek(descriptor, 0, SEEK_END)); }
    void set(ByteView bytes) const {
        resize(0);
        put(0, bytes);
    }
    void resize(uint64_t size) const {
        if (::ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
            std::abort();
        }
    }
    void put(uint64_t offset, ByteView bytes) const {
        if (::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset)) < 0) {
            std::abort();
        }
    }
    [[nodiscard]] Bytes get() const {
        Bytes bytes(size());
        bytes.resize(
            static_cast<std::size_t>(std::max<ssize_t>(0, ::pread(descriptor, bytes.data(), bytes.size(), 0))));
        return bytes;
    }

private:
    int descriptor;
};

/// A recording whose facts, frames and index are changed field by field and whose head, records, index and footer are
/// then built anew, so that every checksum is right and what they lead to is reached. What the changed offsets leave
/// between the parts is a hole.
class ForgedRecording {
public:
    explicit ForgedRecording(const MemoryFile& whole) {
        const rlx::OpenedFile opened = rlx::openRecording(whole.path(), false);
        header = opened.header;
        if (rlx::loadIndex(opened, entries) != rlx::Condition::INTACT) {
            std::abort();
        }
        const Bytes bytes = whole.get();
        clustersFrom = opened.head_size;
        clusters.assign(bytes.begin() + static_cast<std::ptrdiff_t>(clustersFrom),
                        bytes.begin() + static_cast<std::ptrdiff_t>(endOf(entries.back())));
        record.clear();
        rlx::encodeHeader(header, record);
    }

    /// Changes of four bytes: what, which, and a number of any magnitude as mantissa and shift.
    void change(const uint8_t* data, std::size_t size) {
        for (; size >= 4; data += 4, size -= 4) {
            apply(data[0] % 13, data[1], uint64_t{data[2]} << (data[3] % 64));
        }
    }

    void writeTo(const MemoryFile& file) {
        sumRecords();
        const uint64_t end = std::clamp<uint64_t>(entries.empty() ? clustersFrom : endOf(entries.back()),
                                                  clustersFrom + filler.size(), kLargestFile);
        Bytes trailer = rlx::buildTrailer(header, entries, end);
        if (footerAt != 0) {
            Bytes footer(trailer.end() - rlx::kFooterSize, trailer.end());
            const uint64_t indexSize = end + trailer.size() - rlx::kFooterSize - std::min(footerAt, end);
            storeBytes<std::endian::little>(std::min(footerAt, end), footer.data());
            storeBytes<std::endian::little>(indexSize, footer.data() + 8);
            storeBytes<std::endian::little>(rlx::crc32c(footer.data(), 20), footer.data() + 20);
            std::copy(footer.begin(), footer.end(), trailer.end() - rlx::kFooterSize);
        }
        const uint64_t lastMs = entries.empty() ? 0 : entries.back().time_ms;
        const rlx::Finished finished = rlx::finishedFacts(header, lastMs, end, end + trailer.size());
        const Bytes head = finishedHead ? rlx::buildHead(header, finished) : rlx::buildHead(header, std::nullopt);
        file.resize(0);
        if (fillerFirst) {
            file.put(0, filler);
            file.put(filler.size(), head);
            return;
        }
        file.put(0, head);
        file.put(clustersFrom, filler);
        file.put(clustersFrom + filler.size(), clusters);
        file.put(end, trailer);
    }

private:
    static constexpr uint64_t kLargestFile = uint64_t{1} << 40;
    static constexpr std::size_t kLargestFiller = std::size_t{8} << 20;
    static constexpr std::size_t kRecordBehindFraming = 340;

    static uint64_t endOf(const rlx::IndexEntry& entry) { return entry.offset + entry.cluster_size; }

    void apply(int what, uint8_t which, uint64_t value) {
        rlx::IndexEntry& entry = entries[which % entries.size()];
        switch (what) {
            case 0:
                entry.offset = value;
                break;
            case 1:
                entry.cluster_size = static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX));
                break;
            case 2:
                entry.time_ms = value;
                break;
            case 3:
                entry.key = !entry.key;
                break;
            case 4:
                header.facts.width = static_cast<uint32_t>(value);
                break;
            case 5:
                header.facts.height = static_cast<uint32_t>(value);
                break;
            case 6: {
                const auto bits = static_cast<uint32_t>(value);
                std::memcpy(&header.facts.fps, &bits, sizeof bits);
                break;
            }
            case 7:
                footerAt = value;
                break;
            case 8:
                patchFrame(which % 4, which / 4, value);
                break;
            case 9:
                patchPrefix(which, value);
                break;
            case 10:
                finishedHead = false;
                break;
            case 11:
                fill(headerCandidate(), value);
                fillerFirst = true;
                break;
            default:
                fill(frameCandidate(), value);
                break;
        }
    }

    /// The first bytes of a header record that claims to reach a mebibyte further.
    [[nodiscard]] Bytes headerCandidate() const {
        constexpr uint32_t kClaimed = uint32_t{1} << 20;
        Bytes candidate(record.begin(), record.begin() + 28);
        storeBytes<std::endian::little>(kClaimed, candidate.data() + 8);
        storeBytes<std::endian::little>(uint32_t{0}, candidate.data() + 12);
        storeBytes<std::endian::little>(kClaimed - 308, candidate.data() + 16);
        return candidate;
    }

    /// The first bytes of a Cluster whose record claims to be as long as a record may be.
    [[nodiscard]] static Bytes frameCandidate() {
        rlx::FrameRecord frame;
        Bytes candidate;
        rlx::buildPrefix(frame, rlx::kMaxRecordSize - 400, candidate);
        return candidate;
    }

    void fill(const Bytes& pattern, uint64_t size) {
        filler.clear();
        while (filler.size() < std::min<uint64_t>(size, kLargestFiller)) {
            filler.insert(filler.end(), pattern.begin(), pattern.end());
        }
    }

    uint8_t* clusterOf(std::size_t which, std::size_t behind) {
        const uint64_t at = entries[which % entries.size()].offset - clustersFrom + behind;
        return at < clusters.size() && clusters.size() - at >= 8 ? clusters.data() + at : nullptr;
    }

    /// A field of a frame's record, by its offset.
    void patchFrame(std::size_t which, std::size_t field, uint64_t value) {
        constexpr uint8_t kMagic[] = {'R', 'L', 'X', 'F'};
        uint8_t* const from = clusterOf(which, 0);
        uint8_t* const end = clusters.data() + clusters.size();
        uint8_t* const hit = from == nullptr ? end : std::search(from, end, std::begin(kMagic), std::end(kMagic));
        if (end - hit > static_cast<std::ptrdiff_t>(field * 2 + 8)) {
            storeBytes<std::endian::little>(value, hit + field * 2);
        }
    }

    /// The size of a Cluster or of its Block.
    void patchPrefix(std::size_t which, uint64_t value) {
        if (uint8_t* const size = clusterOf(which / 2, which % 2 == 0 ? 4 : 39); size != nullptr) {
            storeBytes<std::endian::big>(value | uint64_t{1} << 56, size);
        }
    }

    /// Every frame's record ends with its Cluster.
    void sumRecords() {
        constexpr uint8_t kMagic[] = {'R', 'L', 'X', 'F'};
        constexpr uint8_t kCluster[] = {0x1F, 0x43, 0xB6, 0x75, 0x01};
        auto from = clusters.begin();
        while ((from = std::search(from, clusters.end(), std::begin(kMagic), std::end(kMagic))) != clusters.end()) {
            const auto end = std::search(from, clusters.end(), std::begin(kCluster), std::end(kCluster));
            if (end - from > static_cast<std::ptrdiff_t>(kRecordBehindFraming)) {
                const auto size = static_cast<std::size_t>(end - from) - 4;
                storeBytes<std::endian::little>(rlx::crc32c(&*from, size), &*from + size);
            }
            from = end;
        }
    }

    rlx::HeaderRecord header;
    std::vector<rlx::IndexEntry> entries;
    Bytes record;    // the header's, as it was
    Bytes clusters;  // as they were, but for patched fields
    uint64_t clustersFrom = 0;
    uint64_t footerAt = 0;  // where the index is said to begin; 0 as it is
    Bytes filler;           // between head and clusters
    bool fillerFirst = false;
    bool finishedHead = true;
};

}  // namespace oru::fuzz
