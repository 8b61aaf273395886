#pragma once

#include <cstdint>

#include "compose/modules/module_tables.hpp"

namespace oru {

enum class ModuleName : uint8_t { STREAM, RECORDING, CALIBRATION, FOOTAGE };

/// The modules: one shared object each, in the folder of this library and nowhere else, loaded by the first call that
/// needs it and never unloaded. Null, with an Error line that names file and package, as long as the module or a
/// library of its own is not installed: each call looks again. Threads: any.
[[nodiscard]] const StreamModule* streamModule();
[[nodiscard]] const RecordingModule* recordingModule();
[[nodiscard]] const CalibrationModule* calibrationModule();
[[nodiscard]] const FootageModule* footageModule();

/// Of the recording module; null without it.
[[nodiscard]] std::unique_ptr<RecordingTools> recordingTools();

using ModuleEntry = const ModuleTable* (*)(unsigned version);
/// Takes the module from this program, which is linked with it, instead of from a file.
void registerModule(ModuleName name, ModuleEntry entry);

/// Notes where this library lies. Before main, so that no later change of the working folder matters.
void noteLibraryFolder();

}  // namespace oru
