extern "C" {
#include <libavutil/log.h>
}

#include "compose/modules/module_entry.hpp"

ORU_MODULE_ENTRY const oru::ModuleTable* oru::oru_koruone_module_footage(unsigned version) {
    static constexpr FootageModule kTable{{}, &virtual_bus::makeFootageDecoder};
    if (version != kModuleVersion) {
        return nullptr;
    }
    // The coding library writes to standard error on its own; our log says what matters.
    av_log_set_level(AV_LOG_FATAL);
    return &kTable;
}
