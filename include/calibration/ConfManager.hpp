#pragma once

#include <memory>
#include <string>

#include "utils/private_export.hpp"

namespace oru {

/// One calibration file, loaded and queried; lives for one loading operation. Threads: one.
class ConfManager {
public:
    ORU_PRIVATE_API ConfManager();
    /// Writes the document back to `path` when `is_open` and `write_back` are both set.
    ORU_PRIVATE_API ~ConfManager();
    ConfManager(const ConfManager&) = delete;
    ConfManager& operator=(const ConfManager&) = delete;

    /// Loads one candidate: sets `path`, and `is_open` to whether it could be read.
    void load(const std::string& candidate);
    /// The number under "SECTION:key", compared without regard to case. Parsed as strtod does in the C locale;
    /// text without a number gives 0. Missing: the default, rounded to six decimals when a file is open.
    [[nodiscard]] float getValue(std::string key, float default_value) const;

    std::string path;
    bool is_open = false;
    bool write_back = false;

private:
    struct Document;  // the INI library stays out of this header
    std::unique_ptr<Document> ini;
};

}  // namespace oru
