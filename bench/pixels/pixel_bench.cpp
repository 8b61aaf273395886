// Every view beside what a user would write with public libraries, on the same frames, in turns, and each pixel of it
// against the exact image. Prints a table; writes the rows as JSON. Exit 1 when an image is wrong.
//
// pixel_bench [--rounds N] [--sizes 1920x1200,3840x2160] [--json FILE] [--no-camera]

#include <fmt/core.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "backends/rectifier/cpu/FastRenderer.hpp"
#include "backends/rectifier/reference/reference_view.hpp"
#include "bench/pixels/bandwidth.hpp"
#include "bench/pixels/camera_loop.hpp"
#include "bench/pixels/measure.hpp"
#include "bench/pixels/peers.hpp"
#include "bench/pixels/scene.hpp"
#include "utils/yuv.hpp"

namespace oru::bench {
namespace {

using rectifier::FastRenderer;
using rectifier::RowPool;
using rectifier::Size;
using rectifier::SourcePosition;
using rectifier::ViewTarget;
using rectifier::YuyvFrame;

constexpr std::size_t kFrames = 6;   // more than the caches hold
constexpr std::size_t kTargets = 3;  // likewise
constexpr double kLargestError = 2;
constexpr double kLargestMean = 0.30;

struct Options {
    int rounds = 21;
    std::vector<Size> sizes{{1920, 1200}, {3840, 2160}};
    std::string json;
    bool camera = true;
};

struct Row {
    std::string name;
    Size size;
    int threads;
    double ours_ms;
    std::string peer;
    double peer_ms;
    double limit_ms;
    double max_error;
    double mean_error;
};

struct AlignedBytes {
    explicit AlignedBytes(std::size_t bytes)
        : memory(static_cast<unsigned char*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64)), &std::free) {
        std::memset(memory.get(), 0, bytes);
    }
    [[nodiscard]] unsigned char* data() const { return memory.get(); }
    std::unique_ptr<unsigned char, decltype(&std::free)> memory;
};

const std::vector<ViewKind>& viewKinds() {
    static const std::vector<ViewKind> kinds = [] {
        std::vector<ViewKind> all;
        for (const bool half : {false, true}) {
            for (const bool rectified : {true, false}) {
                for (const bool gray : {false, true}) {
                    const std::string name = fmt::format("{}_{}{}", rectified ? "rectified" : "unrectified",
                                                         gray ? "gray" : "bgra", half ? "_half" : "");
                    all.push_back({name, rectified, gray, half});
                }
            }
        }
        return all;
    }();
    return kinds;
}

YuyvFrame frameOf(const std::vector<unsigned char>& packed, Size size) {
    return {packed.data(), static_cast<std::size_t>(size.width) * 2, size.width, size.height, rectifier::kChromaSiting};
}

ViewTarget targetOf(unsigned char* pixels, const ViewKind& kind, Size source) {
    const Size size = kind.viewSize(source);
    return {pixels, static_cast<std::size_t>(size.width) * (kind.gray ? 1 : 4), size.width, size.height, kind.gray};
}

struct Errors {
    double largest = 0;
    double mean = 0;
};

/// Of a drawn view against the same view before rounding, every pixel of it.
Errors errorsOf(const ViewTarget& drawn, const YuyvFrame& frame, const rectifier::ViewMap* map) {
    Errors errors;
    double sum = 0;
    const auto look = [&](double exact, unsigned char level) {
        const double error = std::abs(exact - level);
        errors.largest = std::max(errors.largest, error);
        sum += error;
    };
    for (int v = 0; v < drawn.height; ++v) {
        const unsigned char* pixel = drawn.row(v);
        for (int u = 0; u < drawn.width; ++u, pixel += drawn.pixelBytes()) {
            const SourcePosition at =
                map != nullptr ? map->sampleAt(u, v) : SourcePosition{static_cast<float>(u), static_cast<float>(v)};
            if (drawn.gray) {
                look(rectifier::sampleLuma(frame, at), pixel[0]);
                continue;
            }
            const rectifier::Bgr exact = rectifier::toBgr(rectifier::sampleYuv(frame, at));
            look(exact.b, pixel[0]);
            look(exact.g, pixel[1]);
            look(exact.r, pixel[2]);
        }
    }
    errors.mean = sum / (static_cast<double>(drawn.width) * drawn.height * (drawn.gray ? 1 : 3));
    return errors;
}

/// The worst over all lenses.
Errors accuracyOf(const ViewKind& kind, Size source, const std::vector<unsigned char>& packed) {
    RowPool pool(0);
    Errors worst;
    const AlignedBytes out(kind.viewBytes(source));
    const ViewTarget target = targetOf(out.data(), kind, source);
    for (const BenchLens& lens : allLenses()) {
        const rectifier::ViewGeometry geometry = geometryOf(cameraOf(lens, source));
        const Size view = kind.viewSize(source);
        const YuyvFrame frame = frameOf(packed, source);
        FastRenderer(geometry, view, pool).draw(frame, kind.rectified, target);
        const rectifier::Reducer reducer(source, view);
        std::vector<unsigned char> reduced(reducer.bytes());
        std::vector<std::uint16_t> sums(reducer.scratchSize());
        YuyvFrame image = frame;
        if (kind.half) {
            reducer.reduceRows(frame, reduced.data(), 0, view.height, sums.data());
            image = {reduced.data(), reducer.step(), view.width, view.height,
                     reducer.chromaSiting(frame.chroma_siting)};
        }
        const rectifier::ViewMap map(geometry.lens, geometry.rectified, source, view, false);
        const Errors errors = errorsOf(target, image, kind.rectified ? &map : nullptr);
        worst.largest = std::max(worst.largest, errors.largest);
        worst.mean = std::max(worst.mean, errors.mean);
        if (!kind.rectified) {
            break;
        }
    }
    return worst;
}

void touchShared(RowPool& pool, const std::vector<unsigned char>& packed, unsigned char* out, std::size_t outBytes) {
    const std::size_t inPart = packed.size() / static_cast<std::size_t>(pool.threads()) / 4096 * 4096;
    const std::size_t outPart = outBytes / static_cast<std::size_t>(pool.threads()) / 64 * 64;
    pool.run(pool.threads(), 1, false, [&](int first, int, int) {
        const auto part = static_cast<std::size_t>(first);
        touchMemory(packed.data() + part * inPart, inPart, out + part * outPart, outPart);
    });
}

std::vector<Row> measure(const ViewKind& kind, Size size, int threads, int rounds,
                         const std::vector<std::vector<unsigned char>>& frames, const Errors& errors) {
    const CameraParameters camera = cameraOf(normalLens(), size);
    const rectifier::ViewGeometry geometry = geometryOf(camera);
    RowPool pool(threads - 1);
    FastRenderer renderer(geometry, kind.viewSize(size), pool);
    setPeerThreads(threads);
    std::vector<Peer> peers = peersOf(kind, camera, geometry.rectified);
    if (threads > 1) {
        peers.resize(1);  // libyuv leaves threads to its caller
    }
    std::vector<AlignedBytes> targets;
    for (std::size_t i = 0; i < kTargets; ++i) {
        targets.emplace_back(kind.viewBytes(size));
    }
    Samples ours(threads);
    Samples limit(threads);
    std::vector<Samples> theirs(peers.size(), Samples(threads));
    std::size_t turn = 0;
    const auto next = [&] { return std::pair{&frames[turn % kFrames], targets[turn % kTargets].data()}; };
    for (int round = -2; round < rounds; ++round) {  // two to warm up
        if (round == 0) {
            ours = limit = Samples(threads);
            theirs.assign(peers.size(), Samples(threads));
        }
        auto [packed, out] = next();
        ours.time([&] { renderer.draw(frameOf(*packed, size), kind.rectified, targetOf(out, kind, size)); });
        for (std::size_t i = 0; i < peers.size(); ++i) {
            ++turn;
            std::tie(packed, out) = next();
            theirs[i].time([&] { peers[i].draw(packed->data(), out); });
        }
        ++turn;
        std::tie(packed, out) = next();
        limit.time([&] { touchShared(pool, *packed, out, kind.viewBytes(size)); });
        ++turn;
    }
    std::vector<Row> rows;
    for (std::size_t i = 0; i < peers.size(); ++i) {
        rows.push_back({kind.name, size, threads, ours.median(), peers[i].name, theirs[i].median(), limit.median(),
                        errors.largest, errors.mean});
    }
    return rows;
}

void print(const Row& row) {
    fmt::print("{:<22} {:>9} {:>2} {:>8.3f} {:>7} {:>8.3f} {:>6.2f} {:>8.3f} {:>5.0f}% {:>6.2f} {:>6.3f}\n", row.name,
               fmt::format("{}x{}", row.size.width, row.size.height), row.threads, row.ours_ms, row.peer, row.peer_ms,
               row.peer_ms / row.ours_ms, row.limit_ms, 100 * row.limit_ms / row.ours_ms, row.max_error,
               row.mean_error);
    std::fflush(stdout);
}

/// The conversions of recording and streaming; printed only.
void printConversions(Size size, int rounds, const std::vector<std::vector<unsigned char>>& frames) {
    const auto pixels = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    const auto width = static_cast<std::size_t>(size.width);
    const auto height = static_cast<std::size_t>(size.height);
    const AlignedBytes planes(2 * pixels);
    const AlignedBytes packed(2 * pixels);
    unsigned char* y = planes.data();
    Samples toOurs(1);
    Samples toTheirs(1);
    Samples fromOurs(1);
    Samples fromTheirs(1);
    for (int round = 0; round < rounds; ++round) {
        const auto& frame = frames[static_cast<std::size_t>(2 * round) % kFrames];
        const auto& other = frames[static_cast<std::size_t>(2 * round + 1) % kFrames];
        const YuvPlanes i420{y, y + pixels, y + pixels + pixels / 4, width, width / 2, width / 2};
        const ConstYuvPlanes i422{y, y + pixels, y + pixels + pixels / 2, width, width / 2, width / 2};
        toOurs.time([&] { yuyvToI420(frame.data(), 2 * width, i420, width, height); });
        toTheirs.time([&] { peerToI420(other.data(), y, size.width, size.height); });
        fromOurs.time([&] { i422ToYuyv(i422, packed.data(), 2 * width, width, height); });
        fromTheirs.time([&] { peerFromI422(y, packed.data(), size.width, size.height); });
    }
    const auto line = [&](const char* name, const Samples& ours, const Samples& theirs) {
        fmt::print("{:<22} {:>9}  1 {:>8.3f} {:>7} {:>8.3f} {:>6.2f}\n", name,
                   fmt::format("{}x{}", size.width, size.height), ours.median(), "libyuv", theirs.median(),
                   theirs.median() / ours.median());
    };
    line("yuyv_to_i420", toOurs, toTheirs);
    line("i422_to_yuyv", fromOurs, fromTheirs);
}

bool writeJson(const std::string& path, const std::vector<Row>& rows) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    fmt::print(file, "[\n");
    for (const Row& row : rows) {
        fmt::print(file,
                   "  {{\"name\": \"{}\", \"size\": \"{}x{}\", \"threads\": {}, \"ours_ms\": {:.4f}, \"peer\": \"{}\", "
                   "\"peer_ms\": {:.4f}, \"ratio\": {:.3f}, \"limit_ms\": {:.4f}, \"fraction_of_limit\": {:.3f}, "
                   "\"max_error\": {:.3f}, \"mean_error\": {:.4f}}}{}\n",
                   row.name, row.size.width, row.size.height, row.threads, row.ours_ms, row.peer, row.peer_ms,
                   row.peer_ms / row.ours_ms, row.limit_ms, row.limit_ms / row.ours_ms, row.max_error, row.mean_error,
                   &row == &rows.back() ? "" : ",");
    }
    fmt::print(file, "]\n");
    return std::fclose(file) == 0;
}

std::vector<Size> parseSizes(const std::string& text) {
    std::vector<Size> sizes;
    Size size{};
    int used = 0;
    for (const char* at = text.c_str(); std::sscanf(at, "%dx%d%n", &size.width, &size.height, &used) == 2;) {
        sizes.push_back(size);
        at += used;
        at += *at == ',' ? 1 : 0;
    }
    return sizes;
}

bool parse(int count, char** arguments, Options& options) {
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        const bool hasValue = i + 1 < count;
        if (name == "--no-camera") {
            options.camera = false;
        } else if (name == "--rounds" && hasValue) {
            options.rounds = std::max(1, std::atoi(arguments[++i]));
        } else if (name == "--json" && hasValue) {
            options.json = arguments[++i];
        } else if (name == "--sizes" && hasValue) {
            options.sizes = parseSizes(arguments[++i]);
        } else {
            return false;
        }
    }
    return !options.sizes.empty();
}

int run(const Options& options) {
    fmt::print("CPU time of one thread, wall time of two; medians of {} interleaved rounds in milliseconds\n",
               options.rounds);
    fmt::print("{:<22} {:>9} {:>2} {:>8} {:>7} {:>8} {:>6} {:>8} {:>6} {:>6} {:>6}\n", "view", "size", "t", "ours",
               "peer", "peer", "ratio", "limit", "of it", "max", "mean");
    std::vector<Row> rows;
    bool right = true;
    for (const Size size : options.sizes) {
        std::vector<std::vector<unsigned char>> frames;
        for (unsigned seed = 0; seed < kFrames; ++seed) {
            frames.push_back(packedScene(size, seed));
        }
        for (const ViewKind& kind : viewKinds()) {
            const Errors errors = accuracyOf(kind, size, frames.front());
            right = right && errors.largest <= kLargestError && errors.mean <= kLargestMean;
            for (const int threads : {1, 2}) {
                for (const Row& row : measure(kind, size, threads, options.rounds, frames, errors)) {
                    print(row);
                    rows.push_back(row);
                }
            }
        }
        printConversions(size, options.rounds, frames);
    }
    if (options.camera) {
        const LoopCost cost = measureCameraLoop(60);
        fmt::print(
            "grab() + retrieveImage, virtual camera 1920x1200, {} frames: {:.3f} ms CPU a frame, OpenCV {:.3f}, "
            "ratio {:.2f}\n",
            cost.frames, cost.ours_ms, cost.opencv_ms, cost.opencv_ms / cost.ours_ms);
    }
    if (!right) {
        fmt::print(stderr,
                   "pixel_bench: a view differs from the exact picture by more than {} levels, or {} in the "
                   "mean\n",
                   kLargestError, kLargestMean);
    }
    if (!options.json.empty() && !writeJson(options.json, rows)) {
        fmt::print(stderr, "pixel_bench: {} could not be written\n", options.json);
        return 1;
    }
    return right ? 0 : 1;
}

}  // namespace
}  // namespace oru::bench

int main(int count, char** arguments) {
    oru::bench::Options options;
    if (!oru::bench::parse(count, arguments, options)) {
        fmt::print(stderr, "usage: pixel_bench [--rounds N] [--sizes WxH,...] [--json FILE] [--no-camera]\n");
        return 2;
    }
    return oru::bench::run(options);
}
