#include "srt_socket.hpp"

namespace oru::stream {
namespace {

constexpr int kPeerIdleMs = 3000;

}  // namespace

bool setCommonOptions(SrtSocket& socket) {
    return socket.set(SRTO_TRANSTYPE, SRTT_LIVE) && socket.set(SRTO_RCVSYN, false) && socket.set(SRTO_SNDSYN, false) &&
           socket.set(SRTO_PAYLOADSIZE, kMessageBytes) && socket.set(SRTO_PEERIDLETIMEO, kPeerIdleMs);
}

std::string lastSrtError() {
    return srt_getlasterror_str();
}

}  // namespace oru::stream
