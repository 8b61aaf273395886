#pragma once

#include <exception>

namespace oru::rlx {

/// Says at Error that an operation ended by an exception, as well as that is possible without memory.
void reportException(const char* operation, const char* what) noexcept;

/// Runs what must not throw. An exception, lack of memory in practice, becomes `failure` and one Error line.
template <class Result, class Operation>
[[nodiscard]] Result guarded(const char* name, Result failure, const Operation& operation) noexcept {
    try {
        return operation();
    } catch (const std::exception& error) {
        reportException(name, error.what());
    } catch (...) {
        reportException(name, "unknown exception");
    }
    return failure;
}

/// The same for an operation without an answer.
template <class Operation>
void guarded(const char* name, const Operation& operation) noexcept {
    (void)guarded(name, false, [&] {
        operation();
        return true;
    });
}

}  // namespace oru::rlx
