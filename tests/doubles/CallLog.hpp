#pragma once

#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace oru::doubles {

/// What the camera called on its collaborators, in order.
class CallLog {
public:
    /// Neither formats nor allocates while `listening` is false. Throws at a call that begins with `failing`.
    template <class... Values>
    void add(fmt::format_string<Values...> call, Values&&... values) {
        if (listening) {
            calls.push_back(fmt::format(call, std::forward<Values>(values)...));
            if (!failing.empty() && calls.back().starts_with(failing)) {
                throw std::runtime_error(calls.back());
            }
        }
    }
    void clear() { calls.clear(); }
    [[nodiscard]] const std::vector<std::string>& all() const { return calls; }
    [[nodiscard]] auto count(const std::string& call) const { return std::count(calls.begin(), calls.end(), call); }
    [[nodiscard]] bool has(const std::string& call) const { return count(call) > 0; }
    /// Position of the first such call, or the length of the log.
    [[nodiscard]] std::size_t at(const std::string& call) const {
        return static_cast<std::size_t>(std::find(calls.begin(), calls.end(), call) - calls.begin());
    }

    bool listening = true;
    std::string failing;  ///< empty: none

private:
    std::vector<std::string> calls;
};

}  // namespace oru::doubles
