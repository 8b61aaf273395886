#pragma once

#include <string>

namespace oru::stream {

/// What to tell a user whose connection the sender refused for its key, by the transport library's reason; `variable`
/// is where the key comes from. Empty: it was not that, and another attempt may succeed.
[[nodiscard]] std::string rejectReasonText(int reason, const char* variable, bool keyGiven);

}  // namespace oru::stream
