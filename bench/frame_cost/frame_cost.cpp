// One measurement of what a frame costs, through the public face alone, so that any two builds of the library can be
// compared: bench/guard runs this program of both in turns. Prints "NAME MICROSECONDS" a line, the processor time of
// the whole process for one frame.
//
// frame_cost make FILE      records the frames that the others play, from the virtual camera
// frame_cost run FILE PORT  measures

#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "oru/CameraOne.hpp"

namespace {

constexpr int kFrames = 60;
constexpr int kViewRounds = 4;

[[noreturn]] void fail(const char* what, oru::ERROR_CODE code) {
    std::fprintf(stderr, "frame_cost: %s: %s\n", what, oru::toString(code).c_str());
    std::exit(1);
}

void expect(oru::ERROR_CODE code, const char* what) {
    if (code != oru::SUCCESS) {
        fail(what, code);
    }
}

double processorMicroseconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto microseconds = [](const timeval& time) {
        return 1e6 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec);
    };
    return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

void print(const char* name, double microseconds) {
    std::printf("%s %.1f\n", name, microseconds);
}

void play(oru::CameraOne& camera, const char* file, bool realTime) {
    oru::InitParametersOne parameters;
    parameters.input.setFromFile(file);
    parameters.rlx_real_time = realTime;
    expect(camera.open(parameters), "playing");
}

void make(const char* file) {
    oru::InitParametersOne parameters;
    parameters.requested_resolution = oru::HD1200;
    parameters.requested_fps = 30;
    oru::RecordingParameters recording;
    recording.video_filename = file;
    recording.compression_mode = oru::RLX_RAW;
    recording.overwrite = true;
    oru::CameraOne camera;
    expect(camera.open(parameters), "opening the virtual camera");
    expect(camera.enableRecording(recording), "recording");
    for (int frame = 0; frame < kFrames; ++frame) {
        expect(camera.grab(), "grab");
    }
}

/// What `eachFrame` costs on top of nothing: the play of the whole file, with the reader's own threads.
template <class EachFrame>
double costOfPlay(const char* file, EachFrame eachFrame) {
    oru::CameraOne camera;
    play(camera, file, false);
    eachFrame(camera, true);
    const double begin = processorMicroseconds();
    int frames = 0;
    while (camera.grab() == oru::SUCCESS) {
        eachFrame(camera, false);
        ++frames;
    }
    if (frames == 0) {
        fail("no frame played", oru::FAILURE);
    }
    return (processorMicroseconds() - begin) / frames;
}

void measureGrab(const char* file) {
    print("grab", costOfPlay(file, [](oru::CameraOne&, bool) {}));
}

/// Drawing alone: each view several times from a frame that is there.
void measureViews(const char* file) {
    struct Kind {
        const char* name;
        oru::VIEW view;
        oru::Resolution size;
    };
    constexpr Kind kKinds[] = {{"rectified", oru::RECTIFIED, {0, 0}},
                               {"rectified_gray", oru::RECTIFIED_GRAY, {0, 0}},
                               {"unrectified", oru::UNRECTIFIED, {0, 0}},
                               {"rectified_half", oru::RECTIFIED, {960, 600}}};
    for (const Kind& kind : kKinds) {
        oru::CameraOne camera;
        play(camera, file, false);
        oru::Mat view;
        double sum = 0.0;
        for (int frame = 0; frame < 12; ++frame) {
            expect(camera.grab(), "grab");
            expect(camera.retrieveImage(view, kind.view, oru::CPU, kind.size), "view");
            const double begin = processorMicroseconds();
            for (int round = 0; round < kViewRounds; ++round) {
                expect(camera.retrieveImage(view, kind.view, oru::CPU, kind.size), "view");
            }
            sum += processorMicroseconds() - begin;
        }
        print(kind.name, sum / (12 * kViewRounds));
    }
}

void measureRecording(const char* file) {
    struct Mode {
        const char* name;
        oru::RLX_COMPRESSION_MODE mode;
    };
    const std::string target = std::string(file) + ".copy.rlx2";
    for (const Mode mode : {Mode{"record_raw", oru::RLX_RAW}, Mode{"record_lossless", oru::RLX_LOSSLESS}}) {
        oru::RecordingParameters recording;
        recording.video_filename = target.c_str();
        recording.compression_mode = mode.mode;
        recording.overwrite = true;
        print(mode.name, costOfPlay(file, [&](oru::CameraOne& camera, bool first) {
                  if (first) {
                      expect(camera.enableRecording(recording), "recording");
                  }
              }));
    }
    std::remove(target.c_str());
}

/// Sender and receiver in this process, at the recorded pace; for each frame that arrived.
void measureStreaming(const char* file, unsigned short port) {
    oru::CameraOne sender;
    play(sender, file, true);
    oru::StreamingParameters streaming;
    streaming.codec = oru::PLAIN_CODEC;
    streaming.port = port;
    expect(sender.enableStreaming(streaming), "streaming");
    std::atomic<int> received{0};
    std::atomic<bool> done{false};
    std::thread receiver([&] {
        oru::InitParametersOne parameters;
        parameters.input.setFromStream("127.0.0.1", port);
        oru::CameraOne camera;
        if (camera.open(parameters) == oru::SUCCESS) {
            while (!done.load(std::memory_order_acquire)) {
                received += camera.grab() == oru::SUCCESS ? 1 : 0;
            }
        }
    });
    double begin = 0.0;
    int before = 0;
    while (sender.grab() == oru::SUCCESS) {
        if (begin == 0.0 && received > 0) {
            begin = processorMicroseconds();
            before = received;
        }
    }
    const double spent = processorMicroseconds() - begin;
    const int frames = received - before;
    done.store(true, std::memory_order_release);
    receiver.join();
    if (begin == 0.0 || frames <= 0) {
        fail("no frame arrived", oru::FAILURE);
    }
    print("stream", spent / frames);
}

}  // namespace

int main(int count, char** arguments) {
    if (count == 3 && std::strcmp(arguments[1], "make") == 0) {
        make(arguments[2]);
        return 0;
    }
    if (count == 4 && std::strcmp(arguments[1], "run") == 0) {
        const char* file = arguments[2];
        measureViews(file);
        measureGrab(file);
        measureRecording(file);
        measureStreaming(file, static_cast<unsigned short>(std::atoi(arguments[3])));
        return 0;
    }
    std::fprintf(stderr, "usage: frame_cost make FILE | run FILE PORT\n");
    return 2;
}
