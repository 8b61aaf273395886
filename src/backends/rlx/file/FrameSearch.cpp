#include "backends/rlx/file/FrameSearch.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace oru::rlx {

namespace {

constexpr std::size_t kWindow = std::size_t{1} << 20;
constexpr uint64_t kAllowanceOfAByte = 2;
constexpr uint64_t kCostOfARead = 4096;
/// The Cluster's identifier and the first byte of its size.
constexpr std::array<uint8_t, 5> kClusterStart{0x1F, 0x43, 0xB6, 0x75, 0x01};

}  // namespace

bool FrameSearch::frameAt(uint64_t offset) {
    std::array<uint8_t, kPrefixSize> prefix{};
    return openedFile.file.readAt(offset, prefix.data(), prefix.size()) && isFrame(offset, prefix);
}

bool FrameSearch::isFrame(uint64_t offset, ByteView prefix) {
    cost = kMinClusterSize;
    const std::optional<ClusterShape> shape = readPrefix(prefix);
    if (!shape || shape->total > fileSize - offset) {
        return false;
    }
    const uint64_t suffixOffset = kPrefixSize + shape->image_size;
    if (!suffixIsWhole(offset + suffixOffset, static_cast<std::size_t>(shape->total - suffixOffset), prefix)) {
        return false;
    }
    foundEntry = {offset, stored.frame.time_ns, static_cast<uint32_t>(shape->total), stored.frame.key,
                  stored.frame.time_ms};
    return true;
}

bool FrameSearch::suffixIsWhole(uint64_t offset, std::size_t size, ByteView prefix) {
    const uint64_t id = openedFile.header.recording_id;
    std::array<uint8_t, kSuffixStartSize> start{};
    ByteView begin(start);
    if (windowHolds(offset, start.size())) {
        begin = ByteView(window).subspan(static_cast<std::size_t>(offset - windowOffset), start.size());
    } else {
        cost = std::max(cost, kCostOfARead);
        if (!openedFile.file.readAt(offset, start.data(), start.size())) {
            return false;
        }
    }
    if (!suffixBegins(prefix, begin, size, id, stored.frame, stored.scratch)) {
        return false;
    }
    cost = std::max<uint64_t>(cost, size);
    stored.suffix.resize(size);
    return openedFile.file.readAt(offset, stored.suffix.data(), size) &&
           readSuffix(prefix, stored.suffix, id, stored.frame, stored.scratch);
}

bool FrameSearch::windowHolds(uint64_t offset, uint64_t count) const {
    return offset >= windowOffset && offset + count <= windowOffset + window.size();
}

/// Moves `from` to where the file has bytes and the window there; false behind them.
bool FrameSearch::loadWindow(uint64_t& from) {
    if (windowHolds(from, kPrefixSize)) {
        return true;
    }
    from = openedFile.file.dataFrom(from);
    if (from + kMinClusterSize > fileSize) {
        return false;
    }
    window.resize(std::min<uint64_t>(kWindow, fileSize - from));
    window.resize(openedFile.file.readUpTo(from, window.data(), window.size()));
    windowOffset = from;
    allowance += kAllowanceOfAByte * window.size();
    return window.size() >= kPrefixSize;
}

/// Looks through the window from `from` on, which it moves behind what was searched.
bool FrameSearch::searchWindow(uint64_t& from) {
    const uint64_t end = windowOffset + window.size();
    while (windowHolds(from, kPrefixSize)) {
        const uint8_t* const begin = window.data() + (from - windowOffset);
        const void* hit = ::memmem(begin, end - from, kClusterStart.data(), kClusterStart.size());
        if (hit == nullptr) {
            from = end - (kClusterStart.size() - 1);
            return false;
        }
        from += static_cast<uint64_t>(static_cast<const uint8_t*>(hit) - begin);
        if (!windowHolds(from, kPrefixSize)) {
            return false;
        }
        if (isFrame(from, ByteView(window).subspan(from - windowOffset, kPrefixSize))) {
            return true;
        }
        allowance -= std::min(allowance, cost);
        if (allowance == 0) {
            from = fileSize;
            return false;
        }
        ++from;
    }
    return false;
}

bool FrameSearch::findFrom(uint64_t from, const std::function<bool()>& goOn) {
    while (from + kMinClusterSize <= fileSize && goOn() && loadWindow(from)) {
        if (searchWindow(from)) {
            return true;
        }
    }
    return false;
}

}  // namespace oru::rlx
