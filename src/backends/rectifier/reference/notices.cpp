#include "backends/rectifier/reference/notices.hpp"

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rectifier {

void warn(const char* text) {
    ORU_LOG(Warning, "{} {}", kTagInit, text);
}

}  // namespace oru::rectifier
