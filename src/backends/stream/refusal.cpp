#include "refusal.hpp"

#include <srt/access_control.h>
#include <srt/srt.h>

namespace oru::stream {

std::string refusalText(int reason, const char* variable, bool keyGiven) {
    switch (reason) {
        case SRT_REJ_BADSECRET:
            return std::string("its key is not the one in ") + variable;
        case SRT_REJ_UNSECURE:
            return keyGiven ? std::string("it has no key, and ") + variable + " is set here"
                            : std::string("it wants a key, and ") + variable + " is not set here";
        case SRT_REJX_FORBIDDEN:
            return "it takes no control from outside";
        default:
            return "";
    }
}

}  // namespace oru::stream
