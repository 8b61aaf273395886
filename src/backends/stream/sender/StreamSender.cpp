#include "backends/stream/sender/StreamSender.hpp"

#include <algorithm>
#include <random>

#include "backends/stream/transport/guarded.hpp"
#include "coding/image_format.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr int kSilenceMs = 50;
constexpr uint64_t kSamplesEveryNs = 200 * kMillisecond;
constexpr uint64_t kDescribeAfterNs = 500 * kMillisecond;
constexpr uint64_t kKeyFrameEveryNs = 200 * kMillisecond;
constexpr uint64_t kAdaptEveryNs = 500 * kMillisecond;
constexpr int kRoomMs = 100;
constexpr uint32_t kMaxBitrate = 1'000'000;  // kbit/s
constexpr int32_t kMaxFps = 1000;
constexpr int32_t kMaxGop = 10'000;
constexpr uint64_t kFarewellNs = 300 * kMillisecond;

uint64_t drawSession() {
    std::random_device device;
    return static_cast<uint64_t>(device()) << 32 | device();
}

bool acceptable(const UDPOutConfig& configuration) {
    const auto side = [](uint32_t value) { return value >= 16 && value <= kMaxImageSide && value % 2 == 0; };
    return side(configuration.width) && side(configuration.height) && configuration.port != 0 &&
           configuration.bitrate > 0 && configuration.bitrate <= kMaxBitrate && configuration.fps >= 0 &&
           configuration.fps <= kMaxFps && configuration.gop_size <= kMaxGop &&
           (configuration.codec == PLAIN_CODEC || configuration.codec == DENSE_CODEC);
}

}  // namespace

StreamSender::StreamSender(Clock& systemClock, CalibrationSource& calibrationSource, bool tellMore)
    : lease([this] { close(); }), clock(systemClock), calibration(calibrationSource), verbose(tellMore) {}

StreamSender::~StreamSender() {
    lease.retire();
    close();
}

void StreamSender::close() {
    const MutexLock lock(lifecycle);
    stop();
}

void StreamSender::stop() {
    const bool wasRunning = running.exchange(false, std::memory_order_acq_rel);
    encoding = {};  // ends and joins it
    if (subscribers) {
        subscribers->close();
    }
    if (controls) {
        controls->close();
    }
    if (verbose && wasRunning) {
        const FrameCounters seen = ledger.counters();
        ORU_LOG(Info, "{} sent {} of {} frames", kTagStreaming, seen.delivered, seen.produced);
    }
}

int StreamSender::open(UDPOutConfig configuration) {
    const MutexLock lock(lifecycle);
    stop();
    if (!acceptable(configuration)) {
        ORU_LOG(Error, "{} a stream of {} x {} pixels at {} kbit/s and {} frames/s on port {} is not possible",
                kTagStreaming, configuration.width, configuration.height, configuration.bitrate, configuration.fps,
                configuration.port);
        return SENDER_BAD_CONFIGURATION;
    }
    if (!isTransportAlive()) {
        return SENDER_NO_SOCKET;
    }
    int status = SENDER_NO_MEMORY;
    (void)guarded("starting a stream", [&]() ORU_REQUIRES(lifecycle) { status = start(configuration); });
    if (status != SENDER_RUNNING) {
        stop();
    }
    return status;
}

int StreamSender::start(const UDPOutConfig& configuration) {
    const auto keys = effectiveKeys(givenKeys);
    if (!keys) {
        return SENDER_UNUSABLE_KEY;
    }
    settings = configuration;
    const uint64_t session = drawSession();
    describer = std::make_unique<CameraDescriber>(configuration, session,
                                                  calibration.text(static_cast<int>(configuration.serial_number)));
    subscribers.reset();
    controls.reset();
    if (!keys->control.empty()) {
        controls = std::make_unique<ControlServer>(clock, keys->control, [this] { describer->expire(); });
    }
    subscribers = std::make_unique<Subscribers>(clock, *keys, [this](SrtSocket&& socket, const std::string& address) {
        controls->adopt(std::move(socket), address);
    });
    transmitter = std::make_unique<FrameTransmitter>(*subscribers, *describer, samples, session);
    bitrateControl = std::make_unique<BitrateControl>(configuration.bitrate);
    if (!frameQueue.allocate(configuration.width, configuration.height)) {
        return SENDER_NO_MEMORY;
    }
    if (!transmitter->open(configuration)) {
        ORU_LOG(Error, "{} no encoder for {}", kTagStreaming, configuration.codec == DENSE_CODEC ? "H.265" : "H.264");
        return SENDER_NO_ENCODER;
    }
    {
        const MutexLock lock(pacingMutex);
        decimator = FrameDecimator(configuration.fps);
        pacer = LoadPacer(configuration.fps);
    }
    startedNs = clock.monotonicNanoseconds();
    if (const int status = subscribers->open(configuration.port, configuration.chunk_size); status != SENDER_RUNNING) {
        return status;
    }
    ORU_LOG(Info, "{} sending on port {} with {}; viewing {}, control {}", kTagStreaming, configuration.port,
            transmitter->encoderName(), keys->viewing.empty() ? "open to all" : "with the key",
            controls ? "with the control key" : "from outside refused");
    bitrateNow.store(configuration.bitrate, std::memory_order_relaxed);
    encoding = std::jthread([this](const std::stop_token& stop) { encodeLoop(stop); });
    running.store(true, std::memory_order_release);
    return SENDER_RUNNING;
}

void StreamSender::setGrabber(LiveCameraGrabber* grabber) {
    const auto announce = [this](LiveCameraGrabber* camera) {
        if (describer) {
            describer->setGrabber(camera);
        }
        if (controls) {
            controls->setGrabber(camera);
        }
    };
    if (!guarded("asking the camera", [&] { announce(grabber); })) {
        (void)guarded("sending without the camera's controls", [&] { announce(nullptr); });
    }
}

void StreamSender::setImuCalibration(const ImuCalibration& calibrationOfSensor) {
    if (describer) {
        describer->setImuCalibration(calibrationOfSensor);
    }
}

bool StreamSender::admit(Timestamp time) {
    const MutexLock lock(pacingMutex);
    if (!decimator.take(time)) {
        return false;
    }
    if (subscribers->empty() || pacer.admit()) {
        return true;
    }
    noteSkippedFrame();
    return false;
}

void StreamSender::asyncingestYUVFrame(unsigned char* pixels, Timestamp time, rlxrw::rlxSampleMetadata metadata,
                                       int size) {
    const std::size_t expected = std::size_t{settings.width} * settings.height * 2;
    if (!isRunning() || pixels == nullptr || size < 0 || static_cast<std::size_t>(size) < expected || !admit(time)) {
        return;
    }
    bool taken = false;
    (void)guarded("taking a frame", [&] { taken = take(pixels, time, metadata); });
    copying.store(false, std::memory_order_release);
    if (!taken) {
        noteSkippedFrame();
        const MutexLock lock(pacingMutex);
        pacer.noteOverflow();
    }
}

bool StreamSender::take(const unsigned char* pixels, Timestamp time, const rlxrw::rlxSampleMetadata& metadata) {
    OutgoingFrame* frame = frameQueue.reserve();
    if (frame == nullptr) {
        return false;
    }
    copying.store(true, std::memory_order_release);
    frame->id = nextId.fetch_add(1, std::memory_order_relaxed) + 1;
    frame->timestamp = time;
    frame->metadata = metadata;
    frame->filled = !subscribers->empty();
    if (frame->filled) {
        coding::packedToPlanar(pixels, *frame->image);
    }
    describer->noticeMetadata(metadata);
    ledger.delivered();
    frameQueue.commit();
    return true;
}

void StreamSender::noteSkippedFrame() {
    skipped.fetch_add(1, std::memory_order_relaxed);
    ledger.lost(&FrameCounters::sender_busy);
}

StreamingStatus StreamSender::status() const {
    StreamingStatus status;
    status.frames = ledger.counters();
    if (!isRunning()) {
        return status;
    }
    const Subscribers::State state = subscribers->state();
    status.receivers = state.receivers;
    status.bitrate = bitrateNow.load(std::memory_order_relaxed);
    status.frames_sent = sent.load(std::memory_order_relaxed);
    status.frames_held_back = state.total.held_back_frames;
    status.packets_sent = state.total.sent_packets;
    status.packets_repeated = state.total.repeated_packets;
    status.bytes_sent = state.total.sent_bytes;
    status.samples_lost = state.total.lost_samples + samplesLost.load(std::memory_order_relaxed);
    status.backlog_ms = state.total.backlog_ms;
    return status;
}

void StreamSender::waitingestYUVFrameProcessing() {
    if (isRunning()) {
        frameQueue.waitForRoom(kRoomMs);
    }
}

void StreamSender::ingestIMU(IMUPacket packet) {
    if (!carriesImu()) {
        return;
    }
    bool kept = false;
    (void)guarded("keeping an inertial sample", [&] {
        describer->noticeSample();
        kept = samples.push(packet);
    });
    if (!kept && samplesLost.fetch_add(1, std::memory_order_relaxed) == 0) {
        ORU_LOG(Warning, "{} inertial samples come faster than they can be sent", kTagStreaming);
    }
}

int64_t StreamSender::ticks() const {
    constexpr uint64_t kNanosecondsPer9Ticks = 100'000;
    return static_cast<int64_t>((clock.monotonicNanoseconds() - startedNs) * 9 / kNanosecondsPer9Ticks) + 1;
}

bool StreamSender::keyFrameDue(uint64_t now) {
    const bool wanted = subscribers->takeKeyFrameRequest() || forceKey;
    forceKey = wanted && now - keyFrameNs < kKeyFrameEveryNs;
    return wanted && !forceKey;
}

void StreamSender::encodeLoop(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        const OutgoingFrame* frame = frameQueue.take(kSilenceMs);
        if (frame == nullptr) {
            (void)guarded("sending samples", [this] { handleSilence(); });
            continue;
        }
        if (!guarded("sending a frame", [&] { handleFrame(*frame); })) {
            forceKey = true;  // the receivers lack one
        }
        frameQueue.release();
    }
    (void)guarded("ending a stream", [this] { finishStream(); });
}

void StreamSender::finishStream() {
    const uint64_t end = clock.monotonicNanoseconds() + kFarewellNs;
    while (clock.monotonicNanoseconds() < end) {
        const OutgoingFrame* frame = frameQueue.take(0);
        if (frame == nullptr) {
            break;
        }
        (void)guarded("sending a frame", [&] { handleFrame(*frame); });
        frameQueue.release();
    }
    if (subscribers->empty()) {
        return;
    }
    lastTicks = std::max(lastTicks + 1, ticks());
    transmitter->sayGoodbye(lastTicks, nextId.load(std::memory_order_relaxed), skipped.load(std::memory_order_relaxed));
    subscribers->awaitDelivery(kFarewellNs);
}

void StreamSender::handleFrame(const OutgoingFrame& frame) {
    const uint64_t begin = clock.monotonicNanoseconds();
    lastTicks = std::max(lastTicks + 1, ticks());
    if (subscribers->empty()) {
        transmitter->setSamplesAside();
    }
    if (subscribers->empty() || !frame.filled) {
        return;
    }
    describer->refresh(begin);
    const bool key = keyFrameDue(begin);
    if (key) {
        keyFrameNs = begin;
    }
    if (transmitter->sendFrame(frame, lastTicks, key, skipped.load(std::memory_order_relaxed))) {
        sent.fetch_add(1, std::memory_order_relaxed);
    } else {
        ORU_LOG(Warning, "{} the encoder {} failed and starts again", kTagStreaming, transmitter->encoderName());
        forceKey = true;
    }
    sentNs = clock.monotonicNanoseconds();
    adaptBitrate(sentNs);
    const MutexLock lock(pacingMutex);
    if (pacer.measured(sentNs - begin)) {
        ORU_LOG(Warning, "{} {} is too slow here for every frame: frames are skipped evenly", kTagStreaming,
                transmitter->encoderName());
    }
}

void StreamSender::handleSilence() {
    const uint64_t now = clock.monotonicNanoseconds();
    if (subscribers->empty()) {
        transmitter->setSamplesAside();
        return;
    }
    const bool describe = subscribers->descriptionOverdue(describer->complete() ? 0 : kDescribeAfterNs);
    if (!describe && now - sentNs < kSamplesEveryNs) {
        return;
    }
    describer->refresh(now);
    lastTicks = std::max(lastTicks + 1, ticks());
    transmitter->sendSamples(lastTicks, nextId.load(std::memory_order_relaxed), describe);
    sentNs = now;
}

void StreamSender::adaptBitrate(uint64_t now) {
    if (!settings.adaptive_bitrate || now - adaptedNs < kAdaptEveryNs) {
        return;
    }
    adaptedNs = now;
    const SubscriberStatistics total = subscribers->state().total;
    const uint32_t before = bitrateControl->current();
    const uint32_t wanted =
        bitrateControl->update({total.sent_packets, total.repeated_packets, total.held_back_frames, total.backlog_ms});
    if (wanted == before) {
        return;
    }
    ORU_LOG(Debug, "{} bitrate {} kbit/s", kTagStreaming, wanted);
    bitrateNow.store(wanted, std::memory_order_relaxed);
    forceKey = !transmitter->setBitrate(wanted) || forceKey;
}

}  // namespace oru::stream
