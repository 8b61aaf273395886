#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "utils/Mutex.hpp"

namespace oru {

/// A connection as a handler sees it.
class HttpConnection {
public:
    HttpConnection(int accepted, const std::atomic<bool>& stop) : socket(accepted), stopping(stop) {}

    /// False when the client has gone.
    bool send(const std::string& text) const {
        std::size_t sent = 0;
        while (sent < text.size()) {
            const ssize_t step = ::send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (step <= 0) {
                return false;
            }
            sent += static_cast<std::size_t>(step);
        }
        return true;
    }
    /// Holds the connection without a byte until the client leaves or the server stops.
    void stall() const {
        char byte = 0;
        while (!stopping && ::recv(socket, &byte, 1, MSG_DONTWAIT) != 0) {
            pollfd waiting = {socket, POLLIN, 0};
            ::poll(&waiting, 1, 20);
        }
    }

private:
    int socket;
    const std::atomic<bool>& stopping;
};

/// Answers requests on a port of this machine, one after the other, as its handler says.
class HttpServer {
public:
    using Handler = std::function<void(const HttpConnection&)>;

    explicit HttpServer(Handler handler) : answer(std::move(handler)), listener(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        isListening = ::bind(listener, generic, size) == 0 && ::listen(listener, 8) == 0 &&
                      ::getsockname(listener, generic, &size) == 0;
        port = ntohs(address.sin_port);
        worker = std::thread([this] { serve(); });
    }
    ~HttpServer() {
        stopping = true;
        worker.join();
        ::close(listener);
    }
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    [[nodiscard]] bool isReady() const { return isListening; }
    [[nodiscard]] std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port) + path;
    }
    /// The first line of the last request.
    std::string lastRequest() {
        const MutexLock lock(mutex);
        return request;
    }

private:
    void serve() {
        while (!stopping) {
            pollfd waiting = {listener, POLLIN, 0};
            if (::poll(&waiting, 1, 20) <= 0) {
                continue;
            }
            const int socket = ::accept(listener, nullptr, nullptr);
            if (socket >= 0) {
                readRequest(socket);
                answer(HttpConnection(socket, stopping));
                ::close(socket);
            }
        }
    }

    void readRequest(int socket) {
        std::string text;
        char bytes[1024];
        while (text.find("\r\n\r\n") == std::string::npos) {
            const ssize_t size = ::recv(socket, bytes, sizeof(bytes), 0);
            if (size <= 0) {
                break;
            }
            text.append(bytes, static_cast<std::size_t>(size));
        }
        const MutexLock lock(mutex);
        request = text.substr(0, text.find("\r\n"));
    }

    Handler answer;
    int listener;
    bool isListening = false;
    uint16_t port = 0;
    std::atomic<bool> stopping{false};
    Mutex mutex;
    std::string request ORU_GUARDED_BY(mutex);
    std::thread worker;
};

inline std::string httpAnswer(const std::string& body, std::size_t announced) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(announced) + "\r\nConnection: close\r\n\r\n" + body;
}

inline std::string httpAnswer(const std::string& body) {
    return httpAnswer(body, body.size());
}

}  // namespace oru
