#include "compose/guarded.hpp"

#include <cxxabi.h>

#include <exception>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru {
namespace {

void logFailure(const FaceOperation& operation, const char* reason) {
    try {
        ORU_LOG_AT(LogLevel::Error, operation.file, operation.line, "{} {} failed: {}", kTagKoru, operation.name,
                   reason);
    } catch (const std::exception&) {
        return;  // without memory for the message there is only the code
    }
}

}  // namespace

void logException(const FaceOperation& operation) {
    try {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& exception) {
        logFailure(operation, exception.what());
    } catch (...) {
        logFailure(operation, "an exception of an unknown kind");
    }
}

}  // namespace oru
