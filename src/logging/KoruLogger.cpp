#include "logging/KoruLogger.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "logging/LogBackend.hpp"
#include "logging/log_names.hpp"
#include "logging/messages.hpp"
#include "logging/redirect.hpp"
#include "utils/Mutex.hpp"

namespace oru {
namespace {

constexpr const char* kLevelVariable = "KORU_SDK_LOGGER_LEVEL";

/// Where the registry's messages go: standard error while it is empty. Never destroyed, as the registry.
struct SinkSlot {
    Mutex mutex;  // held while the sink is called
    LogSink sink ORU_GUARDED_BY(mutex);
};

SinkSlot& sinkSlot() {
    static auto* const slot = std::make_unique<SinkSlot>().release();
    return *slot;
}

void writeToStandardError(const BackendMessage& message) {
    const auto time = std::chrono::time_point_cast<std::chrono::microseconds>(message.time);
    const auto seconds = std::chrono::time_point_cast<std::chrono::seconds>(time);
    const std::string line = fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z {:<8} {}\n",
                                         fmt::gmtime(std::chrono::system_clock::to_time_t(seconds)),
                                         (time - seconds).count(), nameOf(message.level), message.text);
    // One call: standard error is unbuffered, so lines of several processes do not mix.
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void writeToSink(const BackendMessage& message) {
    SinkSlot& slot = sinkSlot();
    const MutexLock lock(slot.mutex);
    if (slot.sink) {
        slot.sink({message.level, std::string(message.text), std::string(message.file), message.line});
    } else {
        writeToStandardError(message);
    }
}

/// Hands every message on before it returns once the process is leaving: nobody flushes after that.
class ExitBackend final : public LogBackend {
public:
    explicit ExitBackend(std::unique_ptr<LogBackend> wrapped) : inner(std::move(wrapped)) {}

    void write(LogLevel level, const char* file, int line, std::string_view text) override {
        inner->write(level, file, line, text);
        if (leaving.load(std::memory_order_acquire)) {
            inner->flush();
        }
    }
    void flush() override { inner->flush(); }

    void leave() {
        leaving.store(true, std::memory_order_release);
        inner->flush();
    }

private:
    std::atomic<bool> leaving{false};
    std::unique_ptr<LogBackend> inner;
};

// The one of the registry, which is never destroyed; what a program registers itself may be gone at exit.
ExitBackend* registryBackend = nullptr;

}  // namespace

// Never destroyed: a camera with static lifetime may log after every other static object is gone.
KoruLogger& KoruLogger::get_instance() {
    alignas(KoruLogger) static std::byte storage[sizeof(KoruLogger)];
    static KoruLogger* const instance = [] {
        auto* made = ::new (static_cast<void*>(storage)) KoruLogger();
        std::atexit([] { registryBackend->leave(); });
        return made;
    }();
    return *instance;
}

KoruLogger::KoruLogger() {
    const char* text = std::getenv(kLevelVariable);
    const auto threshold = text == nullptr ? LogLevel::Info : parseThreshold(text);
    auto backend = std::make_unique<ExitBackend>(makeLogBackend("MAIN", &writeToSink));
    registryBackend = backend.get();
    builtInLogger = std::make_unique<Logger>(std::move(backend), threshold.value_or(LogLevel::Info));
    if (!threshold) {
        builtInLogger->write(LogLevel::Warning, __FILE__, __LINE__, "{} {} is \"{}\", which is no level; using info.",
                             fmt::make_format_args(kTagKoru, kLevelVariable, text));
    }
    mainLogger.store(builtInLogger.get(), std::memory_order_release);
}

void redirectLog(LogSink sink) {
    (void)KoruLogger::get_instance();
    registryBackend->flush();
    SinkSlot& slot = sinkSlot();
    const MutexLock lock(slot.mutex);
    slot.sink.swap(sink);
}

Logger* KoruLogger::get_logger(LOGGER_NAME name) {
    return name == MAIN ? mainLogger.load(std::memory_order_acquire) : otherLoggers[name];
}

Logger* KoruLogger::set_logger(LOGGER_NAME name, Logger* logger) {
    return name == MAIN ? mainLogger.exchange(logger, std::memory_order_acq_rel)
                        : std::exchange(otherLoggers[name], logger);
}

}  // namespace oru
