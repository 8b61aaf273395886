#pragma once

#include <fmt/core.h>

#include <string>
#include <string_view>
#include <vector>

#include "logging/Logger.hpp"
#include "utils/private_export.hpp"

namespace oru {

/// While it lives, why the work of its thread fails: the first message of level Error or above that this thread logs,
/// or what ORU_REASON states before. They may nest; the innermost one listens. Allocates only when there is something
/// to keep. Threads: that of its constructor.
class FailureReason {
public:
    /// What happens to this thread's messages of level Warning and above until the end.
    enum class Messages {
        LOG,
        KEEP_BACK,  ///< where keepFailuresOutOfLog() asks for it: logged by the destructor unless they are dropped
    };

    ORU_PRIVATE_API explicit FailureReason(Messages messages = Messages::LOG);
    ORU_PRIVATE_API ~FailureReason();
    FailureReason(const FailureReason&) = delete;
    FailureReason& operator=(const FailureReason&) = delete;

    /// Without the tag of its area and the final point; empty when nobody said why.
    [[nodiscard]] const std::string& text() const { return reason; }
    /// The work failed, and its caller tells why: what was kept back is not logged.
    void dropMessages() { kept.clear(); }

    /// The one that listens on this thread; null without.
    [[nodiscard]] ORU_PRIVATE_API static FailureReason* listening();

    void offer(std::string_view text);
    /// False: the message is to be logged now.
    [[nodiscard]] bool keepBack(LogLevel level, const char* file, int line, std::string_view text);

private:
    struct Message {
        LogLevel level = LogLevel::Error;
        const char* file = "";
        int line = 0;
        std::string text;
    };

    FailureReason* outer;
    bool keepsBack;
    std::string reason;
    std::vector<Message> kept;
};

/// Whether a failing operation's messages stay out of the log, because the application says the reason itself.
void keepFailuresOutOfLog(bool keep);

namespace detail {

/// One message to the log, where its level is wanted, and to the reason that listens.
ORU_PRIVATE_API void post(LogLevel level, const char* file, int line, fmt::string_view format,
                          fmt::format_args arguments);
ORU_PRIVATE_API void stateReason(fmt::string_view format, fmt::format_args arguments);

template <class... Arguments>
void formatReason(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    stateReason(fmt::string_view(format), fmt::make_format_args(arguments...));
}

}  // namespace detail
}  // namespace oru

/// States why what this thread does fails, without a message: for a failure that may still be mended, or one that the
/// caller reports. The first statement counts.
#define ORU_REASON(...)                                   \
    do {                                                  \
        if (::oru::FailureReason::listening() != nullptr) \
            ::oru::detail::formatReason(__VA_ARGS__);     \
    } while (false)
