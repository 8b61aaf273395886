#include "collaborators/CollaboratorFactory.hpp"
#include "compose/built_in_factory.hpp"
#include "logging/KoruLogger.hpp"
#include "oru/gpu.hpp"
#include "oru/logging.hpp"

namespace oru {

void flushLog() {
    if (Logger* logger = KoruLogger::get_instance().get_logger(MAIN); logger != nullptr) {
        flush(*logger);
    }
}

ERROR_CODE copyToHost(Mat& image) {
    auto* host = image.getPtr<unsigned char>(CPU);
    const auto* device = image.getPtr<unsigned char>(GPU);
    const auto platform = CollaboratorFactory::processDefault();
    if (host == nullptr || device == nullptr || platform == nullptr) {
        return INVALID_CALL;
    }
    const std::size_t bytes = image.getStepBytes(CPU) * image.getHeight();
    return platform->gpu().copyDeviceToHost(host, device, bytes) == 0 ? SUCCESS : FAILURE;
}

String gpuDescription() {
    registerBuiltInFactory();
    const auto platform = CollaboratorFactory::processDefault();
    return platform == nullptr ? String{} : String{platform->gpu().description()};
}

}  // namespace oru
