#include "stream_sender.hpp"

#include <algorithm>
#include <random>

#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "picture_format.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1000000;
constexpr int kSilenceMs = 50;
constexpr uint64_t kSamplesEveryNs = 200 * kMillisecond;
constexpr uint64_t kDescribeAfterNs = 500 * kMillisecond;
constexpr uint64_t kKeyFrameEveryNs = 200 * kMillisecond;
constexpr uint64_t kAdaptEveryNs = 500 * kMillisecond;
constexpr int kRoomMs = 100;

constexpr int kBadConfiguration = -1;
constexpr int kNoEncoder = 1;
constexpr int kNoMemory = 2;

uint64_t drawSession() {
    std::random_device device;
    return static_cast<uint64_t>(device()) << 32 | device();
}

bool acceptable(const UDPOutConfig& configuration) {
    const auto side = [](uint32_t value) { return value >= 16 && value <= kMaxPictureSide && value % 2 == 0; };
    return side(configuration.width) && side(configuration.height) && configuration.port != 0 &&
           configuration.bitrate > 0 && (configuration.codec == PLAIN_CODEC || configuration.codec == DENSE_CODEC);
}

}  // namespace

StreamSender::StreamSender(Clock& clock, CalibrationSource& calibration, bool verbose)
    : clock_(clock), calibration_(calibration), verbose_(verbose) {}

StreamSender::~StreamSender() {
    close();
}

void StreamSender::close() {
    running_.store(false, std::memory_order_release);
    if (encoding_.joinable()) {
        encoding_.join();
    }
    if (audience_) {
        audience_->close();
        const FrameCounters seen = ledger_.counters();
        if (verbose_) {
            ORU_LOG(Info, "{} sent {} of {} frames", kTagStreaming, seen.delivered, seen.produced);
        }
    }
}

int StreamSender::open(UDPOutConfig configuration) {
    close();
    if (!acceptable(configuration)) {
        ORU_LOG(Error, "{} a stream of {} x {} pixels at {} kbit/s on port {} is not possible", kTagStreaming,
                configuration.width, configuration.height, configuration.bitrate, configuration.port);
        return kBadConfiguration;
    }
    configuration_ = configuration;
    const uint64_t session = drawSession();
    facts_ = std::make_unique<CameraFacts>(configuration, session,
                                           calibration_.text(static_cast<int>(configuration.serial_number)));
    audience_ = std::make_unique<Audience>(clock_);
    transmitter_ = std::make_unique<FrameTransmitter>(*audience_, *facts_, samples_, session);
    bitrate_ = std::make_unique<BitrateControl>(configuration.bitrate);
    if (!mailbox_.allocate(configuration.width, configuration.height)) {
        return kNoMemory;
    }
    if (!transmitter_->open(configuration)) {
        ORU_LOG(Error, "{} no encoder for {}", kTagStreaming, configuration.codec == DENSE_CODEC ? "H.265" : "H.264");
        return kNoEncoder;
    }
    {
        MutexLock lock(pacingMutex_);
        decimator_ = FrameDecimator(configuration.fps);
        pacer_ = LoadPacer(configuration.fps);
    }
    startedNs_ = clock_.monotonicNanoseconds();
    if (const int status = audience_->open(configuration.port, configuration.chunk_size); status != 0) {
        return status;
    }
    ORU_LOG(Info, "{} sending on port {} with {}", kTagStreaming, configuration.port, transmitter_->encoderName());
    bitrateNow_.store(configuration.bitrate, std::memory_order_relaxed);
    running_.store(true, std::memory_order_release);
    encoding_ = std::thread([this] { encodeLoop(); });
    return 0;
}

void StreamSender::setGrabber(LiveCameraGrabber* grabber) {
    if (facts_) {
        facts_->setGrabber(grabber);
    }
}

bool StreamSender::admit(Timestamp time) {
    MutexLock lock(pacingMutex_);
    if (!decimator_.take(time)) {
        return false;
    }
    if (audience_->empty() || pacer_.admit()) {
        return true;
    }
    noteSkippedFrame();
    return false;
}

void StreamSender::asyncingestYUVFrame(unsigned char* pixels, Timestamp time, rlxrw::rlxSampleMetadata metadata,
                                       int size) {
    const std::size_t expected = std::size_t{configuration_.width} * configuration_.height * 2;
    if (!isRunning() || pixels == nullptr || size < 0 || static_cast<std::size_t>(size) < expected || !admit(time)) {
        return;
    }
    OutgoingFrame* frame = mailbox_.reserve();
    if (frame == nullptr) {
        noteSkippedFrame();
        return;
    }
    copying_.store(true, std::memory_order_release);
    frame->id = nextId_.fetch_add(1, std::memory_order_relaxed) + 1;
    frame->timestamp = time;
    frame->metadata = metadata;
    frame->filled = !audience_->empty();
    if (frame->filled) {
        packedToPlanar(pixels, *frame->picture);
    }
    facts_->noticeMetadata(metadata);
    ledger_.delivered();
    mailbox_.commit();
    copying_.store(false, std::memory_order_release);
}

void StreamSender::noteSkippedFrame() {
    skipped_.fetch_add(1, std::memory_order_relaxed);
    ledger_.lost(&FrameCounters::sender_busy);
}

StreamingStatus StreamSender::status() const {
    StreamingStatus status;
    status.frames = ledger_.counters();
    if (!isRunning()) {
        return status;
    }
    const Audience::State state = audience_->state();
    status.receivers = state.receivers;
    status.bitrate = bitrateNow_.load(std::memory_order_relaxed);
    status.frames_sent = sent_.load(std::memory_order_relaxed);
    status.frames_held_back = state.held_back_frames;
    status.packets_sent = state.sent_packets;
    status.packets_repeated = state.repeated_packets;
    status.bytes_sent = state.sent_bytes;
    status.backlog_ms = state.backlog_ms;
    return status;
}

void StreamSender::waitingestYUVFrameProcessing() {
    if (isRunning()) {
        mailbox_.waitForRoom(kRoomMs);
    }
}

void StreamSender::ingestIMU(IMUPacket packet) {
    if (!carriesImu()) {
        return;
    }
    facts_->noticeSample();
    if (!samples_.push(packet) && !samplesLost_.exchange(true, std::memory_order_relaxed)) {
        ORU_LOG(Warning, "{} inertial samples come faster than they can be sent", kTagStreaming);
    }
}

int64_t StreamSender::ticks() const {
    constexpr uint64_t kNanosecondsPer9Ticks = 100000;
    return static_cast<int64_t>((clock_.monotonicNanoseconds() - startedNs_) * 9 / kNanosecondsPer9Ticks) + 1;
}

bool StreamSender::keyFrameDue(uint64_t now) {
    const bool wanted = audience_->takeKeyFrameWish() || forceKey_;
    forceKey_ = wanted && now - keyFrameNs_ < kKeyFrameEveryNs;
    return wanted && !forceKey_;
}

void StreamSender::encodeLoop() {
    while (isRunning()) {
        const OutgoingFrame* frame = mailbox_.take(kSilenceMs);
        if (frame == nullptr) {
            handleSilence();
            continue;
        }
        handleFrame(*frame);
        mailbox_.release();
    }
}

void StreamSender::handleFrame(const OutgoingFrame& frame) {
    const uint64_t begin = clock_.monotonicNanoseconds();
    lastTicks_ = std::max(lastTicks_ + 1, ticks());
    frame.picture->pts = lastTicks_;
    if (audience_->empty() || !frame.filled) {
        transmitter_->dropSamples();
        return;
    }
    facts_->refresh(begin);
    const bool key = keyFrameDue(begin);
    if (key) {
        keyFrameNs_ = begin;
    }
    if (transmitter_->sendFrame(frame, key, skipped_.load(std::memory_order_relaxed))) {
        sent_.fetch_add(1, std::memory_order_relaxed);
    } else {
        ORU_LOG(Warning, "{} the encoder {} failed and starts again", kTagStreaming, transmitter_->encoderName());
        forceKey_ = true;
    }
    sentNs_ = clock_.monotonicNanoseconds();
    adaptBitrate(sentNs_);
    MutexLock lock(pacingMutex_);
    if (pacer_.measured(sentNs_ - begin)) {
        ORU_LOG(Warning, "{} {} is too slow here for every frame: frames are skipped evenly", kTagStreaming,
                transmitter_->encoderName());
    }
}

void StreamSender::handleSilence() {
    const uint64_t now = clock_.monotonicNanoseconds();
    if (audience_->empty()) {
        transmitter_->dropSamples();
        return;
    }
    const bool describe = audience_->descriptionOverdue(facts_->complete() ? 0 : kDescribeAfterNs);
    if (!describe && now - sentNs_ < kSamplesEveryNs) {
        return;
    }
    facts_->refresh(now);
    lastTicks_ = std::max(lastTicks_ + 1, ticks());
    transmitter_->sendSamples(lastTicks_, nextId_.load(std::memory_order_relaxed), describe);
    sentNs_ = now;
}

void StreamSender::adaptBitrate(uint64_t now) {
    if (!configuration_.adaptive_bitrate || now - adaptedNs_ < kAdaptEveryNs) {
        return;
    }
    adaptedNs_ = now;
    const Audience::State state = audience_->state();
    const uint32_t before = bitrate_->current();
    const uint32_t wanted =
        bitrate_->update({state.sent_packets, state.repeated_packets, state.held_back_frames, state.backlog_ms});
    if (wanted == before) {
        return;
    }
    ORU_LOG(Debug, "{} bitrate {} kbit/s", kTagStreaming, wanted);
    bitrateNow_.store(wanted, std::memory_order_relaxed);
    forceKey_ = !transmitter_->setBitrate(wanted) || forceKey_;
}

}  // namespace oru::stream
