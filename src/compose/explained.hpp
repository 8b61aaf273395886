#pragma once

#include "logging/FailureReason.hpp"
#include "oru/error_code.hpp"

namespace oru {

/// For lastErrorReason() of this thread; what was kept back of the messages is not logged.
void rememberReason(FailureReason& failed);

/// Runs an operation of the public interface and remembers why it failed. The end of the input and an adjusted
/// configuration are no failures.
template <class Operation>
ERROR_CODE explained(const Operation& operation, FailureReason::Messages messages) {
    FailureReason reason(messages);
    const ERROR_CODE code = operation();
    if (code != SUCCESS && code != END_OF_INPUT && code != CONFIGURATION_ADJUSTED) {
        rememberReason(reason);
    }
    return code;
}

}  // namespace oru
