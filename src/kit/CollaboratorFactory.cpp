#include "collaborators/CollaboratorFactory.hpp"

#include <new>
#include <utility>

#include "utils/Mutex.hpp"

namespace oru {
namespace {

using MakeBuiltIn = std::shared_ptr<CollaboratorFactory> (*)();

struct ProcessDefault {
    Mutex make_mutex;  // held while the built-in factory is made; taken before mutex
    Mutex mutex;
    std::shared_ptr<CollaboratorFactory> chosen ORU_GUARDED_BY(mutex);
    std::shared_ptr<CollaboratorFactory> built_in ORU_GUARDED_BY(mutex);
    MakeBuiltIn make ORU_GUARDED_BY(mutex) = nullptr;
};

// Never destroyed: a camera or an image with static lifetime may come back here after every other static object is
// gone.
ProcessDefault& state() {
    alignas(ProcessDefault) static std::byte storage[sizeof(ProcessDefault)];
    static ProcessDefault* const instance = ::new (static_cast<void*>(storage)) ProcessDefault();
    return *instance;
}

std::pair<std::shared_ptr<CollaboratorFactory>, MakeBuiltIn> current() {
    ProcessDefault& process = state();
    const MutexLock lock(process.mutex);
    return {process.chosen ? process.chosen : process.built_in, process.make};
}

}  // namespace

std::shared_ptr<CollaboratorFactory> CollaboratorFactory::processDefault() {
    if (auto [factory, make] = current(); factory || make == nullptr) {
        return factory;
    }
    ProcessDefault& process = state();
    const MutexLock making(process.make_mutex);
    const auto [factory, make] = current();
    if (factory) {
        return factory;
    }
    auto made = make();
    const MutexLock lock(process.mutex);
    process.built_in = std::move(made);
    return process.chosen ? process.chosen : process.built_in;
}

std::shared_ptr<CollaboratorFactory> CollaboratorFactory::setProcessDefault(
    std::shared_ptr<CollaboratorFactory> factory) {
    ProcessDefault& process = state();
    const MutexLock lock(process.mutex);
    return std::exchange(process.chosen, std::move(factory));
}

void CollaboratorFactory::registerBuiltIn(std::shared_ptr<CollaboratorFactory> (*make)()) {
    ProcessDefault& process = state();
    std::shared_ptr<CollaboratorFactory> former;
    const MutexLock lock(process.mutex);
    if (process.make != make) {
        former = std::exchange(process.built_in, nullptr);
        process.make = make;
    }
}

}  // namespace oru
