#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "oru/settings.hpp"

namespace oru::stream {

/// What a control connection carries, as docs/stream-protocol.md describes it: a greeting from the sender, then
/// requests and replies of one size.
constexpr std::size_t kControlBytes = 48;
constexpr std::size_t kChallengeBytes = 16;
constexpr std::size_t kGreetingBytes = 8 + kChallengeBytes;

using ControlBytes = std::array<uint8_t, kControlBytes>;
using Challenge = std::array<uint8_t, kChallengeBytes>;
using Greeting = std::array<uint8_t, kGreetingBytes>;

enum class ControlOperation : uint8_t { READ = 1, WRITE = 2, RANGE = 3 };

enum class ControlStatus : uint8_t {
    DONE,
    UNKNOWN_CONTROL,  ///< no such control, or this camera does not offer it
    MISFIT,           ///< not this operation, or not so many values, for this control
    OUT_OF_RANGE,     ///< a value outside the range, a region outside the image
    DEVICE_REFUSED,
    NO_CAMERA,  ///< the sender plays a file or relays a stream
    TOO_MANY,   ///< requests come faster than the sender serves them
};
constexpr std::size_t kControlStatuses = 7;

/// What a status means, for a message.
[[nodiscard]] const char* statusText(ControlStatus status);

/// How many numbers a control holds: 4 the region (x, y, width, height), 2 a pair (minimum, maximum), else 1;
/// 0: there is no such control.
[[nodiscard]] std::size_t valuesOf(VIDEO_SETTINGS number);

/// One request or reply. A reply carries the request's operation, id and control.
struct ControlMessage {
    ControlOperation operation = ControlOperation::READ;
    bool reply = false;
    bool automatic = false;                      ///< of a request to write: the automatic value, the default region
    ControlStatus status = ControlStatus::DONE;  ///< of a reply
    uint8_t count = 0;                           ///< values that are used; the others are 0
    uint32_t id = 0;
    VIDEO_SETTINGS control{};
    std::array<int32_t, 4> values{};
    bool operator==(const ControlMessage&) const = default;
};

[[nodiscard]] Greeting writeGreeting(const Challenge& challenge);
[[nodiscard]] std::optional<Challenge> readGreeting(const uint8_t* data, std::size_t size);

/// Writes and reads the messages of one connection. Each carries an HMAC-SHA256 (RFC 2104, FIPS 180-4), cut to 16
/// bytes, over the connection's challenge and the message, keyed with the control key: the transport's cipher alone
/// would let a stranger on the path change bits of it or play a recorded connection again.
class ControlSeal {
public:
    ControlSeal(std::string controlKey, const Challenge& connectionChallenge);

    [[nodiscard]] ControlBytes write(const ControlMessage& message) const;
    /// Nothing: it is malformed, or of somebody who does not hold the key, or of another connection.
    [[nodiscard]] std::optional<ControlMessage> read(const uint8_t* data, std::size_t size) const;

private:
    [[nodiscard]] bool sign(const uint8_t* body, uint8_t* tag) const;

    std::string key;
    Challenge challenge;
};

/// The fields of a message without its seal: the first 32 bytes. Nothing: malformed.
[[nodiscard]] std::optional<ControlMessage> parseControl(const uint8_t* data, std::size_t size);

}  // namespace oru::stream
