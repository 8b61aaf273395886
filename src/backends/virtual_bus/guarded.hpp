#pragma once

#include <exception>
#include <utility>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::virtual_bus {

/// Runs one operation of the seam, which throws nothing at the camera: a failure is one Error line and `fallback`.
template <class Result, class Work>
[[nodiscard]] Result guarded(const char* operation, Result fallback, Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (const std::exception& problem) {
        ORU_LOG(Error, "{} The virtual bus failed in {}: {}.", kTagKoru, operation, problem.what());
        return fallback;
    }
}

}  // namespace oru::virtual_bus
