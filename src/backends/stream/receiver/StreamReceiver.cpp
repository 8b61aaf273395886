#include "backends/stream/receiver/StreamReceiver.hpp"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "backends/stream/control/reject_reason.hpp"
#include "backends/stream/transport/Resolver.hpp"
#include "backends/stream/transport/guarded.hpp"
#include "coding/image_format.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kOpenNs = 3000 * kMillisecond;
constexpr int kResolveMs = 2000;
constexpr uint64_t kReadNs = 20 * kMillisecond;
constexpr int kDecodeWaitMs = 50;
constexpr std::size_t kBacklogToSkip = 3 * ImageRing::kMaxWaiting;
constexpr uint64_t kShortestPatienceNs = 50 * kMillisecond;
constexpr uint64_t kLongestPatienceNs = 200 * kMillisecond;
constexpr uint8_t kVersionWithImu = 5;

constexpr uint64_t kLookNs = 50 * kMillisecond;

constexpr int kRefused = -1;
constexpr int kUnknown = -1;

const ControlState* find(const std::vector<ControlState>& controls, VIDEO_SETTINGS setting) {
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const ControlState& state) { return state.control == setting; });
    return found == controls.end() ? nullptr : &*found;
}

}  // namespace

StreamReceiver::StreamReceiver(Clock& systemClock, CalibrationSource& calibration,
                               std::unique_ptr<rlxrw::RLXVideo> recorder, bool tellMore)
    : lease([this] { close(); }),
      clock(systemClock),
      calibrationSource(calibration),
      ownRecorder(std::move(recorder)),
      verbose(tellMore),
      images(clock, ledger),
      control(clock),
      link(clock, {[this] { reassembler.restart(); },
                   [this](const uint8_t* data, std::size_t size) { reassembler.feed(data, size); },
                   [this] {
                       IMUPacket newest;
                       return samples.newest(newest) ? newest.imu_timestamp : 0;
                   }}),
      reassembler(queue, samples, ledger, link.keyFrameWanted(),
                  [this](DescriptionRecord&& record) { adopt(std::move(record)); }) {}

StreamReceiver::~StreamReceiver() {
    lease.retire();
    close();
}

void StreamReceiver::close() {
    const MutexLock lock(lifecycle);
    stop();
}

void StreamReceiver::stop() {
    opened = false;
    control.stop();
    link.stop();
    decoding = {};  // ends and joins it
}

int StreamReceiver::open(String ip, unsigned short port, int /*unused*/) {
    const MutexLock starting(lifecycle);
    stop();
    int status = STREAM_NO_RESOURCES;
    (void)guarded("connecting to a stream", [&]() ORU_REQUIRES(lifecycle) { status = connect(ip.get(), port); });
    if (status != STREAM_CONNECTED) {
        stop();
    }
    return status;
}

int StreamReceiver::connect(const std::string& host, uint16_t port) {
    const uint64_t deadline = clock.monotonicNanoseconds() + kOpenNs;
    if (host.empty() || port == 0) {
        ORU_LOG(Error, "{} \"{}\" port {} is no address of a stream", kTagStreaming, host, port);
        return STREAM_BAD_ADDRESS;
    }
    if (!isTransportAlive()) {
        return STREAM_NO_ANSWER;
    }
    const auto found = effectiveKeys(givenKeys);
    if (!found) {
        return STREAM_UNUSABLE_KEY;
    }
    keys = *found;
    const auto address = Resolver::system().resolve(host, port, kResolveMs);
    if (!address) {
        ORU_LOG(Error, "{} the host {} is not known; check its name", kTagStreaming, host);
        return STREAM_UNKNOWN_HOST;
    }
    {
        const MutexLock lock(mutex);
        haveDescription = false;
    }
    link.start(*address, keys.viewing);
    const std::string sender = host + ":" + std::to_string(port);
    if (!awaitDescription(sender, deadline)) {
        const std::string refusal = keyRefusal();
        return complainUnanswered(sender, refusal, link.connections() > 0);
    }
    control.start(*address, keys.control);
    decoding = std::jthread([this](const std::stop_token& stop) { decodeLoop(stop); });
    keyWarned = false;
    told = Told::NOTHING;
    opened = true;
    return STREAM_CONNECTED;
}

std::vector<IMUPacket> StreamReceiver::takeImuPacketsBefore(Timestamp time) {
    std::vector<IMUPacket> taken;  // where there is no memory for them they stay for the next frame
    (void)guarded("taking samples", [&] { taken = samples.takeBefore(time); });
    return taken;
}

std::string StreamReceiver::keyRefusal() const {
    return rejectReasonText(link.rejection(), EffectiveKeys::kViewingVariable, !keys.viewing.empty());
}

int StreamReceiver::complainUnanswered(const std::string& address, const std::string& refusal, bool connected) {
    if (!refusal.empty()) {
        ORU_LOG(Error, "{} {} refuses this receiver: {}", kTagStreaming, address, refusal);
        return STREAM_KEY_REFUSED;
    }
    ORU_LOG(Error, "{} {} {}; check {}", kTagStreaming,
            connected ? "no camera describes itself at" : "no stream answers at", address,
            connected ? "that it is a camera of this system that sends there"
                      : "the address and the port, that the sender runs, and that no firewall is between");
    return connected ? STREAM_NOT_DESCRIBED : STREAM_NO_ANSWER;
}

bool StreamReceiver::awaitDescription(const std::string& sender, uint64_t deadline) {
    int serial = 0;
    std::string calibration;
    {
        const MutexLock lock(mutex);
        const auto ready = [this]() ORU_REQUIRES(mutex) { return haveDescription; };
        while (!described.wait_for(mutex, std::chrono::nanoseconds(kLookNs), ready)) {
            if (clock.monotonicNanoseconds() > deadline || !keyRefusal().empty()) {
                return false;
            }
        }
        width = senderDescription.camera.width;
        height = senderDescription.camera.height;
        serial = senderDescription.camera.serial_number;
        calibration = senderDescription.calibration;
        setPatience(senderDescription.fps);
    }
    images.resize(std::size_t{width} * height * 2);
    calibrationSource.offerFrom(CalibrationOrigin::STREAM, sender, serial, std::move(calibration));
    return true;
}

void StreamReceiver::setPatience(int fps) {
    const uint64_t period = fps > 0 ? 1000 * kMillisecond / static_cast<uint64_t>(fps) : kLongestPatienceNs;
    images.setPatience(std::clamp(2 * period, kShortestPatienceNs, kLongestPatienceNs));
}

void StreamReceiver::adopt(DescriptionRecord&& record) {
    const MutexLock lock(mutex);
    const bool sizeChanged = haveDescription && (record.camera.width != senderDescription.camera.width ||
                                                 record.camera.height != senderDescription.camera.height);
    // The application's buffers have the old size; the sender's images are refused until it opens again.
    if (sizeChanged && !std::exchange(sizeWarned, true)) {
        ORU_LOG(Warning, "{} the sender now has {} x {} pictures; open the stream again", kTagStreaming,
                record.camera.width, record.camera.height);
    }
    if (sizeChanged) {
        return;
    }
    if (verbose && haveDescription && record.session != senderDescription.session) {
        ORU_LOG(Info, "{} the sender started again", kTagStreaming);
    }
    senderDescription = std::move(record);
    haveDescription = true;
    sizeWarned = false;
    described.notify_all();
}

/// A sender that was started again with another key would else be silent without a word.
void StreamReceiver::complainOfKey() {
    if (keyWarned) {
        return;
    }
    if (const std::string refusal = keyRefusal(); !refusal.empty()) {
        keyWarned = true;
        ORU_LOG(Warning, "{} the sender refuses this receiver: {}", kTagStreaming, refusal);
    }
}

bool StreamReceiver::hasEnded() const {
    // In the order in which an image passes, so that none is overlooked on its way.
    return reassembler.goodbye() && queue.isDrained() && images.empty();
}

void StreamReceiver::tellOfSender(bool ended, bool silent) {
    const Told seen = ended ? Told::END : (silent ? Told::SILENCE : Told::NOTHING);
    if (silent) {
        complainOfKey();
    }
    if (std::exchange(told, seen) == seen) {
        return;
    }
    if (seen == Told::END) {
        ORU_LOG(Info, "{} the sender ended the stream", kTagStreaming);
    } else if (seen == Told::SILENCE) {
        ORU_LOG(Warning, "{} nothing comes from the sender; trying to reach it again", kTagStreaming);
    } else {
        ORU_LOG(Info, "{} the sender is back", kTagStreaming);
    }
}

StreamInputStatus StreamReceiver::status() const {
    StreamInputStatus status;
    status.connected = link.connected() && !link.silent();
    status.goodbye = hasEnded();
    const uint64_t newest = images.newestNs();
    const uint64_t now = clock.monotonicNanoseconds();
    status.last_frame_age_ms = newest == 0 || now < newest ? 0.0 : static_cast<double>(now - newest) / 1e6;
    status.reconnections = std::max<uint64_t>(1, link.connections()) - 1;
    status.samples_dropped = samples.dropped();
    return status;
}

bool StreamReceiver::readStreamData(unsigned char* image, unsigned char* /*second*/) {
    if (!opened || image == nullptr) {
        return false;
    }
    const bool ended = hasEnded();
    (void)guarded("telling of the sender", [&] { tellOfSender(ended, link.silent()); });
    const std::optional<FrameInfo> info = images.read(image, ended ? 0 : kReadNs);
    if (info) {
        frame = *info;
    }
    return info.has_value();
}

void StreamReceiver::decodeLoop(const std::stop_token& stop) {
    CodedImage image;
    needsKey = true;
    while (!stop.stop_requested()) {
        if (!queue.pop(image, kDecodeWaitMs)) {
            continue;
        }
        if (!guarded("decoding a frame", [&] { decodeImage(image); })) {
            decoder.close();
            lose(&FrameCounters::decode_failed);
        }
    }
}

void StreamReceiver::lose(FrameLedger::Cause cause) {
    ledger.lost(cause);
    needsKey = true;
    link.keyFrameWanted().store(true, std::memory_order_release);
}

bool StreamReceiver::prepareDecoder(VideoCodec codec) {
    return decoder.codec() == codec || decoder.open({codec, coding::CodecUse::STREAMING, width, height, {}});
}

void StreamReceiver::decodeImage(CodedImage& image) {
    const FrameRecord& record = image.record;
    if (needsKey && !record.key_frame) {
        lose(&FrameCounters::damaged);
        return;
    }
    uint8_t* coded = image.bytes.data() + image.bytes.size() - image.padding - record.image_bytes;
    const AVFrame* decoded = nullptr;
    if (prepareDecoder(image.codec)) {
        decoded = decoder.decode(coded, record.image_bytes);
    }
    if (decoded == nullptr) {
        decoder.close();
        lose(&FrameCounters::decode_failed);
        return;
    }
    needsKey = false;
    if (queue.size() > kBacklogToSkip) {
        ledger.lost(&FrameCounters::overwritten);
        return;
    }
    coding::planarToPacked(*decoded, images.beginWrite());
    images.publish({record.frame_id, record.timestamp_ns, record.has_metadata, record.metadata});
}

StreamDescription StreamReceiver::description() {
    const MutexLock lock(mutex);
    return senderDescription.camera;
}

int StreamReceiver::announcedFps() {
    const MutexLock lock(mutex);
    return std::max(0, senderDescription.fps);
}

StreamImuPose StreamReceiver::announcedImuPose() {
    const MutexLock lock(mutex);
    return senderDescription.pose_known ? senderDescription.pose : StreamImuPose{};
}

ImuCalibration StreamReceiver::announcedImuCalibration() {
    const MutexLock lock(mutex);
    return senderDescription.imu_calibration.value_or(ImuCalibration{});
}

int StreamReceiver::versionByte() {
    const MutexLock lock(mutex);
    return senderDescription.version_byte;
}

bool StreamReceiver::canSupplyCurrentImu() {
    IMUPacket unused;
    const bool announced = versionByte() >= kVersionWithImu && description().has_imu;
    return announced && samples.newest(unused);
}

/// Asks the sender, when there is a control right. Nothing: there is none, or no good answer.
std::optional<ControlMessage> StreamReceiver::askWithRight(ControlOperation operation, VIDEO_SETTINGS setting) {
    if (!opened || keys.control.empty()) {
        return std::nullopt;
    }
    ControlMessage request;
    request.operation = operation;
    request.control = setting;
    const auto reply = control.ask(request);
    return reply && reply->status == ControlStatus::DONE ? reply : std::nullopt;
}

int StreamReceiver::write(const ControlMessage& request) {
    const auto reply = control.ask(request);
    if (reply && reply->status == ControlStatus::DONE) {
        return 0;
    }
    ORU_LOG(Warning, "{} control {} was not written: {}", kTagStreaming, static_cast<int>(request.control),
            control.refusal());
    return kRefused;
}

bool StreamReceiver::valueRange(VIDEO_SETTINGS setting, int& min, int& max) {
    if (const auto reply = askWithRight(ControlOperation::RANGE, setting)) {
        min = reply->values[0];
        max = reply->values[1];
        return true;
    }
    const MutexLock lock(mutex);
    const ControlState* state = find(senderDescription.controls, setting);
    if (state == nullptr || !state->range_known) {
        return false;
    }
    min = state->minimum;
    max = state->maximum;
    return true;
}

int StreamReceiver::getGrabberSettingsValue(VIDEO_SETTINGS setting) {
    if (const auto reply = askWithRight(ControlOperation::READ, setting)) {
        return reply->values[0];
    }
    const MutexLock lock(mutex);
    const ControlState* state = find(senderDescription.controls, setting);
    if (state != nullptr && state->value_known) {
        return state->value;
    }
    // A sender without a camera of its own says nothing of its sharpness: neutral then.
    return setting == SHARPNESS ? 0 : kUnknown;
}

int StreamReceiver::setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) {
    ControlMessage request;
    request.operation = ControlOperation::WRITE;
    request.control = setting;
    request.automatic = automatic;
    if (!automatic) {
        request.count = 1;
        request.values[0] = value;
    }
    return write(request);
}

int StreamReceiver::getGrabberSettingsValue(VIDEO_SETTINGS setting, int /*side*/, Rect& region) {
    const auto reply = setting == AEC_AGC_ROI ? askWithRight(ControlOperation::READ, setting) : std::nullopt;
    if (reply) {
        const auto number = [&](std::size_t i) { return static_cast<uint64_t>(std::max(0, reply->values[i])); };
        region = {number(0), number(1), number(2), number(3)};
        return 0;
    }
    const MutexLock lock(mutex);
    if (setting != AEC_AGC_ROI || !senderDescription.region_known) {
        return kUnknown;
    }
    region = senderDescription.region;
    return 0;
}

int StreamReceiver::setGrabberSettingsValue(VIDEO_SETTINGS setting, int /*side*/, Rect region, bool reset) {
    ControlMessage request;
    request.operation = ControlOperation::WRITE;
    request.control = setting;
    request.automatic = reset;
    if (!reset) {
        // What does not fit is out of every image, and the sender says so.
        const auto number = [](uint64_t value) { return static_cast<int32_t>(std::min<uint64_t>(value, INT32_MAX)); };
        request.count = 4;
        request.values = {number(region.x), number(region.y), number(region.width), number(region.height)};
    }
    return write(request);
}

}  // namespace oru::stream
