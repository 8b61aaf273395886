#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "oru/String.hpp"
#include "oru/export.hpp"

namespace oru {

/// How much a message matters. As a threshold each admits itself and all after it; SILENT admits none.
enum class LOG_LEVEL : int32_t { TRACE, DEBUG, INFO, WARNING, ERROR, CRITICAL, SILENT };

/// "TRACE" to "SILENT"; "UNKNOWN" for a value that is not listed.
ORU_API const char* toString(LOG_LEVEL level);

/// One message of the library.
struct LogMessage {
    LOG_LEVEL level = LOG_LEVEL::INFO;
    std::string text;
    std::string file;  ///< the place in the library's source
    int32_t line = 0;
};

/// Called with each message, one at a time, on a thread of the library's. What it throws is dropped.
/// It must not call setLogSink.
using LogMessageSink = std::function<void(const LogMessage&)>;

/// Messages below the threshold are not made at all, whatever KORU_SDK_LOGGER_LEVEL says; that variable only chooses
/// the threshold at the start, INFO without it. Threads: any.
ORU_API void setLogLevel(LOG_LEVEL threshold);
ORU_API LOG_LEVEL getLogLevel();

/// From now on messages go to `sink` instead of standard error; an empty one leads them back there. Messages logged
/// before the call still go where they went. When it returns the former sink is not called any more.
/// Who gives a sink takes it back before what the sink uses is gone. Threads: any.
ORU_API void setLogSink(LogMessageSink sink);

/// Why the last operation of a camera object that failed on this thread did so, in words that go on after a colon;
/// empty when nobody said why. Filled by open, grab, retrieveImage, reboot, the controls, enableRecording and
/// enableStreaming, by getRecordingStatus for a recording that ended early and by getDeviceList when it finds no
/// camera, whatever is logged. Threads: any, each its own.
[[nodiscard]] ORU_API String lastErrorReason();

/// With false, what the library logs at Warning and above on the calling thread while one of these operations but grab
/// fails stays out of the log: the application says lastErrorReason() itself. Threads: any.
ORU_API void setFailuresLogged(bool logged);

/// Returns when every message that the library has logged so far is written: what is printed next comes after them.
/// Threads: any.
ORU_API void flushLog();

}  // namespace oru
