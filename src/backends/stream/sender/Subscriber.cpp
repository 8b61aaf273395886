#include "backends/stream/sender/Subscriber.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr double kMaxBacklogMs = 400.0;
constexpr double kCaughtUpMs = 60.0;
constexpr uint64_t kLastingNs = 150 * kMillisecond;
constexpr uint64_t kSilentNs = 4000 * kMillisecond;
constexpr int kRequestsPerTurn = 8;
constexpr double kMessagesAtOnce = 50;
constexpr double kMessagesPerSecond = 20;

}  // namespace

SubscriberStatistics& SubscriberStatistics::operator+=(const SubscriberStatistics& other) {
    sent_packets += other.sent_packets;
    repeated_packets += other.repeated_packets;
    held_back_frames += other.held_back_frames;
    sent_bytes += other.sent_bytes;
    lost_samples += other.lost_samples;
    backlog_ms = std::max(backlog_ms, other.backlog_ms);
    return *this;
}

Subscriber::Subscriber(SrtSocket&& socket, std::string address, Timestamp newestSample, uint64_t now)
    : connection(std::move(socket)),
      peerAddress(std::move(address)),
      messages(kMessagesAtOnce, kMessagesPerSecond),
      resumesAfter(newestSample),
      joinedNs(now),
      heardNs(now) {}

bool Subscriber::isReadyForKeyFrame() const {
    return !failed && needsKey && described && total.backlog_ms < kCaughtUpMs;
}

bool Subscriber::lacksDescription(uint64_t now, uint64_t nanoseconds) const {
    return !described && now - joinedNs >= nanoseconds;
}

Subscriber::Requests Subscriber::takeRequests(uint64_t now) {
    Requests requests;
    std::array<char, SRT_LIVE_MAX_PLSIZE> message{};
    for (int i = 0; i < kRequestsPerTurn; ++i) {
        const int size = srt_recvmsg(socket(), message.data(), static_cast<int>(message.size()));
        if (size <= 0) {
            break;
        }
        if (!messages.take(now)) {
            requests.too_many = true;
            break;
        }
        const std::string_view request(message.data(), static_cast<std::size_t>(size));
        requests.key_frame = requests.key_frame || request == kKeyFrameRequest;
    }
    return requests;
}

void Subscriber::watch(uint64_t now) {
    SRT_TRACEBSTATS measured{};
    const bool alive = srt_getsockstate(socket()) == SRTS_CONNECTED && srt_bistats(socket(), &measured, 0, 1) == 0;
    if (!alive) {
        failed = true;
        return;
    }
    const auto count = static_cast<uint64_t>(measured.pktRecvACKTotal);
    if (count != acknowledgements) {
        acknowledgements = count;
        heardNs = now;
    }
    total.sent_packets = static_cast<uint64_t>(measured.pktSentTotal);
    total.repeated_packets = static_cast<uint64_t>(measured.pktRetransTotal);
    total.backlog_ms = measured.msSndBuf;
    failed = failed || now - heardNs > kSilentNs;
}

bool Subscriber::isBehind(uint64_t now) {
    if (needsKey) {
        lateSinceNs = 0;
        return total.backlog_ms > kCaughtUpMs;
    }
    if (total.backlog_ms <= kMaxBacklogMs) {
        lateSinceNs = 0;
        return false;
    }
    // After a moment without processor time the acknowledgements are there, but not yet looked at.
    lateSinceNs = lateSinceNs == 0 ? now : lateSinceNs;
    return now - lateSinceNs >= kLastingNs;
}

bool Subscriber::accepts(StreamBlock::Kind kind, uint64_t now) {
    if (failed) {
        return false;
    }
    if (kind == StreamBlock::Kind::DESCRIPTION) {
        return total.backlog_ms < kMaxBacklogMs;
    }
    if (kind == StreamBlock::Kind::SAMPLES || kind == StreamBlock::Kind::GOODBYE) {
        // Before a description, which comes with the tables, a receiver could not tell what these packets are.
        return described && (kind == StreamBlock::Kind::GOODBYE || total.backlog_ms < kMaxBacklogMs);
    }
    SRT_TRACEBSTATS measured{};
    if (srt_bistats(socket(), &measured, 0, 1) != 0) {
        failed = true;
        return false;
    }
    total.backlog_ms = measured.msSndBuf;
    const bool behind = isBehind(now);
    needsKey = needsKey || behind;
    if (behind || (needsKey && kind != StreamBlock::Kind::KEY_FRAME)) {
        total.held_back_frames += started ? 1U : 0U;
        return false;
    }
    needsKey = false;
    started = true;
    return true;
}

void Subscriber::begin(const StreamBlock& block, RetransmitBuffer& samples, uint64_t now) {
    if (!accepts(block.kind, now) || !sendMissed(block, samples)) {
        sent = block.bytes.size();
        return;
    }
    const bool describes = block.kind == StreamBlock::Kind::KEY_FRAME || block.kind == StreamBlock::Kind::DESCRIPTION;
    described = described || describes;
}

bool Subscriber::sendUpTo(std::span<const uint8_t> bytes, std::size_t end) {
    while (sent < end) {
        const std::size_t size = std::min<std::size_t>(kMessageBytes, end - sent);
        const auto* message = reinterpret_cast<const char*>(bytes.data() + sent);
        if (srt_sendmsg(socket(), message, static_cast<int>(size), -1, 1) < 0) {
            failed = srt_getlasterror(nullptr) != SRT_EASYNCSND;
            needsKey = true;
            return false;
        }
        sent += size;
        total.sent_bytes += size;
    }
    return true;
}

bool Subscriber::sendMissed(const StreamBlock& block, RetransmitBuffer& samples) {
    const uint64_t blockFirst = samples.firstOf(block);
    if (!std::exchange(countsSamples, true)) {
        const auto next = resumesAfter == 0 ? std::nullopt : samples.after(resumesAfter);
        nextSample = std::min(next.value_or(blockFirst), blockFirst);
    }
    const uint64_t first = std::max(nextSample, samples.begin());
    total.lost_samples += first - nextSample;
    nextSample = first;
    endSample = samples.end();
    sent = 0;
    if (first == blockFirst) {
        return true;
    }
    // A receiver that has just come knows nothing of the tracks before it has the tables.
    if (!sendUpTo(block.bytes, block.table_bytes)) {
        return false;
    }
    while (nextSample < blockFirst) {
        const RetransmitBuffer::Packets missed = samples.packetsBefore(block, nextSample);
        sent = 0;
        if (!sendUpTo(missed.bytes, missed.bytes.size())) {
            return false;
        }
        nextSample = missed.end;
    }
    sent = block.table_bytes;
    return true;
}

bool Subscriber::hasEverything() const {
    int32_t waiting = 0;
    int size = sizeof(waiting);
    return failed || srt_getsockflag(socket(), SRTO_SNDDATA, &waiting, &size) != 0 || waiting == 0;
}

bool Subscriber::sendBatch(const StreamBlock& block, std::size_t batchBytes) {
    const std::size_t size = block.bytes.size();
    if (sent == size) {
        return false;
    }
    if (!sendUpTo(block.bytes, std::min(size, sent + batchBytes))) {
        sent = size;
        return false;
    }
    if (sent == size) {
        nextSample = endSample;
    }
    return sent < size;
}

}  // namespace oru::stream
