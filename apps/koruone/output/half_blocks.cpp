#include "koruone/output/half_blocks.hpp"

#include <fmt/format.h>
#include <sys/ioctl.h>

#include <iterator>

namespace koruone {
namespace {

constexpr const char* kUpperHalf = "\xE2\x96\x80";

}  // namespace

TerminalSize terminalSize(int descriptor) {
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        return {};
    }
    return {size.ws_col, size.ws_row};
}

std::string halfBlocks(const ImageView& image) {
    std::string text;
    auto out = std::back_inserter(text);
    for (std::size_t y = 0; y + 1 < image.height; y += 2) {
        const unsigned char* upper = image.pixels + y * image.step;
        const unsigned char* lower = upper + image.step;
        for (std::size_t x = 0; x < image.width; ++x, upper += 4, lower += 4) {
            fmt::format_to(out, "\x1b[38;2;{};{};{};48;2;{};{};{}m{}", upper[2], upper[1], upper[0], lower[2], lower[1],
                           lower[0], kUpperHalf);
        }
        text += "\x1b[0m\r\n";
    }
    return text;
}

}  // namespace koruone
