#include "backends/stream/transport/AccessControl.hpp"

#include <srt/access_control.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "backends/stream/transport/guarded.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

constexpr int kRefused = -1;
constexpr int kNewProtocol = 5;
constexpr std::size_t kMaxCallers = 64;
constexpr std::size_t kMaxRefusals = 16;

/// Whether a stream id asks for control: "#!::" and then comma-separated fields, one of them m=control.
bool asksForControl(std::string_view id) {
    constexpr std::string_view kStart = "#!::";
    if (!id.starts_with(kStart)) {
        return false;
    }
    id.remove_prefix(kStart.size());
    while (!id.empty()) {
        const std::size_t end = std::min(id.find(','), id.size());
        if (id.substr(0, end) == "m=control") {
            return true;
        }
        id.remove_prefix(std::min(end + 1, id.size()));
    }
    return false;
}

bool setKey(SRTSOCKET socket, const std::string& key) {
    return srt_setsockflag(socket, SRTO_PASSPHRASE, key.data(), static_cast<int>(key.size())) == 0;
}

}  // namespace

void AccessControl::guard(SRTSOCKET listener) {
    srt_listen_callback(listener, &onCall, this);
}

int AccessControl::onCall(void* self, SRTSOCKET socket, int handshakeVersion, const sockaddr* peer,
                          const char* streamId) {
    Caller caller;
    caller.socket = socket;
    caller.purpose = asksForControl(streamId == nullptr ? "" : streamId) ? Purpose::CONTROL : Purpose::VIEWING;
    caller.address = SocketAddress(peer);
    if (!caller.address.isKnown()) {
        return kRefused;
    }
    // No exception may pass through the library.
    bool admitted = false;
    (void)guarded("a connection",
                  [&] { admitted = static_cast<AccessControl*>(self)->admit(caller, handshakeVersion); });
    return admitted ? 0 : kRefused;
}

bool AccessControl::admit(Caller caller, int handshakeVersion) {
    const MutexLock lock(mutex);
    if (callers.size() >= kMaxCallers || !limiter.admit(caller.address.origin(), clock.monotonicNanoseconds())) {
        return refuse(caller, Reason::TOO_MANY, SRT_REJX_OVERLOAD);
    }
    // The old handshake exchanges keys only after the connection stands.
    if (handshakeVersion < kNewProtocol) {
        return refuse(caller, Reason::OLD_PROTOCOL, SRT_REJX_VERSION);
    }
    if (caller.purpose == Purpose::CONTROL && keys.control.empty()) {
        return refuse(caller, Reason::NO_CONTROL_HERE, SRT_REJX_FORBIDDEN);
    }
    if (!prepare(caller)) {
        return refuse(caller, Reason::TOO_MANY, SRT_REJX_ISE);
    }
    callers.push_back(caller);
    return true;
}

bool AccessControl::prepare(const Caller& caller) const {
    if (caller.purpose == Purpose::VIEWING) {
        return keys.viewing.empty() || setKey(caller.socket, keys.viewing);
    }
    return setControlOptions(caller.socket) && setKey(caller.socket, keys.control);
}

bool AccessControl::refuse(const Caller& caller, Reason reason, int code) {
    srt_setrejectreason(caller.socket, code);
    if (refusals.size() < kMaxRefusals) {
        refusals.push_back({reason, caller.purpose, caller.address});
    } else {
        ++unreported;
    }
    return false;
}

std::optional<AccessControl::Purpose> AccessControl::accepted(SRTSOCKET socket) {
    const MutexLock lock(mutex);
    const auto found = std::find_if(callers.begin(), callers.end(),
                                    [socket](const Caller& caller) { return caller.socket == socket; });
    if (found == callers.end()) {
        return std::nullopt;
    }
    const Purpose purpose = found->purpose;
    callers.erase(found);
    return purpose;
}

/// A caller that was let in and is gone before it was accepted failed at the key.
void AccessControl::noteFailedKeys() {
    std::erase_if(callers, [this](const Caller& caller) ORU_REQUIRES(mutex) {
        const SRT_SOCKSTATUS state = srt_getsockstate(caller.socket);
        const bool gone = state >= SRTS_BROKEN;
        if (gone && refusals.size() < kMaxRefusals) {
            refusals.push_back({Reason::KEY, caller.purpose, caller.address});
        }
        return gone;
    });
}

void AccessControl::report() {
    std::vector<Refusal> seen;
    uint64_t more = 0;
    {
        const MutexLock lock(mutex);
        noteFailedKeys();
        std::swap(seen, refusals);
    }
    const uint64_t now = clock.monotonicNanoseconds();
    for (const Refusal& refusal : seen) {
        if (lines.take(now)) {
            writeLine(refusal);
        } else {
            ++more;
        }
    }
    const MutexLock lock(mutex);
    unreported += more;
    if (unreported > 0 && summaries.take(now)) {
        ORU_LOG(Warning, "{} {} more attempts to connect were refused", kTagStreaming, unreported);
        unreported = 0;
    }
}

void AccessControl::writeLine(const Refusal& refusal) const {
    const char* who = refusal.purpose == Purpose::CONTROL ? "control from" : "receiver";
    const std::string from = refusal.address.text();
    switch (refusal.reason) {
        case Reason::NO_CONTROL_HERE:
            ORU_LOG(Warning, "{} {} {} refused: {} is not set here", kTagStreaming, who, from,
                    EffectiveKeys::kControlVariable);
            return;
        case Reason::OLD_PROTOCOL:
            ORU_LOG(Warning, "{} {} {} refused: its transport library is too old", kTagStreaming, who, from);
            return;
        case Reason::TOO_MANY:
            ORU_LOG(Warning, "{} {} {} refused: too many attempts to connect", kTagStreaming, who, from);
            return;
        case Reason::KEY:
            break;
    }
    if (refusal.purpose == Purpose::VIEWING && keys.viewing.empty()) {
        ORU_LOG(Warning, "{} {} {} refused: it gave a key, and {} is not set here", kTagStreaming, who, from,
                EffectiveKeys::kViewingVariable);
        return;
    }
    ORU_LOG(Warning, "{} {} {} refused: its key is not {}", kTagStreaming, who, from,
            refusal.purpose == Purpose::CONTROL ? EffectiveKeys::kControlVariable : EffectiveKeys::kViewingVariable);
}

}  // namespace oru::stream
