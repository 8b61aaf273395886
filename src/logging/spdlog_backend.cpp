#include <spdlog/async_logger.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/sinks/sink.h>

#include <condition_variable>
#include <thread>
#include <utility>

#include "logging/LogBackend.hpp"
#include "logging/log_names.hpp"
#include "utils/Mutex.hpp"

namespace oru {
namespace {

constexpr std::size_t kQueueSize = 4096;
// Below the whole queue by more threads than will log at once, so that none of them blocks inside the library.
constexpr std::size_t kQueueLimit = kQueueSize - 128;
constexpr std::chrono::milliseconds kRoomPause{1};

// The library knows six levels; the exact one travels as a name in the record's function field.
spdlog::level::level_enum coarse(LogLevel level) {
    switch (level) {
        case LogLevel::TraceL3:
        case LogLevel::TraceL2:
        case LogLevel::TraceL1:
            return spdlog::level::trace;
        case LogLevel::Debug:
            return spdlog::level::debug;
        case LogLevel::Info:
            return spdlog::level::info;
        case LogLevel::Warning:
            return spdlog::level::warn;
        case LogLevel::Error:
            return spdlog::level::err;
        case LogLevel::Critical:
            break;
    }
    return spdlog::level::critical;
}

class ForwardingSink final : public spdlog::sinks::sink {
public:
    explicit ForwardingSink(BackendSink receiver) : target(std::move(receiver)) {}

    void log(const spdlog::details::log_msg& message) override {
        const spdlog::source_loc& place = message.source;
        try {
            target({levelNamed(place.funcname == nullptr ? "" : place.funcname),
                    {message.payload.data(), message.payload.size()},
                    place.filename == nullptr ? "" : place.filename,
                    place.line,
                    std::chrono::time_point_cast<std::chrono::system_clock::duration>(message.time)});
        } catch (...) {
            // A sink that throws loses its message; the library would print it on standard error.
            return;
        }
    }

    void flush() override {
        const MutexLock lock(mutex);
        ++flushed;
        changed.notify_all();
    }

    void set_pattern(const std::string&) override {}
    void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

    void waitForFlush(uint64_t ticket) {
        const auto deadline = std::chrono::steady_clock::now() + kFlushLimit;
        const MutexLock lock(mutex);
        while (flushed < ticket && changed.wait_until(mutex, deadline) == std::cv_status::no_timeout) {
        }
    }

private:
    const BackendSink target;
    Mutex mutex;
    std::condition_variable_any changed;
    uint64_t flushed ORU_GUARDED_BY(mutex) = 0;
};

class SpdlogBackend final : public LogBackend {
public:
    SpdlogBackend(const std::string& name, BackendSink receiver)
        : sink(std::make_shared<ForwardingSink>(std::move(receiver))),
          pool(std::make_shared<spdlog::details::thread_pool>(kQueueSize, 1, [] { isWorker = true; })),
          logger(std::make_shared<spdlog::async_logger>(name, sink, pool, spdlog::async_overflow_policy::block)) {
        logger->set_level(spdlog::level::trace);
    }

    // Joins the worker first: the last reference to the logger must not be the one in its queue.
    ~SpdlogBackend() override { pool.reset(); }
    SpdlogBackend(const SpdlogBackend&) = delete;
    SpdlogBackend& operator=(const SpdlogBackend&) = delete;

    void write(LogLevel level, const char* file, int line, std::string_view text) override {
        // While messages are being lost nobody waits again: a sink that hangs costs a camera 100 ms once.
        const bool isLosing = lost.load(std::memory_order_relaxed) > 0;
        if (!waitForRoom(isLosing ? std::chrono::milliseconds{0} : kFullQueueLimit)) {
            lost.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        if (const uint64_t count = lost.exchange(0, std::memory_order_relaxed); count > 0) {
            post(LogLevel::Warning, __FILE__, __LINE__, fmt::format("[KORU] {} log messages were lost.", count));
        }
        post(level, file, line, text);
    }

    void flush() override {
        if (isWorker || !waitForRoom(kFlushLimit)) {
            return;
        }
        sink->waitForFlush(postFlush());
    }

private:
    void post(LogLevel level, const char* file, int line, std::string_view text) {
        logger->log(spdlog::source_loc{file, line, nameOf(level)}, coarse(level),
                    spdlog::string_view_t(text.data(), text.size()));
    }

    // Ticket and marker in one step, so that tickets count markers in the order of the queue.
    uint64_t postFlush() {
        const MutexLock lock(flushMutex);
        logger->flush();
        return ++flushesPosted;
    }

    bool waitForRoom(std::chrono::milliseconds limit) const {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (pool->queue_size() > kQueueLimit) {
            // The worker cannot wait for itself.
            if (isWorker || std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            std::this_thread::sleep_for(kRoomPause);
        }
        return true;
    }

    static inline thread_local bool isWorker = false;

    std::shared_ptr<ForwardingSink> sink;
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::async_logger> logger;
    std::atomic<uint64_t> lost{0};
    Mutex flushMutex;
    uint64_t flushesPosted ORU_GUARDED_BY(flushMutex) = 0;
};

}  // namespace

std::unique_ptr<LogBackend> makeLogBackend(const std::string& name, BackendSink sink) {
    return std::make_unique<SpdlogBackend>(name, std::move(sink));
}

}  // namespace oru
