#include "backends/stream/control/control_messages.hpp"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/hmac.h>
}

#include "oru/controls.hpp"
#include "utils/bytes.hpp"

namespace oru::stream {
namespace {

constexpr std::array<uint8_t, 4> kMark = {'K', 'O', 'R', 'C'};
constexpr uint8_t kVersion = 1;
constexpr uint8_t kReplyBit = 0x80;
constexpr uint8_t kAutomatic = 1;
constexpr std::size_t kBodyBytes = 32;
constexpr std::size_t kTagBytes = kControlBytes - kBodyBytes;
constexpr std::size_t kDigestBytes = 32;

bool readMark(LittleEndianReader& reader) {
    std::array<uint8_t, 4> mark{};
    uint8_t version = 0;
    reader.get(mark);
    reader.get(version);
    return reader.ok() && mark == kMark && version == kVersion;
}

bool sound(const ControlMessage& message, uint8_t kind, uint8_t detail) {
    const bool operationKnown =
        kind >= static_cast<uint8_t>(ControlOperation::READ) && kind <= static_cast<uint8_t>(ControlOperation::RANGE);
    const bool detailKnown = message.reply ? detail < kControlStatuses : detail <= kAutomatic;
    return operationKnown && detailKnown && message.count <= message.values.size() &&
           std::all_of(message.values.begin() + message.count, message.values.end(), [](int32_t v) { return v == 0; });
}

}  // namespace

const char* statusText(ControlStatus status) {
    switch (status) {
        case ControlStatus::DONE:
            return "done";
        case ControlStatus::UNKNOWN_CONTROL:
            return "the sending camera does not offer this control";
        case ControlStatus::MISFIT:
            return "this control takes no such request";
        case ControlStatus::OUT_OF_RANGE:
            return "the value is outside what the sending camera takes";
        case ControlStatus::DEVICE_REFUSED:
            return "the sending camera did not take it";
        case ControlStatus::NO_CAMERA:
            return "the sender has no camera of its own: it plays a file or relays a stream";
        case ControlStatus::TOO_MANY:
            return "requests come faster than the sender serves them";
    }
    return "unknown";
}

std::size_t valuesOf(VIDEO_SETTINGS number) {
    const Control* control = findControl(number);
    return control == nullptr ? 0 : valueCount(control->kind);
}

Greeting writeGreeting(const Challenge& challenge) {
    Greeting greeting{};
    std::copy(kMark.begin(), kMark.end(), greeting.begin());
    greeting[kMark.size()] = kVersion;
    std::copy(challenge.begin(), challenge.end(), greeting.begin() + 8);
    return greeting;
}

std::optional<Challenge> readGreeting(const uint8_t* data, std::size_t size) {
    LittleEndianReader reader({data, size});
    std::array<uint8_t, 3> zero{};
    Challenge challenge{};
    if (size != kGreetingBytes || !readMark(reader) || !reader.get(zero) || zero != std::array<uint8_t, 3>{}) {
        return std::nullopt;
    }
    reader.get(challenge);
    return challenge;
}

std::optional<ControlMessage> parseControl(const uint8_t* data, std::size_t size) {
    LittleEndianReader reader({data, std::min(size, kBodyBytes)});
    ControlMessage message;
    uint8_t kind = 0;
    uint8_t detail = 0;
    int32_t control = 0;
    if (!readMark(reader)) {
        return std::nullopt;
    }
    reader.get(kind);
    reader.get(detail);
    reader.get(message.count);
    reader.get(message.id);
    reader.get(control);
    reader.get(message.values);
    message.reply = (kind & kReplyBit) != 0;
    kind = static_cast<uint8_t>(kind & ~kReplyBit);
    if (!reader.ok() || !sound(message, kind, detail)) {
        return std::nullopt;
    }
    message.operation = static_cast<ControlOperation>(kind);
    message.control = static_cast<VIDEO_SETTINGS>(control);
    message.automatic = !message.reply && detail == kAutomatic;
    message.status = message.reply ? static_cast<ControlStatus>(detail) : ControlStatus::DONE;
    return message;
}

ControlSeal::ControlSeal(std::string controlKey, const Challenge& connectionChallenge)
    : key(std::move(controlKey)), challenge(connectionChallenge) {}

bool ControlSeal::sign(const uint8_t* body, uint8_t* tag) const {
    const std::unique_ptr<AVHMAC, decltype(&av_hmac_free)> hmac(av_hmac_alloc(AV_HMAC_SHA256), &av_hmac_free);
    if (!hmac) {
        return false;
    }
    std::array<uint8_t, kDigestBytes> digest{};
    av_hmac_init(hmac.get(), reinterpret_cast<const uint8_t*>(key.data()), static_cast<unsigned>(key.size()));
    av_hmac_update(hmac.get(), challenge.data(), static_cast<unsigned>(challenge.size()));
    av_hmac_update(hmac.get(), body, kBodyBytes);
    av_hmac_final(hmac.get(), digest.data(), static_cast<unsigned>(digest.size()));
    std::copy_n(digest.begin(), kTagBytes, tag);
    return true;
}

ControlBytes ControlSeal::write(const ControlMessage& message) const {
    std::vector<uint8_t> body;
    body.reserve(kBodyBytes);
    LittleEndianWriter writer(body);
    writer.put(kMark);
    writer.put(kVersion);
    writer.put(static_cast<uint8_t>(static_cast<uint8_t>(message.operation) | (message.reply ? kReplyBit : 0)));
    writer.put(static_cast<uint8_t>(message.reply ? static_cast<uint8_t>(message.status)
                                                  : (message.automatic ? kAutomatic : 0)));
    writer.put(message.count);
    writer.put(message.id);
    writer.put(static_cast<int32_t>(message.control));
    writer.put(message.values);
    ControlBytes bytes{};
    std::copy(body.begin(), body.end(), bytes.begin());
    (void)sign(bytes.data(), bytes.data() + kBodyBytes);
    return bytes;
}

std::optional<ControlMessage> ControlSeal::read(const uint8_t* data, std::size_t size) const {
    std::array<uint8_t, kTagBytes> tag{};
    if (size != kControlBytes || !sign(data, tag.data())) {
        return std::nullopt;
    }
    // Every byte is compared, so that the time tells nothing of where the first wrong one is.
    unsigned difference = 0;
    for (std::size_t i = 0; i < kTagBytes; ++i) {
        difference |= static_cast<unsigned>(tag[i] ^ data[kBodyBytes + i]);
    }
    return difference == 0 ? parseControl(data, size) : std::nullopt;
}

}  // namespace oru::stream
