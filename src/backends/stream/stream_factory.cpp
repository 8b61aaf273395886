#include <srt/srt.h>

#include <atomic>
#include <chrono>
#include <string_view>
#include <utility>

#include "backends/stream/receiver/StreamReceiver.hpp"
#include "backends/stream/sender/StreamSender.hpp"
#include "backends/stream/stream_factory.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru {
namespace {

constexpr int kLibraryError = 3;  // as in syslog(3)
constexpr int64_t kMessagesEveryMs = 500;

/// Anyone can make the library complain by sending it rubbish, so its complaints are thinned out.
void logLibraryMessage(void* /*opaque*/, int level, const char* /*file*/, int /*line*/, const char* /*area*/,
                       const char* message) noexcept {
    static std::atomic<int64_t> last{-kMessagesEveryMs};
    const int64_t now =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    int64_t before = last.load(std::memory_order_relaxed);
    if (message == nullptr || level > kLibraryError || now - before < kMessagesEveryMs ||
        !last.compare_exchange_strong(before, now)) {
        return;
    }
    std::string_view text(message);
    while (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    ORU_LOG(Debug, "{} {}", kTagStreaming, text);
}

}  // namespace

std::unique_ptr<UDPInput> makeStreamReceiver(Clock& clock, CalibrationSource& calibration,
                                             std::unique_ptr<rlxrw::RLXVideo> recorder, bool verbose) {
    return std::make_unique<stream::StreamReceiver>(clock, calibration, std::move(recorder), verbose);
}

std::unique_ptr<UDPOutput> makeStreamSender(Clock& clock, CalibrationSource& calibration, bool verbose) {
    return std::make_unique<stream::StreamSender>(clock, calibration, verbose);
}

void routeStreamLibraryLog() {
    srt_setloghandler(nullptr, &logLibraryMessage);
    srt_setloglevel(kLibraryError);
}

}  // namespace oru
