#include "backends/stream/control/ControlServer.hpp"

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>

#include "backends/stream/transport/guarded.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::stream {
namespace {

constexpr int kServiceMs = 50;
constexpr std::chrono::milliseconds kPauseAfterFailure{100};

Challenge drawChallenge() {
    std::random_device device;
    Challenge challenge{};
    std::generate(challenge.begin(), challenge.end(), [&] { return static_cast<uint8_t>(device()); });
    return challenge;
}

bool send(SRTSOCKET socket, const void* bytes, std::size_t size) {
    return srt_sendmsg(socket, static_cast<const char*>(bytes), static_cast<int>(size), -1, 1) ==
           static_cast<int>(size);
}

ControlMessage refusalOf(const ControlMessage& request, ControlStatus status) {
    ControlMessage reply = request;
    reply.reply = true;
    reply.automatic = false;
    reply.status = status;
    return reply;
}

}  // namespace

ControlServer::ControlServer(Clock& systemClock, std::string controlKey, std::function<void()> afterWrite)
    : clock(systemClock),
      key(std::move(controlKey)),
      handler(std::move(afterWrite)),
      thread([this](const std::stop_token& stop) { serve(stop); }) {}

void ControlServer::adopt(SrtSocket&& socket, std::string address) {
    const Challenge challenge = drawChallenge();
    const Greeting greeting = writeGreeting(challenge);
    if (!send(socket.get(), greeting.data(), greeting.size())) {
        return;
    }
    const MutexLock lock(mutex);
    if (clients.size() >= kMaxClients) {
        const auto quietest = std::min_element(
            clients.begin(), clients.end(), [](const Client& a, const Client& b) { return a.heard_ns < b.heard_ns; });
        ORU_LOG(Info, "{} control from {} gives way to another", kTagStreaming, quietest->address);
        poll.forget(quietest->socket.get());
        clients.erase(quietest);
    }
    ORU_LOG(Info, "{} control from {} connected", kTagStreaming, address);
    poll.watch(socket.get(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
    clients.push_back(
        {std::move(socket), std::move(address), ControlSeal(key, challenge), 0, clock.monotonicNanoseconds(), false});
}

ControlServer::Client* ControlServer::find(SRTSOCKET socket) {
    const auto found = std::find_if(clients.begin(), clients.end(),
                                    [socket](const Client& client) { return client.socket.get() == socket; });
    return found == clients.end() ? nullptr : &*found;
}

void ControlServer::close() {
    thread = {};  // ends and joins it
    const MutexLock lock(mutex);
    clients.clear();
}

void ControlServer::serve(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        if (!guarded("control from outside", [this] { serveOnce(); })) {
            std::this_thread::sleep_for(kPauseAfterFailure);
        }
    }
}

void ControlServer::serveOnce() {
    for (const SRT_EPOLL_EVENT& event : poll.wait(kServiceMs)) {
        hear(event.fd);
    }
    dropFailed();
}

void ControlServer::hear(SRTSOCKET socket) {
    ControlMessage request;
    if (!receive(socket, request)) {
        return;
    }
    if (requests.take(clock.monotonicNanoseconds())) {
        ControlMessage answer = refusalOf(request, ControlStatus::DEVICE_REFUSED);
        (void)guarded("a control", [&] { answer = handler.answer(request); });
        reply(socket, answer);
        return;
    }
    reply(socket, refusalOf(request, ControlStatus::TOO_MANY));
}

bool ControlServer::receive(SRTSOCKET socket, ControlMessage& request) {
    // One byte more than a message has, so that a longer one shows.
    std::array<char, kControlBytes + 1> bytes{};
    const MutexLock lock(mutex);
    Client* client = find(socket);
    if (client == nullptr) {
        return false;
    }
    const int size = srt_recvmsg(socket, bytes.data(), static_cast<int>(bytes.size()));
    if (size <= 0) {
        client->failed = size == 0 || srt_getlasterror(nullptr) != SRT_EASYNCRCV;
        return false;
    }
    const auto message =
        client->seal.read(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<std::size_t>(size));
    if (!message || message->reply || message->id <= client->last_id) {
        ORU_LOG(Warning, "{} control from {} ended: a message was forged or damaged", kTagStreaming, client->address);
        client->failed = true;
        return false;
    }
    client->last_id = message->id;
    client->heard_ns = clock.monotonicNanoseconds();
    request = *message;
    return true;
}

void ControlServer::reply(SRTSOCKET socket, const ControlMessage& message) {
    const MutexLock lock(mutex);
    Client* client = find(socket);
    if (client == nullptr) {
        return;
    }
    const ControlBytes bytes = client->seal.write(message);
    client->failed = !send(socket, bytes.data(), bytes.size());
}

void ControlServer::dismiss(const Client& client) {
    ORU_LOG(Info, "{} control from {} left", kTagStreaming, client.address);
    poll.forget(client.socket.get());
}

void ControlServer::dropFailed() {
    const MutexLock lock(mutex);
    std::erase_if(clients, [this](const Client& client) {
        const bool gone = client.failed || srt_getsockstate(client.socket.get()) != SRTS_CONNECTED;
        if (gone) {
            dismiss(client);
        }
        return gone;
    });
}

}  // namespace oru::stream
