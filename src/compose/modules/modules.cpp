#include "compose/modules/modules.hpp"

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>

#include "compose/modules/module_version.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "utils/Mutex.hpp"

namespace oru {
namespace {

struct Slot {
    const char* name;
    std::atomic<ModuleEntry> linked{nullptr};
    std::atomic<const ModuleTable*> table{nullptr};
};

// Constant-initialised: programs register their modules before main, in any order.
constinit std::array<Slot, 4> slots{{{"stream"}, {"recording"}, {"calibration"}, {"footage"}}};
Mutex loading;

Slot& slotOf(ModuleName name) {
    return slots[static_cast<std::size_t>(name)];
}

/// Empty when it cannot be found out.
const std::filesystem::path& libraryFolder() {
    static const std::filesystem::path folder = [] {
        Dl_info here{};
        std::error_code failure;
        if (::dladdr(&slots, &here) == 0 || here.dli_fname == nullptr) {
            return std::filesystem::path();
        }
        const auto library = std::filesystem::canonical(here.dli_fname, failure);
        return failure ? std::filesystem::path() : library.parent_path();
    }();
    return folder;
}

std::string lastLoaderError() {
    const char* text = ::dlerror();
    return text != nullptr ? text : "it has no entry of that name";
}

/// The entry of the module's file; null with the reason.
ModuleEntry findEntry(const Slot& slot, const std::string& file, std::string& error) {
    if (libraryFolder().empty()) {
        error = "the folder of the library is unknown";
        return nullptr;
    }
    // A whole path: the loader searches nowhere. The module stays loaded, so that its functions outlive every user.
    const std::string path = libraryFolder() / file;
    void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    void* entry =
        module != nullptr ? ::dlsym(module, (std::string("oru_koruone_module_") + slot.name).c_str()) : nullptr;
    if (entry == nullptr) {
        error = lastLoaderError();
    }
    return reinterpret_cast<ModuleEntry>(entry);
}

const ModuleTable* load(Slot& slot) {
    const std::string file = std::string("liboru_koruone_") + slot.name + ".so." + kModuleFileVersion;
    std::string error = "it was built for another version of the library";
    ModuleEntry entry = slot.linked.load(std::memory_order_acquire);
    if (entry == nullptr) {
        entry = findEntry(slot, file, error);
    }
    const ModuleTable* table = entry != nullptr ? entry(kModuleVersion) : nullptr;
    if (table == nullptr) {
        ORU_LOG(Error, "{} The module {} of the package oru-koruone-{} is missing: {}; install that package", kTagKoru,
                file, slot.name, error);
    }
    return table;
}

const ModuleTable* moduleTable(ModuleName name) {
    Slot& slot = slotOf(name);
    if (const ModuleTable* table = slot.table.load(std::memory_order_acquire); table != nullptr) {
        return table;
    }
    const MutexLock lock(loading);
    const ModuleTable* table = slot.table.load(std::memory_order_relaxed);
    if (table == nullptr) {
        table = load(slot);
        slot.table.store(table, std::memory_order_release);
    }
    return table;
}

}  // namespace

const StreamModule* streamModule() {
    return static_cast<const StreamModule*>(moduleTable(ModuleName::STREAM));
}
const RecordingModule* recordingModule() {
    return static_cast<const RecordingModule*>(moduleTable(ModuleName::RECORDING));
}
const CalibrationModule* calibrationModule() {
    return static_cast<const CalibrationModule*>(moduleTable(ModuleName::CALIBRATION));
}
const FootageModule* footageModule() {
    return static_cast<const FootageModule*>(moduleTable(ModuleName::FOOTAGE));
}

std::unique_ptr<RecordingTools> recordingTools() {
    const RecordingModule* module = recordingModule();
    return module != nullptr ? module->makeTools() : nullptr;
}

void registerModule(ModuleName name, ModuleEntry entry) {
    slotOf(name).linked.store(entry, std::memory_order_release);
}

void noteLibraryFolder() {
    (void)libraryFolder();
}

}  // namespace oru
