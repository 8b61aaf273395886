#include "backends/rlx/file/guarded.hpp"

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

void reportException(const char* operation, const char* what) noexcept {
    try {
        ORU_LOG(Error, "{} {} of a recording failed: {}", kTagKoru, operation, what);
    } catch (...) {
        // There is no memory for the line either.
        return;
    }
}

}  // namespace oru::rlx
