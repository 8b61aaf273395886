#include "koruone/output/picture_file.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numbers>

namespace koruone {
namespace {

constexpr int kSide = 8;
constexpr int kBlock = 64;
using Block = std::array<float, kBlock>;

// ITU-T T.81, tables K.1 and K.2, halved: the quality that is usually called 75.
constexpr std::array<unsigned char, kBlock> kLumaSteps{8,  6,  5,  8,  12, 20, 26, 31, 6,  6,  7,  10, 13, 29, 30, 28,
                                                       7,  7,  8,  12, 20, 29, 35, 28, 7,  9,  11, 15, 26, 44, 40, 31,
                                                       9,  11, 19, 28, 34, 55, 52, 39, 12, 18, 28, 32, 41, 52, 57, 46,
                                                       25, 32, 39, 44, 52, 61, 60, 51, 36, 46, 48, 49, 56, 50, 52, 50};
constexpr std::array<unsigned char, kBlock> kChromaSteps{
    9,  9,  12, 24, 50, 50, 50, 50, 9,  11, 13, 33, 50, 50, 50, 50, 12, 13, 28, 50, 50, 50,
    50, 50, 24, 33, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50,
    50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50};
constexpr std::array<unsigned char, kBlock> kZigzag{0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                                    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                                    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                                    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

/// How many codes there are of each length, and what they mean in that order.
struct HuffmanTable {
    std::array<unsigned char, 16> counts{};
    std::vector<unsigned char> symbols;
};

// One table for direct values and one for the others serve luma and chroma: any complete table is allowed. All symbols
// that can occur have codes of one of few lengths.
HuffmanTable directTable() {
    // Categories 0 to 11, table K.3.
    return {{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}};
}

HuffmanTable runTable() {
    // Frequent pairs of run and category get short codes, all the others ten bits.
    HuffmanTable table;
    const std::vector<unsigned char> three{0x01, 0x02, 0x00};
    const std::vector<unsigned char> four{0x03, 0x11};
    const std::vector<unsigned char> five{0x04, 0x12, 0x21, 0x31};
    table.counts[2] = static_cast<unsigned char>(three.size());
    table.counts[3] = static_cast<unsigned char>(four.size());
    table.counts[4] = static_cast<unsigned char>(five.size());
    for (const auto* group : {&three, &four, &five}) {
        table.symbols.insert(table.symbols.end(), group->begin(), group->end());
    }
    for (int run = 0; run < 16; ++run) {
        for (int category = 0; category <= 10; ++category) {
            const auto symbol = static_cast<unsigned char>(run << 4 | category);
            const bool valid = category > 0 || run == 0 || run == 15;
            if (valid && std::find(table.symbols.begin(), table.symbols.end(), symbol) == table.symbols.end()) {
                table.symbols.push_back(symbol);
                ++table.counts[9];
            }
        }
    }
    return table;
}

struct Code {
    uint32_t bits = 0;
    int length = 0;
};

std::array<Code, 256> codesOf(const HuffmanTable& table) {
    std::array<Code, 256> codes{};
    uint32_t next = 0;
    std::size_t symbol = 0;
    for (int length = 1; length <= 16; ++length, next <<= 1U) {
        for (int i = 0; i < table.counts[static_cast<std::size_t>(length - 1)]; ++i) {
            codes[table.symbols[symbol++]] = {next++, length};
        }
    }
    return codes;
}

class JpegWriter {
public:
    explicit JpegWriter(std::vector<unsigned char>& output) : out(output) {}

    void byte(int value) { out.push_back(static_cast<unsigned char>(value)); }
    void word(std::size_t value) {
        byte(static_cast<int>(value >> 8U & 0xFFU));
        byte(static_cast<int>(value & 0xFFU));
    }
    void segment(int marker, std::size_t length) {
        byte(0xFF);
        byte(marker);
        word(length + 2);
    }
    void bits(uint32_t value, int count) {
        waiting = waiting << static_cast<unsigned>(count) | (value & ((1U << static_cast<unsigned>(count)) - 1U));
        for (filled += count; filled >= 8; filled -= 8) {
            const auto next = static_cast<int>(waiting >> static_cast<unsigned>(filled - 8) & 0xFFU);
            byte(next);
            if (next == 0xFF) {
                byte(0);
            }
        }
    }
    void flush() {
        if (filled > 0) {
            bits(0x7F, 8 - filled);
        }
    }

private:
    std::vector<unsigned char>& out;
    uint64_t waiting = 0;
    int filled = 0;
};

/// The cosine transform of T.81, A.3.3, rows and then columns.
void transform(Block& block) {
    static const auto cosines = [] {
        std::array<float, kBlock> table{};
        for (int u = 0; u < kSide; ++u) {
            for (int x = 0; x < kSide; ++x) {
                const double scale = u == 0 ? std::sqrt(0.125) : 0.5;
                table[static_cast<std::size_t>(kSide * u + x)] =
                    static_cast<float>(scale * std::cos((2 * x + 1) * u * std::numbers::pi / 16.0));
            }
        }
        return table;
    }();
    const auto pass = [](const Block& from, Block& to) {
        for (std::size_t row = 0; row < kSide; ++row) {
            for (std::size_t u = 0; u < kSide; ++u) {
                float sum = 0.0F;
                for (std::size_t x = 0; x < kSide; ++x) {
                    sum += from[kSide * row + x] * cosines[kSide * u + x];
                }
                to[kSide * u + row] = sum;  // transposed, so that twice is both directions
            }
        }
    };
    Block turned;
    pass(block, turned);
    pass(turned, block);
}

int categoryOf(int value) {
    int category = 0;
    for (int rest = std::abs(value); rest > 0; rest >>= 1) {
        ++category;
    }
    return category;
}

class ComponentCoder {
public:
    ComponentCoder(const std::array<unsigned char, kBlock>& quantiser, JpegWriter& output)
        : steps(quantiser), writer(output) {}

    void code(Block& block, const std::array<Code, 256>& direct, const std::array<Code, 256>& runs) {
        transform(block);
        std::array<int, kBlock> values{};
        for (std::size_t i = 0; i < kBlock; ++i) {
            values[i] = static_cast<int>(std::lround(block[kZigzag[i]] / static_cast<float>(steps[kZigzag[i]])));
        }
        put(direct, 0, values[0] - previous);
        previous = values[0];
        int run = 0;
        for (std::size_t i = 1; i < kBlock; ++i) {
            if (values[i] == 0) {
                ++run;
                continue;
            }
            for (; run > 15; run -= 16) {
                writer.bits(runs[0xF0].bits, runs[0xF0].length);
            }
            put(runs, run, values[i]);
            run = 0;
        }
        if (run > 0) {
            writer.bits(runs[0].bits, runs[0].length);
        }
    }

private:
    void put(const std::array<Code, 256>& codes, int run, int value) {
        const int category = categoryOf(value);
        const Code& code = codes[static_cast<std::size_t>(run << 4 | category)];
        writer.bits(code.bits, code.length);
        if (category > 0) {
            writer.bits(static_cast<uint32_t>(value < 0 ? value - 1 : value), category);
        }
    }

    const std::array<unsigned char, kBlock>& steps;
    JpegWriter& writer;
    int previous = 0;
};

void writeTable(JpegWriter& writer, int id, const HuffmanTable& table) {
    writer.segment(0xC4, 17 + table.symbols.size());
    writer.byte(id);
    for (const unsigned char count : table.counts) {
        writer.byte(count);
    }
    for (const unsigned char symbol : table.symbols) {
        writer.byte(symbol);
    }
}

void writeHead(JpegWriter& writer, const ImageView& image, int components) {
    writer.byte(0xFF);
    writer.byte(0xD8);
    writer.segment(0xE0, 14);
    // "JFIF", version 1.1, no unit, square pixels, no thumbnail.
    for (const int value : {0x4A, 0x46, 0x49, 0x46, 0, 1, 1, 0, 0, 1, 0, 1, 0, 0}) {
        writer.byte(value);
    }
    for (int id = 0; id < 2; ++id) {
        writer.segment(0xDB, 1 + kBlock);
        writer.byte(id);
        for (const unsigned char place : kZigzag) {
            writer.byte(id == 0 ? kLumaSteps[place] : kChromaSteps[place]);
        }
    }
    writer.segment(0xC0, 6 + 3 * static_cast<std::size_t>(components));
    writer.byte(8);
    writer.word(image.height);
    writer.word(image.width);
    writer.byte(components);
    for (int i = 1; i <= components; ++i) {
        writer.byte(i);
        writer.byte(0x11);
        writer.byte(i == 1 ? 0 : 1);
    }
    writeTable(writer, 0x00, directTable());
    writeTable(writer, 0x10, runTable());
    writer.segment(0xDA, 4 + 2 * static_cast<std::size_t>(components));
    writer.byte(components);
    for (int i = 1; i <= components; ++i) {
        writer.byte(i);
        writer.byte(0x00);
    }
    for (const int value : {0, 63, 0}) {
        writer.byte(value);
    }
}

/// Eight by eight pixels from a corner, the last row and column repeated, as full-range BT.601 about 0.
void readBlocks(const ImageView& image, std::size_t left, std::size_t top, std::array<Block, 3>& blocks) {
    for (std::size_t i = 0; i < kBlock; ++i) {
        const std::size_t x = std::min(left + i % kSide, image.width - 1);
        const std::size_t y = std::min(top + i / kSide, image.height - 1);
        const unsigned char* row = image.pixels + y * image.step;
        if (image.gray) {
            blocks[0][i] = static_cast<float>(row[x]) - 128.0F;
            continue;
        }
        const float blue = row[4 * x];
        const float green = row[4 * x + 1];
        const float red = row[4 * x + 2];
        const float luma = 0.299F * red + 0.587F * green + 0.114F * blue;
        blocks[0][i] = luma - 128.0F;
        blocks[1][i] = (blue - luma) / 1.772F;
        blocks[2][i] = (red - luma) / 1.402F;
    }
}

}  // namespace

ImageView viewOf(const oru::Mat& image) {
    return {image.getPtr<unsigned char>(oru::CPU), image.getWidth(), image.getHeight(), image.getStepBytes(oru::CPU),
            image.getDataType() == oru::U8_C1};
}

std::vector<unsigned char> encodeJpeg(const ImageView& image) {
    std::vector<unsigned char> out;
    JpegWriter writer(out);
    const std::size_t components = image.gray ? 1 : 3;
    writeHead(writer, image, static_cast<int>(components));
    static const auto direct = codesOf(directTable());
    static const auto runs = codesOf(runTable());
    std::array coders{ComponentCoder(kLumaSteps, writer), ComponentCoder(kChromaSteps, writer),
                      ComponentCoder(kChromaSteps, writer)};
    std::array<Block, 3> blocks;
    for (std::size_t top = 0; top < image.height; top += kSide) {
        for (std::size_t left = 0; left < image.width; left += kSide) {
            readBlocks(image, left, top, blocks);
            for (std::size_t i = 0; i < components; ++i) {
                coders[i].code(blocks[i], direct, runs);
            }
        }
    }
    writer.flush();
    writer.byte(0xFF);
    writer.byte(0xD9);
    return out;
}

bool PictureFile::write(const std::filesystem::path& name, const ImageView& image, std::string& error) {
    std::filesystem::path path = name;
    path += format == PictureFormat::PNG ? ".png" : ".jpg";
    if (format == PictureFormat::PNG) {
        return png.write(path, image, error);
    }
    const std::vector<unsigned char> bytes = encodeJpeg(image);
    std::FILE* file = std::fopen(path.c_str(), "wb");
    const bool written = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const int reason = errno;
    if (file == nullptr || std::fclose(file) != 0 || !written) {
        error = fmt::format("cannot write {}: {}", path.string(), std::strerror(written ? errno : reason));
        std::remove(path.c_str());
        return false;
    }
    return true;
}

}  // namespace koruone
