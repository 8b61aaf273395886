#include "backends/virtual_bus/footage/footage.hpp"

extern "C" {
#include <libavutil/frame.h>
}

#include <dirent.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "backends/virtual_bus/footage/euroc.hpp"
#include "backends/virtual_bus/footage/euroc_inertial.hpp"
#include "utils/text_file.hpp"

namespace oru::virtual_bus {
namespace {

constexpr std::size_t kMaxListBytes = std::size_t{128} << 20U;
constexpr std::size_t kMaxYamlBytes = 65'536;
constexpr std::size_t kMaxImages = 100'000;
constexpr double kDefaultImageFps = 30.0;
constexpr double kSecond = 1e9;
constexpr uint64_t kLongestLead = 10'000'000'000;  // of inertial samples before the first image

bool isDirectory(const std::string& path) {
    struct stat facts {};
    return ::stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

bool isImageName(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    static constexpr std::array<const char*, 9> kEndings{".png", ".jpg", ".jpeg", ".bmp", ".pgm",
                                                         ".ppm", ".tif", ".tiff", ".webp"};
    return std::any_of(kEndings.begin(), kEndings.end(), [&](const char* ending) { return name.ends_with(ending); });
}

/// The images of a folder by name, at a steady rate.
std::vector<ListedImage> listImages(const std::string& folder, double fps) {
    std::vector<ListedImage> images;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(folder.c_str()), ::closedir);
    if (directory == nullptr) {
        return images;
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        if (isImageName(entry->d_name) && images.size() < kMaxImages) {
            images.push_back({0, folder + "/" + entry->d_name});
        }
    }
    std::sort(images.begin(), images.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    for (std::size_t i = 0; i < images.size(); ++i) {
        images[i].time_ns = static_cast<uint64_t>(static_cast<double>(i) * kSecond / fps);
    }
    return images;
}

/// What a data set says, with the times of its images.
struct DataSet {
    std::string root;
    EurocCamera camera;
    std::vector<EurocImage> images;
    bool has_inertial = false;
    uint64_t origin_ns = 0;  // what is 0 on the camera's time axis

    [[nodiscard]] double fps() const {
        if (camera.rate_hz > 0.0 || images.size() < 2) {
            return camera.rate_hz > 0.0 ? camera.rate_hz : 20.0;
        }
        const auto span = static_cast<double>(images.back().time_ns - images.front().time_ns);
        return kSecond * static_cast<double>(images.size() - 1) / span;
    }
    [[nodiscard]] uint64_t span() const {
        return images.back().time_ns - origin_ns + static_cast<uint64_t>(kSecond / fps());
    }
};

std::string inertialPath(const std::string& root) {
    return root + "/imu0/data.csv";
}

/// The time of the first inertial sample at or after `earliest`.
bool firstSample(const std::string& root, uint64_t earliest, uint64_t& time) {
    std::ifstream file(inertialPath(root));
    std::string line;
    EurocSample sample;
    while (std::getline(file, line)) {
        if (parseEurocSample(line, sample) && sample.time_ns >= earliest) {
            time = sample.time_ns;
            return true;
        }
    }
    return false;
}

bool loadDataSet(const std::string& root, DataSet& set, std::string& error) {
    set.root = root;
    const PlainText yaml = readPlainText(root + "/cam0/sensor.yaml", kMaxYamlBytes);
    if (!yaml.defect.empty()) {
        error = "cam0/sensor.yaml: " + yaml.defect;
        return false;
    }
    if (!parseEurocCamera(yaml.text, set.camera, error)) {
        return false;
    }
    const PlainText inertial = readPlainText(root + "/imu0/sensor.yaml", kMaxYamlBytes);
    if (inertial.defect.empty() && !parseEurocImu(inertial.text, set.camera, error)) {
        error = "imu0/" + error;
        return false;
    }
    const PlainText list = readPlainText(root + "/cam0/data.csv", kMaxListBytes);
    if (!list.defect.empty()) {
        error = "cam0/data.csv: " + list.defect;
        return false;
    }
    if (!parseEurocImages(list.text, set.images, error)) {
        return false;
    }
    const uint64_t first = set.images.front().time_ns;
    uint64_t sample = 0;
    set.has_inertial = firstSample(root, first > kLongestLead ? first - kLongestLead : 0, sample);
    set.origin_ns = set.has_inertial ? std::min(first, sample) : first;
    return true;
}

bool firstImageSize(FootageDecoder& decoder, const std::string& path, FootageFacts& facts, std::string& error) {
    ImageFileFacts first;
    if (!decoder.probe(path, first, error)) {
        return false;
    }
    facts.width = first.width;
    facts.height = first.height;
    facts.fps = first.fps;
    return true;
}

bool probeDataSet(const std::string& root, FootageFacts& facts, std::string& error) {
    DataSet set;
    if (!loadDataSet(root, set, error)) {
        return false;
    }
    facts.width = set.camera.width;
    facts.height = set.camera.height;
    facts.fps = set.fps();
    facts.has_lens = true;
    facts.lens = set.camera.lens;
    facts.has_inertial = set.has_inertial;
    return true;
}

/// Plays a reader's images on the camera's time axis.
class FootageSource final : public ImageSource {
public:
    FootageSource(std::unique_ptr<FootageReader> reader, const FootageFacts& facts, bool loop, uint64_t lead, int width,
                  int height)
        : footageReader(std::move(reader)),
          footageFacts(facts),
          looping(loop),
          leadTime(lead),
          imageWidth(width),
          imageHeight(height),
          imageCover(coverOf(facts.width, facts.height, width, height)) {}

    bool next(uint64_t& moment) override {
        uint64_t time = 0;
        if (!footageReader->next(time)) {
            // A round without a single image would repeat for ever.
            if (!looping || !any || !footageReader->rewind() || !footageReader->next(time)) {
                return false;
            }
            roundStart += last + period() + leadTime;
            any = false;
        }
        last = time;
        moment = roundStart + leadTime + time;
        return true;
    }

    ImageResult draw(uint64_t /*moment*/, unsigned char* pixels, RowSink& sink) override {
        any = true;
        const unsigned char* scaled = footageReader->read();
        if (scaled == nullptr) {
            return ImageResult::FAILED;
        }
        const auto bytes = static_cast<std::size_t>(imageWidth) * 2;
        const auto scaledBytes = static_cast<std::size_t>(imageCover.scaled_width) * 2;
        scaled +=
            static_cast<std::size_t>(imageCover.top) * scaledBytes + static_cast<std::size_t>(imageCover.left) * 2;
        for (int row = 0; row < imageHeight; ++row) {
            std::memcpy(pixels + static_cast<std::size_t>(row) * bytes,
                        scaled + static_cast<std::size_t>(row) * scaledBytes, bytes);
        }
        sink.rows(pixels, 0, imageHeight);
        return ImageResult::DRAWN;
    }

    void skip() override {
        any = true;
        footageReader->skip();
    }

    [[nodiscard]] uint64_t period() const override { return static_cast<uint64_t>(kSecond / footageFacts.fps); }
    // Each image is worth waiting for, up to a second.
    [[nodiscard]] uint64_t patience() const override { return static_cast<uint64_t>(kSecond); }

private:
    std::unique_ptr<FootageReader> footageReader;
    FootageFacts footageFacts;
    bool looping;
    uint64_t leadTime;  // from the start of a round to its first image
    int imageWidth;
    int imageHeight;
    Cover imageCover;
    uint64_t roundStart = 0;
    uint64_t last = 0;
    bool any = false;
};

}  // namespace

bool probeFootage(FootageDecoder& decoder, const FootageSettings& settings, FootageFacts& facts, std::string& error) {
    facts = {};
    bool found = false;
    if (const std::string root = eurocRoot(settings.path); !root.empty()) {
        found = probeDataSet(root, facts, error);
    } else if (isDirectory(settings.path)) {
        const auto images = listImages(settings.path, kDefaultImageFps);
        error = "the folder holds no images";
        found = !images.empty() && firstImageSize(decoder, images.front().path, facts, error);
        facts.fps = kDefaultImageFps;
    } else {
        found = firstImageSize(decoder, settings.path, facts, error);
    }
    facts.fps = settings.fps > 0.0 ? settings.fps : std::clamp(facts.fps, 1.0, 240.0);
    return found;
}

Cover coverOf(int footageWidth, int footageHeight, int width, int height) {
    const double scale =
        std::max(static_cast<double>(width) / footageWidth, static_cast<double>(height) / footageHeight);
    Cover cover;
    cover.scaled_width = std::max(width, static_cast<int>(std::lround(footageWidth * scale / 2.0)) * 2);
    cover.scaled_height = std::max(height, static_cast<int>(std::lround(footageHeight * scale)));
    cover.left = (cover.scaled_width - width) / 4 * 2;
    cover.top = (cover.scaled_height - height) / 2;
    return cover;
}

Lens coveredLens(const Lens& lens, const FootageFacts& facts, int width, int height) {
    const Cover cover = coverOf(facts.width, facts.height, width, height);
    const double sx = static_cast<double>(cover.scaled_width) / facts.width;
    const double sy = static_cast<double>(cover.scaled_height) / facts.height;
    Lens result = lens;
    result.fx = lens.fx * sx;
    result.fy = lens.fy * sy;
    result.cx = (lens.cx + 0.5) * sx - 0.5 - cover.left;
    result.cy = (lens.cy + 0.5) * sy - 0.5 - cover.top;
    return result;
}

std::unique_ptr<ImageSource> openFootage(FootageDecoder& decoder, const FootageSettings& settings,
                                         const FootageFacts& facts, int width, int height, std::string& error) {
    const Cover cover = coverOf(facts.width, facts.height, width, height);
    const ImageScaling scaling{facts.width, facts.height, cover.scaled_width, cover.scaled_height};
    std::unique_ptr<FootageReader> reader;
    uint64_t lead = 0;
    if (const std::string root = eurocRoot(settings.path); !root.empty()) {
        DataSet set;
        if (!loadDataSet(root, set, error)) {
            return nullptr;
        }
        std::vector<ListedImage> images;
        for (std::size_t i = 0; i < set.images.size(); ++i) {
            const uint64_t time = settings.fps > 0.0
                                      ? static_cast<uint64_t>(static_cast<double>(i) * kSecond / settings.fps)
                                      : set.images[i].time_ns - set.images.front().time_ns;
            images.push_back({time, root + "/cam0/data/" + set.images[i].file});
        }
        lead = set.images.front().time_ns - set.origin_ns;
        reader = decoder.openImages(std::move(images), scaling, error);
    } else if (isDirectory(settings.path)) {
        reader = decoder.openImages(listImages(settings.path, facts.fps), scaling, error);
    } else {
        reader = decoder.openVideo(settings.path, settings.fps, scaling, error);
    }
    if (reader == nullptr) {
        return nullptr;
    }
    return std::make_unique<FootageSource>(std::move(reader), facts, settings.loop, lead, width, height);
}

std::unique_ptr<InertialSource> openFootageInertial(const FootageSettings& settings) {
    const std::string root = eurocRoot(settings.path);
    DataSet set;
    std::string error;
    if (root.empty() || !loadDataSet(root, set, error) || !set.has_inertial) {
        return nullptr;
    }
    return std::make_unique<EurocInertial>(inertialPath(root), set.camera, set.origin_ns,
                                           settings.loop ? set.span() : 0);
}

}  // namespace oru::virtual_bus
