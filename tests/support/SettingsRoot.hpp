#pragma once

#include <string>
#include <utility>

#include "calibration/readers.hpp"

namespace oru {

/// Redirects the root of the system settings directory for a scope.
class SettingsRoot {
public:
    explicit SettingsRoot(std::string root) : former(std::exchange(detail::settingsRoot(), std::move(root))) {}
    ~SettingsRoot() { detail::settingsRoot() = former; }
    SettingsRoot(const SettingsRoot&) = delete;
    SettingsRoot& operator=(const SettingsRoot&) = delete;

private:
    std::string former;
};

}  // namespace oru
