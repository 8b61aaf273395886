// One program for the three inputs:  any_input  |  any_input FILE.rlx2  |  any_input HOST PORT
#include <cstdio>
#include <cstdlib>

#include "oru/CameraOne.hpp"

int main(int count, char** arguments) {
    oru::InitParametersOne parameters;
    if (count == 2) {
        parameters.input.setFromFile(arguments[1]);
    } else if (count == 3) {
        parameters.input.setFromStream(arguments[1], static_cast<unsigned short>(std::atoi(arguments[2])));
    }

    oru::CameraOne camera;
    const oru::ERROR_CODE opened = camera.open(parameters);
    if (opened != oru::SUCCESS) {
        std::fprintf(stderr, "cannot open the input: %s\n", oru::toString(opened).c_str());
        return 1;
    }
    oru::Mat image;
    int frames = 0;
    oru::ERROR_CODE result = oru::SUCCESS;
    while (frames < 60 && (result = camera.grab()) == oru::SUCCESS) {
        if (camera.retrieveImage(image, oru::RECTIFIED_GRAY) != oru::SUCCESS) {
            return 1;
        }
        ++frames;
    }
    const oru::FrameCounters counters = camera.getFrameCounters();
    std::printf("%d frames, %.1f fps, %llu lost; %s\n", frames, static_cast<double>(camera.getCurrentFPS()),
                static_cast<unsigned long long>(counters.lost()), oru::toString(result).c_str());
    return result == oru::SUCCESS || result == oru::END_OF_INPUT ? 0 : 1;
}
