#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace oru::doubles {

/// What the camera called on its collaborators, in order.
class CallLog {
public:
    void add(std::string call) { calls.push_back(std::move(call)); }
    void clear() { calls.clear(); }
    [[nodiscard]] const std::vector<std::string>& all() const { return calls; }
    [[nodiscard]] auto count(const std::string& call) const { return std::count(calls.begin(), calls.end(), call); }
    [[nodiscard]] bool has(const std::string& call) const { return count(call) > 0; }
    /// Position of the first such call, or the length of the log.
    [[nodiscard]] std::size_t at(const std::string& call) const {
        return static_cast<std::size_t>(std::find(calls.begin(), calls.end(), call) - calls.begin());
    }

private:
    std::vector<std::string> calls;
};

}  // namespace oru::doubles
