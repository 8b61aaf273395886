#include "stream_receiver.hpp"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "picture_format.hpp"
#include "resolver.hpp"

namespace oru::stream {
namespace {

constexpr uint64_t kMillisecond = 1000000;
constexpr uint64_t kOpenNs = 3000 * kMillisecond;
constexpr int kResolveMs = 2000;
constexpr uint64_t kReadNs = 20 * kMillisecond;
constexpr int kDecodeWaitMs = 50;
constexpr std::size_t kBacklogToSkip = 3 * PictureRing::kMaxWaiting;
constexpr uint64_t kShortestPatienceNs = 50 * kMillisecond;
constexpr uint64_t kLongestPatienceNs = 200 * kMillisecond;
constexpr uint8_t kVersionWithImu = 5;

constexpr int kNotDescribed = -5;
constexpr int kNotConnected = -3;
constexpr int kUnknownHost = -2;
constexpr int kBadAddress = -1;
constexpr int kRefused = -1;
constexpr int kUnknown = -1;

const ControlState* find(const std::vector<ControlState>& controls, VIDEO_SETTINGS setting) {
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const ControlState& state) { return state.control == setting; });
    return found == controls.end() ? nullptr : &*found;
}

}  // namespace

StreamReceiver::StreamReceiver(Clock& clock, CalibrationSource& calibration, std::unique_ptr<rlxrw::RLXVideo> recorder,
                               bool verbose)
    : clock_(clock),
      calibration_(calibration),
      recorder_(std::move(recorder)),
      verbose_(verbose),
      pictures_(clock, ledger_),
      link_(clock, {[this] { intake_.restart(); },
                    [this](const uint8_t* data, std::size_t size) { intake_.feed(data, size); }}),
      intake_(queue_, samples_, ledger_, link_.keyFrameWanted(),
              [this](DescriptionRecord&& record) { adopt(std::move(record)); }) {}

StreamReceiver::~StreamReceiver() {
    close();
}

void StreamReceiver::close() {
    opened_ = false;
    link_.stop();
    stop_.store(true, std::memory_order_release);
    if (decoding_.joinable()) {
        decoding_.join();
    }
}

int StreamReceiver::open(String ip, unsigned short port, int /*unused*/) {
    close();
    const uint64_t deadline = clock_.monotonicNanoseconds() + kOpenNs;
    if (ip.empty() || port == 0) {
        ORU_LOG(Error, "{} \"{}\" port {} is no address of a stream", kTagStreaming, ip.get(), port);
        return kBadAddress;
    }
    const auto address = resolve(ip.get(), port, kResolveMs);
    if (!address) {
        ORU_LOG(Error, "{} the host {} is not known", kTagStreaming, ip.get());
        return kUnknownHost;
    }
    {
        MutexLock lock(mutex_);
        haveDescription_ = false;
    }
    const uint64_t before = link_.connections();
    link_.start(*address);
    if (!awaitDescription(deadline)) {
        const bool connected = link_.connections() > before;
        link_.stop();
        ORU_LOG(Error, "{} {} {}:{}", kTagStreaming,
                connected ? "no camera describes itself at" : "no stream answers at", ip.get(), port);
        return connected ? kNotDescribed : kNotConnected;
    }
    stop_.store(false, std::memory_order_release);
    decoding_ = std::thread([this] { decodeLoop(); });
    opened_ = true;
    return 0;
}

bool StreamReceiver::awaitDescription(uint64_t deadline) {
    int serial = 0;
    std::string calibration;
    {
        MutexLock lock(mutex_);
        const uint64_t now = clock_.monotonicNanoseconds();
        const std::chrono::nanoseconds left(deadline > now ? deadline - now : 0);
        const auto ready = [this]() ORU_NO_THREAD_SAFETY_ANALYSIS { return haveDescription_; };
        if (!described_.wait_for(mutex_, left, ready)) {
            return false;
        }
        width_ = description_.camera.width;
        height_ = description_.camera.height;
        serial = description_.camera.serial_number;
        calibration = description_.calibration;
        setPatience(description_.fps);
    }
    pictures_.resize(std::size_t{width_} * height_ * 2);
    if (!calibration.empty()) {
        calibration_.offer(serial, std::move(calibration));
    }
    return true;
}

void StreamReceiver::setPatience(int fps) {
    const uint64_t period = fps > 0 ? 1000 * kMillisecond / static_cast<uint64_t>(fps) : kLongestPatienceNs;
    pictures_.setPatience(std::clamp(2 * period, kShortestPatienceNs, kLongestPatienceNs));
}

void StreamReceiver::adopt(DescriptionRecord&& record) {
    MutexLock lock(mutex_);
    const bool sizeChanged = haveDescription_ && (record.camera.width != description_.camera.width ||
                                                  record.camera.height != description_.camera.height);
    if (sizeChanged) {
        // The application's buffers have the old size; the sender's pictures are refused until it opens again.
        if (!std::exchange(sizeWarned_, true)) {
            ORU_LOG(Warning, "{} the sender now has {} x {} pictures; open the stream again", kTagStreaming,
                    record.camera.width, record.camera.height);
        }
        return;
    }
    if (verbose_ && haveDescription_ && record.session != description_.session) {
        ORU_LOG(Info, "{} the sender started again", kTagStreaming);
    }
    description_ = std::move(record);
    haveDescription_ = true;
    sizeWarned_ = false;
    described_.notify_all();
}

bool StreamReceiver::readStreamData(unsigned char* image, unsigned char* /*second*/) {
    if (!opened_ || image == nullptr) {
        return false;
    }
    const std::optional<FrameFacts> facts = pictures_.read(image, link_.silent() ? 0 : kReadNs);
    if (facts) {
        frame_ = *facts;
    }
    return facts.has_value();
}

void StreamReceiver::decodeLoop() {
    CodedPicture picture;
    needsKey_ = true;
    while (!stop_.load(std::memory_order_acquire)) {
        if (queue_.pop(picture, kDecodeWaitMs)) {
            decodePicture(picture);
        }
    }
}

void StreamReceiver::lose(FrameLedger::Cause cause) {
    ledger_.lost(cause);
    needsKey_ = true;
    link_.keyFrameWanted().store(true, std::memory_order_release);
}

bool StreamReceiver::prepareDecoder(VideoCodec codec) {
    return decoder_.codec() == codec || decoder_.open(codec, width_, height_);
}

void StreamReceiver::decodePicture(CodedPicture& picture) {
    const FrameRecord& record = picture.record;
    if (needsKey_ && !record.key_frame) {
        lose(&FrameCounters::damaged);
        return;
    }
    uint8_t* coded = picture.bytes.data() + picture.bytes.size() - picture.padding - record.picture_bytes;
    const AVFrame* decoded = nullptr;
    if (prepareDecoder(picture.codec)) {
        decoded = decoder_.decode(coded, record.picture_bytes, static_cast<int64_t>(record.frame_id));
    }
    if (decoded == nullptr) {
        decoder_.close();
        lose(&FrameCounters::decode_failed);
        return;
    }
    needsKey_ = false;
    if (queue_.size() > kBacklogToSkip) {
        ledger_.lost(&FrameCounters::overwritten);
        return;
    }
    planarToPacked(*decoded, pictures_.beginWrite());
    pictures_.publish({record.frame_id, record.timestamp_ns, record.has_metadata, record.metadata});
}

StreamDescription StreamReceiver::description() {
    MutexLock lock(mutex_);
    return description_.camera;
}

int StreamReceiver::announcedFps() {
    MutexLock lock(mutex_);
    return std::max(0, description_.fps);
}

StreamImuPose StreamReceiver::announcedImuPose() {
    MutexLock lock(mutex_);
    return description_.pose_known ? description_.pose : StreamImuPose{};
}

int StreamReceiver::versionByte() {
    MutexLock lock(mutex_);
    return description_.version_byte;
}

bool StreamReceiver::canSupplyCurrentImu() {
    IMUPacket unused;
    const bool announced = versionByte() >= kVersionWithImu && description().has_imu;
    return announced && samples_.newest(unused);
}

bool StreamReceiver::valueRange(VIDEO_SETTINGS setting, int& min, int& max) {
    MutexLock lock(mutex_);
    const ControlState* state = find(description_.controls, setting);
    if (state == nullptr || !state->range_known) {
        return false;
    }
    min = state->minimum;
    max = state->maximum;
    return true;
}

int StreamReceiver::getGrabberSettingsValue(VIDEO_SETTINGS setting) {
    MutexLock lock(mutex_);
    const ControlState* state = find(description_.controls, setting);
    if (state != nullptr && state->value_known) {
        return state->value;
    }
    // A sender without a camera of its own says nothing of its sharpness: neutral then.
    return setting == SHARPNESS ? 0 : kUnknown;
}

int StreamReceiver::setGrabberSettingsValue(VIDEO_SETTINGS /*setting*/, int /*value*/, bool /*automatic*/) {
    return kRefused;
}

int StreamReceiver::getGrabberSettingsValue(VIDEO_SETTINGS setting, int /*side*/, Rect& region) {
    MutexLock lock(mutex_);
    if (setting != AEC_AGC_ROI || !description_.region_known) {
        return kUnknown;
    }
    region = description_.region;
    return 0;
}

int StreamReceiver::setGrabberSettingsValue(VIDEO_SETTINGS /*setting*/, int /*side*/, Rect /*region*/, bool /*reset*/) {
    return kRefused;
}

}  // namespace oru::stream
