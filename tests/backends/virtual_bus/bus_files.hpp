#pragma once

#include <string>

#include "doubles/TemporaryDirectory.hpp"

namespace oru::virtual_bus {

using doubles::TemporaryDirectory;

/// Writes a colour image whose grey level says which one it is; returns its path.
inline std::string writeImage(const TemporaryDirectory& folder, const std::string& name, int grey, int width = 320,
                              int height = 200) {
    std::string text = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
    text.append(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3, static_cast<char>(grey));
    return folder.write(name, text);
}

/// A camera of 3 um pixels, with more keys.
inline std::string cameraText(const std::string& keys) {
    return "[camera 0]\nmodel = 30\nserial = 30770001\n" + keys;
}

}  // namespace oru::virtual_bus
