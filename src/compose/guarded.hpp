#pragma once

#include <type_traits>

#include "compose/explained.hpp"
#include "oru/error_code.hpp"

namespace oru {

/// Where an operation of the public face was called from itself: what a message about it names.
struct FaceOperation {
    const char* name;
    const char* file;
    int line;
};

/// For the handler of an exception: one Error line that names the operation and what the exception says. The end of a
/// cancelled thread goes on.
void logException(const FaceOperation& operation);

namespace detail {

template <class Answer>
Answer answerOfFailure() {
    if constexpr (std::is_same_v<Answer, ERROR_CODE>) {
        return FAILURE;
    } else {
        return Answer();
    }
}

template <class Operation>
auto caught(Operation& operation, const FaceOperation& site) -> std::invoke_result_t<Operation&> {
    try {
        return operation();
    } catch (...) {
        logException(site);
    }
    return answerOfFailure<std::invoke_result_t<Operation&>>();
}

}  // namespace detail

/// Carries out an operation of the public face, which no exception leaves: its answer is then FAILURE, or an empty
/// value where it answers with no code. Why it failed is remembered for lastErrorReason().
template <FailureReason::Messages kMessages = FailureReason::Messages::KEEP_BACK, class Operation>
auto guarded(Operation&& operation, const char* name = __builtin_FUNCTION(), const char* file = __builtin_FILE(),
             int line = __builtin_LINE()) -> std::invoke_result_t<Operation&> {
    const FaceOperation site{name, file, line};
    if constexpr (std::is_same_v<std::invoke_result_t<Operation&>, ERROR_CODE>) {
        return explained([&] { return detail::caught(operation, site); }, kMessages);
    } else {
        return detail::caught(operation, site);
    }
}

}  // namespace oru
