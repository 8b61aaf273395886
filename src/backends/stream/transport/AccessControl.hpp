#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backends/stream/transport/rate_limit.hpp"
#include "backends/stream/transport/socket_address.hpp"
#include "backends/stream/transport/srt_socket.hpp"
#include "backends/stream/transport/stream_keys.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// Decides who may connect to a sender and with which key: whoever asks for control needs the control key, everybody
/// else the viewing key, if there is one. Works before the transport library has spent a key derivation on a caller.
/// Threads: the transport library's own calls it back; accepted and report from the subscribers' thread.
class AccessControl {
public:
    enum class Purpose { VIEWING, CONTROL };

    AccessControl(Clock& systemClock, EffectiveKeys streamKeys) : clock(systemClock), keys(std::move(streamKeys)) {}

    /// From here on every caller of this listener is asked; the access control outlives the listener.
    void guard(SRTSOCKET listener);
    /// What a connection is for. Nothing: it was not admitted.
    [[nodiscard]] std::optional<Purpose> accepted(SRTSOCKET socket);
    /// Writes who was refused to the log, a few lines at most. Call it some times a second.
    void report();

private:
    enum class Reason { NO_CONTROL_HERE, OLD_PROTOCOL, TOO_MANY, KEY };
    struct Caller {
        SRTSOCKET socket = SRT_INVALID_SOCK;
        Purpose purpose = Purpose::VIEWING;
        SocketAddress address;
    };
    struct Refusal {
        Reason reason = Reason::TOO_MANY;
        Purpose purpose = Purpose::VIEWING;
        SocketAddress address;
    };

    static int onCall(void* self, SRTSOCKET socket, int handshakeVersion, const sockaddr* peer, const char* streamId);
    [[nodiscard]] bool admit(Caller caller, int handshakeVersion);
    [[nodiscard]] bool prepare(const Caller& caller) const;
    bool refuse(const Caller& caller, Reason reason, int code) ORU_REQUIRES(mutex);
    void noteFailedKeys() ORU_REQUIRES(mutex);
    void writeLine(const Refusal& refusal) const;

    Clock& clock;
    const EffectiveKeys keys;
    Mutex mutex;
    ConnectionLimiter limiter ORU_GUARDED_BY(mutex);
    std::vector<Caller> callers ORU_GUARDED_BY(mutex);  ///< admitted, not accepted yet
    std::vector<Refusal> refusals ORU_GUARDED_BY(mutex);
    uint64_t unreported ORU_GUARDED_BY(mutex) = 0;
    TokenBucket lines{8, 1};  // of the subscribers' thread, as the next
    TokenBucket summaries{1, 0.2};
};

}  // namespace oru::stream
