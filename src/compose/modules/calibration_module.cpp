#include <curl/curl.h>

#include "compose/modules/module_entry.hpp"

ORU_MODULE_ENTRY const oru::ModuleTable* oru::oru_koruone_module_calibration(unsigned version) {
    static constexpr CalibrationModule kTable{{}, &downloadText};
    if (version != kModuleVersion) {
        return nullptr;
    }
    (void)curl_global_init(CURL_GLOBAL_DEFAULT);
    return &kTable;
}
