#pragma once

#include <string>
#include <utility>

#include "calibration/readers.hpp"

namespace oru::doubles {

/// Redirects the root of the system settings directory for a scope.
class SettingsRoot {
public:
    explicit SettingsRoot(std::string root) : former(std::exchange(oru::detail::settingsRoot(), std::move(root))) {}
    ~SettingsRoot() { oru::detail::settingsRoot() = former; }
    SettingsRoot(const SettingsRoot&) = delete;
    SettingsRoot& operator=(const SettingsRoot&) = delete;

private:
    std::string former;
};

}  // namespace oru::doubles
