#include "koruone/output/png_file.hpp"

#include <fmt/core.h>
#include <libdeflate.h>
#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>

namespace koruone {
namespace {

// Differences to the left collaborator and the fastest search: half the time of zlib's fastest at no more bytes, which
// lets one thread follow 30 images of 1920x1200 a second.
constexpr int kCompressionLevel = 1;
constexpr std::size_t kSourcePixel = 4;

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closer>;

// Instead of libpng's own, which print on standard error.
[[noreturn]] void onPngError(png_structp png, png_const_charp /*message*/) {
    png_longjmp(png, 1);
}
void onPngWarning(png_structp /*png*/, png_const_charp /*message*/) {}

/// libpng's two records, freed together.
struct Container {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, onPngError, onPngWarning);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);

    Container() = default;
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;
    ~Container() { png_destroy_write_struct(&png, &info); }
};

// libpng reports an error by a jump to here; nothing with a destructor may live in this function.
bool writeChunks(png_structp png, png_infop info, std::FILE* file, const ImageView& image, const unsigned char* data,
                 std::size_t size) {
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height), 8,
                 image.gray ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    constexpr png_byte kImageData[] = "IDAT";
    constexpr png_byte kImageEnd[] = "IEND";
    png_write_chunk(png, kImageData, data, size);
    png_write_chunk(png, kImageEnd, nullptr, 0);
    return true;
}

void filterGray(const unsigned char* from, std::size_t width, unsigned char* to) {
    unsigned char left = 0;
    for (std::size_t x = 0; x < width; ++x) {
        to[x] = static_cast<unsigned char>(from[x] - left);
        left = from[x];
    }
}

// Blue, green, red, unused becomes red, green, blue.
void filterColour(const unsigned char* from, std::size_t width, unsigned char* to) {
    constexpr unsigned char kBlack[kSourcePixel] = {};
    const unsigned char* left = kBlack;
    for (std::size_t x = 0; x < width; ++x, to += 3, left = from, from += kSourcePixel) {
        to[0] = static_cast<unsigned char>(from[2] - left[2]);
        to[1] = static_cast<unsigned char>(from[1] - left[1]);
        to[2] = static_cast<unsigned char>(from[0] - left[0]);
    }
}

}  // namespace

struct PngEncoder::Compressor {
    libdeflate_compressor* handle = libdeflate_alloc_compressor(kCompressionLevel);

    Compressor() = default;
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;
    ~Compressor() { libdeflate_free_compressor(handle); }
};

PngEncoder::PngEncoder() : compressor(std::make_unique<Compressor>()) {}
PngEncoder::~PngEncoder() = default;

bool PngEncoder::write(const std::filesystem::path& path, const ImageView& image, std::string& error) {
    errno = 0;
    filterRows(image);
    if (compress() && writeFile(path, image)) {
        return true;
    }
    const int reason = errno;
    error = fmt::format("cannot write {}: {}", path.string(),
                        reason != 0 ? std::strerror(reason) : "the picture cannot be encoded");
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) {  // never a device, which root could remove
        std::filesystem::remove(path, ignored);
    }
    return false;
}

void PngEncoder::filterRows(const ImageView& image) {
    const std::size_t row = 1 + image.width * (image.gray ? 1 : 3);
    filtered.resize(row * image.height);
    for (std::size_t y = 0; y < image.height; ++y) {
        unsigned char* to = filtered.data() + y * row;
        const unsigned char* from = image.pixels + y * image.step;
        *to = PNG_FILTER_VALUE_SUB;
        if (image.gray) {
            filterGray(from, image.width, to + 1);
        } else {
            filterColour(from, image.width, to + 1);
        }
    }
}

bool PngEncoder::compress() {
    if (compressor->handle == nullptr) {
        return false;
    }
    compressed.resize(libdeflate_zlib_compress_bound(compressor->handle, filtered.size()));
    compressedSize = libdeflate_zlib_compress(compressor->handle, filtered.data(), filtered.size(), compressed.data(),
                                              compressed.size());
    return compressedSize > 0;
}

bool PngEncoder::writeFile(const std::filesystem::path& path, const ImageView& image) const {
    File file(std::fopen(path.c_str(), "wb"));
    if (file == nullptr) {
        return false;
    }
    Container container;
    const bool written = container.info != nullptr && writeChunks(container.png, container.info, file.get(), image,
                                                                  compressed.data(), compressedSize);
    const int reason = errno;
    const bool closed = std::fclose(file.release()) == 0;
    if (!written) {
        errno = reason;
    }
    return written && closed;
}

}  // namespace koruone
