#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "backends/stream/control/ControlHandler.hpp"
#include "backends/stream/control/control_messages.hpp"
#include "backends/stream/transport/rate_limit.hpp"
#include "backends/stream/transport/srt_socket.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The sender's end of the control connections: greets, checks the seal of each request, has the handler carry it out
/// and replies. A device that answers slowly delays control, and nothing else: it has a thread of its own. A connection
/// ends with the first message that does not bear the seal or whose id does not grow. Threads: adopt and setGrabber
/// from any.
class ControlServer {
public:
    static constexpr std::size_t kMaxClients = 4;
    static constexpr double kRequestsPerSecond = 100;

    ControlServer(Clock& systemClock, std::string controlKey, std::function<void()> afterWrite);
    ~ControlServer() { close(); }
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    void setGrabber(LiveCameraGrabber* grabber) { handler.setGrabber(grabber); }
    /// Takes over a connection that proved to hold the key. When all places are taken it gets that of the client which
    /// has been quiet longest.
    void adopt(SrtSocket&& socket, std::string address);
    /// Ends the connections and the thread, for good. Threads: one at a time.
    void close();

private:
    struct Client {
        SrtSocket socket;
        std::string address;
        ControlSeal seal;
        uint32_t last_id = 0;
        uint64_t heard_ns = 0;
        bool failed = false;
    };

    void serve(const std::stop_token& stop);
    void serveOnce();
    void hear(SRTSOCKET socket);
    [[nodiscard]] bool receive(SRTSOCKET socket, ControlMessage& request);
    void reply(SRTSOCKET socket, const ControlMessage& message);
    void dropFailed();
    void dismiss(const Client& client);
    [[nodiscard]] Client* find(SRTSOCKET socket) ORU_REQUIRES(mutex);

    SrtLibrary library;
    Clock& clock;
    const std::string key;
    ControlHandler handler;
    TokenBucket requests{kRequestsPerSecond, kRequestsPerSecond};
    SrtPoll poll;
    Mutex mutex;
    std::vector<Client> clients ORU_GUARDED_BY(mutex);
    std::jthread thread;  // the last member: it ends before what it uses
};

}  // namespace oru::stream
