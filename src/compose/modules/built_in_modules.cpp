// For programs that are linked with the modules' archives: nothing is loaded from files.
#include "compose/modules/modules.hpp"

namespace oru {
namespace {

[[maybe_unused]] const bool kRegisteredBeforeMain = [] {
    registerModule(ModuleName::STREAM, &oru_koruone_module_stream);
    registerModule(ModuleName::RECORDING, &oru_koruone_module_recording);
    registerModule(ModuleName::CALIBRATION, &oru_koruone_module_calibration);
    registerModule(ModuleName::FOOTAGE, &oru_koruone_module_footage);
    return true;
}();

}  // namespace
}  // namespace oru
