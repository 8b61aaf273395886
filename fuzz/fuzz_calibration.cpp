#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "calibration/readers.hpp"
#include "oru/calibration.hpp"

namespace {

using oru::ConfManager;

/// A file in memory that the reader opens by name.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, std::size_t size) : descriptor(::memfd_create("calibration", MFD_CLOEXEC)) {
        if (descriptor < 0 || ::write(descriptor, data, size) != static_cast<ssize_t>(size)) {
            std::abort();
        }
    }
    ~MemoryFile() { ::close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};

void readEverything(ConfManager& conf) {
    for (const char* section : {"CAM_fhd", "CAM_fhd1200", "CAM_svga", "CAM_qhdplus", "CAM_4k"}) {
        oru::CameraParameters params = oru::readCamera(section, conf);
        oru::readCameraFullDisto("DISTO", conf, params);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const MemoryFile file(data, size);
    ConfManager conf;
    conf.load(file.path());
    readEverything(conf);
    conf.load(file.path());
    readEverything(conf);

    const std::string text(reinterpret_cast<const char*>(data), size);
    const bool isWhole = oru::calibrationDefect(text, 7, oru::Completeness::UNKNOWN).empty();
    const bool isSound = oru::calibrationDefect(text, 7, oru::Completeness::KNOWN).empty();
    // What is stored must be what the camera can read.
    const float family = conf.getValue("MISC:Sensor_ID", 0.0F);
    if ((isWhole && !isSound) || (isSound && !(conf.is_open && family >= 1.0F && family < 3.0F))) {
        std::abort();
    }
    return 0;
}
