#include "bench/pixels/camera_loop.hpp"

#include <cstring>
#include <filesystem>
#include <optional>

#include "backends/rectifier/cpu/cpu_rectifier.hpp"
#include "bench/pixels/measure.hpp"
#include "bench/pixels/peers.hpp"
#include "compose/built_in_factory.hpp"
#include "oru_koruone/CameraOneImpl.hpp"

namespace oru::bench {
namespace {

/// What a rectifier is given, for whoever wants to do its work another way.
struct Overheard {
    CameraParameters raw;
    CameraParameters rectified;
    const unsigned char* pixels = nullptr;
};

class OverheardRectifier final : public MonoRectifier {
public:
    OverheardRectifier(GpuRuntime& gpu, Overheard& record) : own(makeCpuRectifier(gpu, 1)), overheard(record) {}

    CameraParameters setup(CameraParameters& raw, CUstream_st* stream, bool flipped) override {
        overheard.raw = raw;
        return overheard.rectified = own->setup(raw, stream, flipped);
    }
    void process(Mat& image, CUstream_st* stream) override {
        overheard.pixels = image.getPtr<unsigned char>(CPU);
        own->process(image, stream);
    }
    int getView(VIEW view, Resolution size, Mat& target, MEM memory, CUstream_st* stream) override {
        return own->getView(view, size, target, memory, stream);
    }
    void free() override { own->free(); }

private:
    std::unique_ptr<MonoRectifier> own;
    Overheard& overheard;
};

/// The real collaborators, with a rectifier that is listened to.
class OverheardFactory final : public CollaboratorFactory {
public:
    explicit OverheardFactory(std::shared_ptr<CollaboratorFactory> collaborators) : real(std::move(collaborators)) {}

    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE type) override { return real->makeGrabber(type); }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole role) override { return real->makeRlxVideo(role); }
    std::unique_ptr<UDPInput> makeStreamInput(bool verbose) override { return real->makeStreamInput(verbose); }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE mode, bool verbose) override {
        return real->makeStreamOutput(mode, verbose);
    }
    std::unique_ptr<MonoRectifier> makeRectifier() override {
        return std::make_unique<OverheardRectifier>(real->gpu(), overheard);
    }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override { return real->makePlaybackRecorder(); }
    DeviceDirectory& devices() override { return real->devices(); }
    CalibrationSource& calibration() override { return real->calibration(); }
    GpuRuntime& gpu() override { return real->gpu(); }
    Clock& clock() override { return real->clock(); }

    Overheard overheard;

private:
    std::shared_ptr<CollaboratorFactory> real;
};

}  // namespace

LoopCost measureCameraLoop(int frames) {
    registerBuiltInFactory();
    const auto factory = std::make_shared<OverheardFactory>(CollaboratorFactory::processDefault());
    const std::string settings = (std::filesystem::temp_directory_path() / "oru_pixel_bench/").string();
    std::filesystem::create_directories(settings);
    CameraOneImpl camera(factory);
    InitParametersOne parameters;
    parameters.requested_resolution = HD1200;
    parameters.requested_fps = 30;
    parameters.settings_path = settings.c_str();
    if (camera.open(parameters) != SUCCESS) {
        return {0, 0, 0};
    }
    const CameraParameters& raw = factory->overheard.raw;
    const CameraParameters& rectified = factory->overheard.rectified;
    const ViewKind kind{"rectified_bgra", true, false, false};
    setPeerThreads(1);
    const Peer opencv = peersOf(kind, raw, {rectified.fx, rectified.fy, rectified.cx, rectified.cy}).front();
    const rectifier::Size size{static_cast<int>(raw.image_size.width), static_cast<int>(raw.image_size.height)};
    std::vector<unsigned char> copied(static_cast<std::size_t>(raw.image_size.area() * 2));
    std::vector<unsigned char> drawn(kind.viewBytes(size));
    Mat view;
    Samples ours(1);
    Samples theirs(1);
    int grabbed = 0;
    for (int attempt = 0; attempt < 2 * frames && grabbed < frames; ++attempt) {
        ERROR_CODE result = SUCCESS;
        ours.time([&] {
            result = camera.grab();
            (void)camera.retrieveImage(view, RECTIFIED, CPU, {});
        });
        if (result != SUCCESS) {
            continue;
        }
        ++grabbed;
        theirs.time([&] {
            std::memcpy(copied.data(), factory->overheard.pixels, copied.size());
            opencv.draw(copied.data(), drawn.data());
        });
    }
    (void)camera.close();
    return grabbed == 0 ? LoopCost{0, 0, 0} : LoopCost{grabbed, ours.median(), theirs.median()};
}

}  // namespace oru::bench
