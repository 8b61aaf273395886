#pragma once

#include <algorithm>
#include <array>
#include <memory>

#include "backends/rectifier/geometry/rectified_camera.hpp"

namespace oru::rectifier {

/// What was prepared for views of the sizes asked for last: another size takes the place of the one that was longest
/// unused. One thread at a time.
template <class Prepared>
class RecentSizes {
public:
    /// `make()` gives a unique_ptr to what belongs to a size that is not kept; null is kept nowhere.
    template <class Make>
    Prepared* of(Size size, Make make) {
        auto found = std::find_if(entries.begin(), entries.end(),
                                  [&](const Entry& entry) { return entry.prepared == nullptr || entry.size == size; });
        if (found == entries.end()) {
            --found;
            found->prepared.reset();
        }
        if (found->prepared == nullptr) {
            *found = {size, make()};
            if (found->prepared == nullptr) {
                return nullptr;
            }
        }
        std::rotate(entries.begin(), found, found + 1);
        return entries.front().prepared.get();
    }
    void clear() { entries = {}; }

private:
    static constexpr std::size_t kKept = 4;
    struct Entry {
        Size size{};
        std::unique_ptr<Prepared> prepared;
    };
    std::array<Entry, kKept> entries;  // most recently used first
};

}  // namespace oru::rectifier
