// Records the computed scene in a process of its own, for tests that end it or limit it.
//   rlx_record_helper disk FILE MODE LIMIT   files cannot grow beyond LIMIT bytes; exit 0 when writing failed for it
//   rlx_record_helper endless FILE MODE      at 60 Hz until it is killed; writes one "+" for each frame offered

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "backends/rlx/CameraRig.hpp"

namespace {

using oru::rlx_test::Scene;

int recordToFullDisk(const std::string& path, const Scene& scene, rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    oru::rlx_test::CalibrationKeeper calibration;
    const auto recorder = oru::makeRlxVideo(calibration);
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0 ||
        recorder->create(path.c_str(), scene.header()) != oru::rlxrw::RLX_CREATED) {
        return 1;
    }
    int result = 0;
    for (uint64_t number = 0; result == 0 && number < 1000; ++number) {
        result = oru::rlx_test::writeSceneFrame(*recorder, scene, number);
    }
    recorder->close();
    return result == 1 ? 0 : 1;
}

int recordEndlessly(const std::string& path, const Scene& scene) {
    const std::unique_ptr<oru::Clock> clock = oru::makeSystemClock();
    oru::rlx_test::CameraRig camera(scene, *clock);
    if (camera.startRecording(path) != oru::SUCCESS) {
        return 1;
    }
    for (uint64_t number = 0; ::write(STDOUT_FILENO, "+", 1) == 1; ++number) {
        camera.grabLive(number);
        ::usleep(16'000);
    }
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 4) {
        return 2;
    }
    const std::string path = arguments[2];
    const Scene scene{.fps = 60.0F, .mode = static_cast<oru::RLX_COMPRESSION_MODE>(std::atoi(arguments[3]))};
    return count > 4 ? recordToFullDisk(path, scene, static_cast<rlim_t>(std::atol(arguments[4])))
                     : recordEndlessly(path, scene);
}
