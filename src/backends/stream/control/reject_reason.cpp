#include "backends/stream/control/reject_reason.hpp"

#include <srt/access_control.h>
#include <srt/srt.h>

namespace oru::stream {

std::string rejectReasonText(int reason, const char* variable, bool keyGiven) {
    switch (reason) {
        case SRT_REJ_BADSECRET:
            return std::string("the key in ") + variable + " is not the sender's; ask who runs the sender for it";
        case SRT_REJ_UNSECURE:
            return keyGiven ? std::string("the sender has no key, and ") + variable + " is set here; unset it"
                            : std::string("the sender wants a key, and ") + variable +
                                  " is not set here; ask who runs the sender for it";
        case SRT_REJX_FORBIDDEN:
            return "the sender takes no control from outside";
        default:
            return "";
    }
}

}  // namespace oru::stream
