#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "backends/stream/control/control_messages.hpp"
#include "backends/stream/transport/socket_address.hpp"
#include "backends/stream/transport/srt_socket.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The receiver's end of a control connection: one request at a time, each answered within 500 ms or given up. The
/// connection comes up on the transport library's threads; whoever asks waits for it no longer than for an answer.
/// Threads: any; a second caller waits for the first.
class ControlClient {
public:
    static constexpr uint64_t kAnswerNs = 500'000'000;

    explicit ControlClient(Clock& systemClock) : clock(systemClock) {}

    /// Begins to connect to this sender. Without a key there is no control right, and no connection.
    void start(const SocketAddress& address, std::string controlKey);
    void stop();
    /// The sender's reply, whatever its status. Nothing: there was none; refusal() says why. A write without a reply
    /// may have been carried out, or may not.
    [[nodiscard]] std::optional<ControlMessage> ask(ControlMessage request);
    /// Why the last request was not carried out; empty when it was.
    [[nodiscard]] std::string refusal() const;

private:
    [[nodiscard]] std::optional<ControlMessage> askSender(ControlMessage request) ORU_REQUIRES(mutex);
    void connect() ORU_REQUIRES(mutex);
    [[nodiscard]] bool await(uint64_t deadline) ORU_REQUIRES(mutex);
    [[nodiscard]] bool greeted(uint64_t deadline) ORU_REQUIRES(mutex);
    [[nodiscard]] std::optional<ControlMessage> exchange(const ControlMessage& request, uint64_t deadline)
        ORU_REQUIRES(mutex);
    /// One message, or 0: none before the deadline; negative: the connection is gone.
    [[nodiscard]] int receive(uint8_t* to, std::size_t size, uint64_t deadline) ORU_REQUIRES(mutex);
    /// Why the sender wants no connection with this key; empty when it is not that.
    [[nodiscard]] std::string rejection() const ORU_REQUIRES(mutex);
    bool refuse(std::string reason) ORU_REQUIRES(mutex);

    SrtLibrary library;
    Clock& clock;
    mutable Mutex mutex;
    SocketAddress sender ORU_GUARDED_BY(mutex);
    std::string key ORU_GUARDED_BY(mutex);
    SrtSocket socket ORU_GUARDED_BY(mutex);
    std::optional<ControlSeal> seal ORU_GUARDED_BY(mutex);
    uint32_t lastId ORU_GUARDED_BY(mutex) = 0;
    uint64_t retryNs ORU_GUARDED_BY(mutex) = 0;  ///< after a refusal: not before
    std::string reasonOfRefusal ORU_GUARDED_BY(mutex);
};

}  // namespace oru::stream
