extern "C" {
#include <libavutil/log.h>
}

#include "backends/rlx/rlx_factory.hpp"
#include "compose/modules/module_entry.hpp"

ORU_MODULE_ENTRY const oru::ModuleTable* oru::oru_koruone_module_recording(unsigned version) {
    static constexpr RecordingModule kTable{{}, &makeRlxVideo, &makePlaybackRecorder, &makeRecordingTools};
    if (version != kModuleVersion) {
        return nullptr;
    }
    // The coding library writes to standard error on its own; our log says what matters.
    av_log_set_level(AV_LOG_FATAL);
    return &kTable;
}
