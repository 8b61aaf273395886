#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace oru::virtual_bus {

/// A folder that lives as long as the test.
class Scratch {
public:
    Scratch() {
        std::string name = testing::TempDir() + "koru-bus-XXXXXX";
        folder = ::mkdtemp(name.data());
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    [[nodiscard]] std::string path(const std::string& name) const { return folder + "/" + name; }

    /// Writes a file, making its folders; returns its path.
    std::string write(const std::string& name, const std::string& text) const {
        const std::filesystem::path file = path(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }

    /// A colour image whose grey level says which one it is.
    std::string writeImage(const std::string& name, int grey, int width = 320, int height = 200) const {
        std::string text = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
        text.append(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3, static_cast<char>(grey));
        return write(name, text);
    }

private:
    std::string folder;
};

/// A camera of 3 um pixels, with more keys.
inline std::string cameraText(const std::string& keys) {
    return "[camera 0]\nmodel = 30\nserial = 30770001\n" + keys;
}

}  // namespace oru::virtual_bus
