#include "backends/stream/transport/srt_socket.hpp"

#include <sys/socket.h>

#include <charconv>

namespace oru::stream {
namespace {

constexpr int kPeerIdleMs = 3000;
constexpr std::size_t kStreamIdBytes = 513;
constexpr std::string_view kAfterField = ",after=";

}  // namespace

bool setCommonOptions(SrtSocket& socket) {
    return socket.set(SRTO_TRANSTYPE, SRTT_LIVE) && socket.set(SRTO_RCVSYN, false) && socket.set(SRTO_SNDSYN, false) &&
           socket.set(SRTO_PAYLOADSIZE, kMessageBytes) && socket.set(SRTO_PEERIDLETIMEO, kPeerIdleMs);
}

bool setControlOptions(SRTSOCKET socket) {
    const auto set = [socket](SRT_SOCKOPT option, const auto& value) {
        return srt_setsockflag(socket, option, &value, sizeof(value)) == 0;
    };
    constexpr linger kNoLinger{};
    // The kind of transport comes first: it sets the others anew.
    return set(SRTO_TRANSTYPE, SRTT_FILE) && set(SRTO_MESSAGEAPI, true) && set(SRTO_RCVSYN, false) &&
           set(SRTO_SNDSYN, false) && set(SRTO_LINGER, kNoLinger) && set(SRTO_PEERIDLETIMEO, kPeerIdleMs);
}

std::string streamId(SRTSOCKET socket) {
    std::array<char, kStreamIdBytes> text{};
    int length = static_cast<int>(text.size());
    return srt_getsockflag(socket, SRTO_STREAMID, text.data(), &length) == 0
               ? std::string(text.data(), static_cast<std::size_t>(length))
               : std::string();
}

std::string viewerId(uint64_t newestSample) {
    const std::string id = "#!::r=cam,m=request";
    return newestSample == 0 ? id : id + std::string(kAfterField) + std::to_string(newestSample);
}

uint64_t newestSampleOf(std::string_view streamId) {
    const std::size_t found = streamId.find(kAfterField);
    uint64_t time = 0;
    if (streamId.starts_with("#!::") && found != std::string_view::npos) {
        const std::string_view digits = streamId.substr(found + kAfterField.size());
        (void)std::from_chars(digits.data(), digits.data() + digits.size(), time);
    }
    return time;
}

std::string lastSrtError() {
    return srt_getlasterror_str();
}

}  // namespace oru::stream
