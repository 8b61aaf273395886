#pragma once

#include <type_traits>

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

}  // namespace detail

/// Carries out an operation of the public face, which no exception leaves: its answer is then FAILURE, or an empty
/// value where it answers with no code.
template <class Operation>
auto guarded(Operation&& operation, const char* name = __builtin_FUNCTION(), const char* file = __builtin_FILE(),
             int line = __builtin_LINE()) -> std::invoke_result_t<Operation&> {
    try {
        return operation();
    } catch (...) {
        logException({name, file, line});
    }
    return detail::answerOfFailure<std::invoke_result_t<Operation&>>();
}

}  // namespace oru
