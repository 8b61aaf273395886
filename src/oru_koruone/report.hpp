#pragma once

#include <cstring>

#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "oru/error_code.hpp"

namespace oru {

// The operations that report, as GCC spells their signatures.
inline constexpr const char* kOpenSignature = "oru::ERROR_CODE oru::CameraOneImpl::open(const oru::InitParametersOne&)";
inline constexpr const char* kRebootSignature = "static oru::ERROR_CODE oru::CameraOneImpl::reboot(oru::INPUT_TYPE)";

namespace detail {

inline const char* baseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

/// Logs the two lines of the error report and returns the code unchanged.
inline ERROR_CODE report(ERROR_CODE code, const char* signature, const char* file, int line) {
    ORU_LOG_AT(LogLevel::Warning, file, line, "{} in {}", toString(code).c_str(), signature);
    ORU_LOG_AT(LogLevel::TraceL3, file, line, "({} l.{})", baseName(file), line);
    return code;
}

}  // namespace detail
}  // namespace oru

// For the files of open and reboot, which name their signature as kReportedOperation.
#define ORU_REPORT(code) ::oru::detail::report((code), kReportedOperation, __FILE__, __LINE__)

// First line of a guarded operation.
#define ORU_RETURN_IF_CLOSED(value)                 \
    do {                                            \
        if (!isOpened()) {                          \
            ORU_LOG(Error, kNotOpenText, kTagKoru); \
            return value;                           \
        }                                           \
    } while (false)
