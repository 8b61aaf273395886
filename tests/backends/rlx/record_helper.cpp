// Records the computed scene in a process of its own, for tests that end it or limit it.
//   rlx_record_helper disk FILE MODE LIMIT   files cannot grow beyond LIMIT bytes; exit 0 when writing failed for it
//   rlx_record_helper endless FILE MODE      at 60 Hz until it is killed; writes one "+" for each frame offered
//   rlx_record_helper unlocked FILE MODE     records and plays where no file can be locked; exit 0 when both went,
//                                            77 when this machine cannot deny the locks

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
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

/// As a file system without locks answers.
bool denyLocks() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_flock, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(program), program};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

int recordWithoutLocks(const std::string& path, const Scene& scene) {
    if (!denyLocks()) {
        return 77;
    }
    oru::rlx_test::record(path, scene, 3);
    return oru::rlx_test::play(path, scene).times.size() == 3 ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 4) {
        return 2;
    }
    const std::string path = arguments[2];
    const Scene scene{.fps = 60.0F, .mode = static_cast<oru::RLX_COMPRESSION_MODE>(std::atoi(arguments[3]))};
    if (arguments[1] == std::string("unlocked")) {
        return recordWithoutLocks(path, scene);
    }
    return count > 4 ? recordToFullDisk(path, scene, static_cast<rlim_t>(std::atol(arguments[4])))
                     : recordEndlessly(path, scene);
}
