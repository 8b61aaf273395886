#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "backends/virtual_bus/BusRig.hpp"

// Takes frames of camera 0 for so many seconds and says whether the source failed, for tests that stop and go on with a
// process from outside.

int main(int, char** arguments) {
    using std::chrono::steady_clock;
    oru::virtual_bus::BusRig rig;
    if (rig.open() != oru::SETUP_OK || !rig.takeFrame()) {
        return EXIT_FAILURE;
    }
    std::puts("started");
    std::fflush(stdout);
    const auto end = steady_clock::now() + std::chrono::seconds(std::atoi(arguments[1]));
    int failures = 0;
    oru::FrameStatus last = oru::NO_FRAME;
    while (steady_clock::now() < end || last != oru::NEW_FRAME) {
        last = rig.take();
        failures += last == oru::SOURCE_ERROR || last == oru::SOURCE_UNAVAILABLE ? 1 : 0;
        if (failures > 100) {
            break;
        }
    }
    std::puts(failures == 0 ? "every frame came" : "the source failed");
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
