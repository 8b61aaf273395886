// Compiled only with -DORU_LOG_BACKEND=quill, against an installed quill 6 to 12; not part of the regular test runs.

#include <quill/Backend.h>
#include <quill/Frontend.h>
#include <quill/LogMacros.h>
#include <quill/Logger.h>
#include <quill/sinks/Sink.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "logging/LogBackend.hpp"
#include "utils/Mutex.hpp"

namespace oru {
namespace {

// File and line travel in the text, since they are known at run time only, and line breaks as another character, since
// the library would deliver each line by itself.
constexpr char kSeparator = '\x1F';
constexpr char kLineBreak = '\x1E';

/// A queue of fixed size for each thread: a sink that hangs loses messages, which the library reports, and holds
/// nobody.
struct QueueOptions : quill::FrontendOptions {
    static constexpr quill::QueueType queue_type = quill::QueueType::BoundedDropping;
};
using QuillFrontend = quill::FrontendImpl<QueueOptions>;
using QuillLogger = quill::LoggerImpl<QueueOptions>;

// By name: the library's numbers are not ours, and shifted once.
LogLevel levelOf(quill::LogLevel level) {
    switch (level) {
        case quill::LogLevel::TraceL3:
            return LogLevel::TraceL3;
        case quill::LogLevel::TraceL2:
            return LogLevel::TraceL2;
        case quill::LogLevel::TraceL1:
            return LogLevel::TraceL1;
        case quill::LogLevel::Debug:
            return LogLevel::Debug;
        case quill::LogLevel::Warning:
            return LogLevel::Warning;
        case quill::LogLevel::Error:
            return LogLevel::Error;
        case quill::LogLevel::Critical:
            return LogLevel::Critical;
        default:
            return LogLevel::Info;
    }
}

class ForwardingSink final : public quill::Sink {
public:
    explicit ForwardingSink(BackendSink receiver) : target(std::move(receiver)) {}

    void write_log(const quill::MacroMetadata* /*metadata*/, uint64_t timestamp, std::string_view /*threadId*/,
                   std::string_view /*threadName*/, const std::string& /*processId*/, std::string_view /*loggerName*/,
                   quill::LogLevel level, std::string_view /*levelName*/, std::string_view /*levelCode*/,
                   const std::vector<std::pair<std::string, std::string>>* /*namedArguments*/, std::string_view message,
                   std::string_view /*statement*/) override {
        isWorker = true;
        const auto fileEnd = message.find(kSeparator);
        const auto lineEnd = fileEnd == message.npos ? message.npos : message.find(kSeparator, fileEnd + 1);
        if (lineEnd == message.npos) {
            return;
        }
        int line = 0;
        std::from_chars(message.data() + fileEnd + 1, message.data() + lineEnd, line);
        std::string text(message.substr(lineEnd + 1));
        std::replace(text.begin(), text.end(), kLineBreak, '\n');
        const auto sinceEpoch = std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::nanoseconds(static_cast<int64_t>(timestamp)));
        deliver({levelOf(level), text, message.substr(0, fileEnd), line,
                 std::chrono::system_clock::time_point(sinceEpoch)});
    }
    void flush_sink() override {}

    void deliver(const BackendMessage& message) {
        const MutexLock lock(mutex);
        try {
            if (target) {
                target(message);
            }
        } catch (...) {
            return;
        }
    }
    /// The library may keep the sink for a while after its logger is gone.
    void stop() {
        const MutexLock lock(mutex);
        target = nullptr;
    }

    static inline thread_local bool isWorker = false;

private:
    Mutex mutex;
    BackendSink target ORU_GUARDED_BY(mutex);
};

void startLibrary() {
    static std::once_flag started;
    std::call_once(started, [] {
        quill::BackendOptions options;
        // Else every byte outside ASCII, and our separators, would be rewritten.
        options.check_printable_char = {};
        quill::Backend::start(options);
    });
}

class QuillBackend final : public LogBackend {
public:
    QuillBackend(const std::string& name, BackendSink receiver) {
        startLibrary();
        static std::atomic<uint64_t> count{0};
        const std::string unique = name + "#" + std::to_string(count++);
        const auto made = QuillFrontend::create_or_get_sink<ForwardingSink>(unique, std::move(receiver));
        sink = std::static_pointer_cast<ForwardingSink>(made);
        logger = QuillFrontend::create_or_get_logger(unique, made);
        logger->set_log_level(quill::LogLevel::TraceL3);
    }
    ~QuillBackend() override {
        QuillBackend::flush();
        sink->stop();
        if (quill::Backend::is_running()) {
            QuillFrontend::remove_logger(logger);
        }
    }
    QuillBackend(const QuillBackend&) = delete;
    QuillBackend& operator=(const QuillBackend&) = delete;

    void write(LogLevel level, const char* file, int line, std::string_view text) override {
        // The library's thread ends before the last static destructors run.
        if (!quill::Backend::is_running()) {
            sink->deliver({level, text, file, line, std::chrono::system_clock::now()});
            return;
        }
        std::string oneLine(text);
        std::replace(oneLine.begin(), oneLine.end(), '\n', kLineBreak);
        post(level, file, line, oneLine);
    }

    void flush() override {
        if (!ForwardingSink::isWorker && quill::Backend::is_running()) {
            logger->flush_log();
        }
    }

private:
    void post(LogLevel level, const char* file, int line, const std::string& text) {
        switch (level) {
            case LogLevel::TraceL3:
                QUILL_LOG_TRACE_L3(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
            case LogLevel::TraceL2:
                QUILL_LOG_TRACE_L2(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
            case LogLevel::TraceL1:
                QUILL_LOG_TRACE_L1(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
            case LogLevel::Debug:
                QUILL_LOG_DEBUG(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
            case LogLevel::Info:
                QUILL_LOG_INFO(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
            case LogLevel::Warning:
                QUILL_LOG_WARNING(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
            case LogLevel::Error:
                QUILL_LOG_ERROR(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
            case LogLevel::Critical:
                QUILL_LOG_CRITICAL(logger, "{}\x1F{}\x1F{}", file, line, text);
                break;
        }
    }

    std::shared_ptr<ForwardingSink> sink;
    QuillLogger* logger = nullptr;
};

}  // namespace

std::unique_ptr<LogBackend> makeLogBackend(const std::string& name, BackendSink sink) {
    return std::make_unique<QuillBackend>(name, std::move(sink));
}

}  // namespace oru
