#include "compose/library_settings.hpp"

#include <curl/curl.h>

#include "backends/stream/stream_factory.hpp"

extern "C" {
#include <libavutil/log.h>
}

namespace oru {

void applyLibrarySettings() {
    (void)curl_global_init(CURL_GLOBAL_DEFAULT);
    routeStreamLibraryLog();
    // The coding library writes to standard error on its own; our log says what matters.
    av_log_set_level(AV_LOG_FATAL);
}

}  // namespace oru
