// What the camera itself costs, with collaborators that only answer: grab() beside the copy of its frame, a sensor
// query, a suppressed message, and open() to the first frame of a virtual camera.

#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "compose/built_in_factory.hpp"
#include "doubles/ScriptedFactory.hpp"
#include "logging/log.hpp"
#include "oru_koruone/CameraOneImpl.hpp"

namespace {

constexpr std::size_t kFrameBytes = std::size_t{1920} * 1200 * 2;

/// A settings directory with the calibration of the camera, for the life of the process.
std::string settingsDirectory() {
    static const std::string directory = [] {
        std::string made = std::filesystem::temp_directory_path() / "oru_camera_bench/";
        std::filesystem::create_directories(made);
        std::ofstream(made + "SN30010001.conf")
            << "[MISC]\nSensor_ID=1\n[CAM_fhd1200]\nfx=1000\nfy=1000\ncx=960\ncy=600\n[DISTO]\nk1=0\n";
        return made;
    }();
    return directory;
}

std::unique_ptr<oru::CameraOneImpl> openQuietCamera() {
    const auto factory = oru::doubles::makeQuietFactory();
    (void)oru::CollaboratorFactory::setProcessDefault(factory);
    auto camera = std::make_unique<oru::CameraOneImpl>(factory);
    oru::InitParametersOne parameters;
    parameters.settings_path = settingsDirectory().c_str();
    if (camera->open(parameters) != oru::SUCCESS) {
        std::abort();
    }
    return camera;
}

void copyFrame(benchmark::State& state) {
    const std::vector<unsigned char> from(kFrameBytes, 1);
    std::vector<unsigned char> to(kFrameBytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), kFrameBytes);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(copyFrame)->Unit(benchmark::kMicrosecond);

void grab(benchmark::State& state) {
    const auto camera = openQuietCamera();
    for (auto _ : state) {
        if (camera->grab() != oru::SUCCESS) {
            state.SkipWithError("grab failed");
        }
    }
}
BENCHMARK(grab)->Unit(benchmark::kMicrosecond);

void getSensorsData(benchmark::State& state) {
    const auto camera = openQuietCamera();
    (void)camera->grab();
    oru::SensorsData data;
    for (auto _ : state) {
        benchmark::DoNotOptimize(camera->getSensorsData(data, oru::IMAGE));
    }
}
BENCHMARK(getSensorsData);

void suppressedMessage(benchmark::State& state) {
    int value = 0;
    for (auto _ : state) {
        ORU_LOG(Debug, "{} frame {}", "[KORU]", ++value);
    }
    benchmark::DoNotOptimize(value);
}
BENCHMARK(suppressedMessage);

void openToFirstFrame(benchmark::State& state) {
    oru::registerBuiltInFactory();
    (void)oru::CollaboratorFactory::setProcessDefault(nullptr);
    (void)oru::KoruLogger::get_instance().set_logger(oru::MAIN, nullptr);
    const std::string settings = std::filesystem::temp_directory_path() / "oru_camera_bench_virtual/";
    std::filesystem::create_directories(settings);
    for (auto _ : state) {
        oru::CameraOneImpl camera;
        oru::InitParametersOne parameters;
        parameters.settings_path = settings.c_str();
        if (camera.open(parameters) != oru::SUCCESS || camera.grab() != oru::SUCCESS) {
            state.SkipWithError("no frame");
        }
    }
}
BENCHMARK(openToFirstFrame)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
