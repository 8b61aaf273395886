#include "srt_socket.hpp"

#include <sys/socket.h>

namespace oru::stream {
namespace {

constexpr int kPeerIdleMs = 3000;

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

std::string lastSrtError() {
    return srt_getlasterror_str();
}

}  // namespace oru::stream
