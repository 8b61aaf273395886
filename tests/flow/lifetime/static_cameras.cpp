// Cameras of static lifetime in every mode, and an ordinary end of the process:
// static_cameras global|function live|recording|recorded|sending|receiving return|exit open|closed FOLDER PORT
// Status 0, and "all gone" when every static object has been destroyed.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "oru/CameraOne.hpp"

namespace {

constexpr int kFrames = 4;

struct Witness {
    ~Witness() { std::puts("all gone"); }
} witness;  // older than the cameras, so that it goes after them

struct Cameras {
    oru::CameraOne first;
    oru::CameraOne second;
    oru::Mat view;
} globalCameras;

Cameras& functionCameras() {
    static Cameras cameras;
    return cameras;
}

void demand(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "not possible: %s\n", what);
        std::_Exit(2);
    }
}

void grab(oru::CameraOne& camera, oru::Mat& view) {
    for (int i = 0; i < kFrames; ++i) {
        demand(camera.grab() == oru::SUCCESS, "grab");
    }
    demand(camera.retrieveImage(view) == oru::SUCCESS, "view");
}

void open(oru::CameraOne& camera, const std::string& folder, const oru::InputType& input = {}) {
    oru::InitParametersOne parameters;
    parameters.requested_resolution = oru::HD600;
    parameters.settings_path = (folder + "/").c_str();
    parameters.input = input;
    demand(camera.open(parameters) == oru::SUCCESS, "open");
}

void record(Cameras& cameras, const std::string& file) {
    oru::RecordingParameters parameters;
    parameters.video_filename = file.c_str();
    parameters.compression_mode = oru::RLX_LOSSLESS;
    demand(cameras.first.enableRecording(parameters) == oru::SUCCESS, "recording");
    grab(cameras.first, cameras.view);
}

void play(Cameras& cameras, const std::string& folder, const std::string& file) {
    cameras.first.disableRecording();
    oru::InputType input;
    input.setFromFile(file.c_str());
    open(cameras.second, folder, input);
    grab(cameras.second, cameras.view);
}

void send(Cameras& cameras, uint16_t port) {
    oru::StreamingParameters parameters;
    parameters.codec = oru::PLAIN_CODEC;
    parameters.port = port;
    demand(cameras.first.enableStreaming(parameters) == oru::SUCCESS, "streaming");
    grab(cameras.first, cameras.view);
}

void receive(Cameras& cameras, const std::string& folder, uint16_t port) {
    std::atomic<bool> done{false};
    std::thread source([&] {
        while (!done) {
            (void)cameras.first.grab();
        }
    });
    oru::InputType input;
    input.setFromStream("127.0.0.1", port);
    open(cameras.second, folder, input);
    grab(cameras.second, cameras.view);
    done = true;
    source.join();
}

}  // namespace

int main(int count, char** arguments) {
    demand(count == 7, "arguments");
    const std::string_view place(arguments[1]);
    const std::string_view mode(arguments[2]);
    const std::string folder(arguments[5]);
    const std::string file = folder + "/recording.rlx2";
    const auto port = static_cast<uint16_t>(std::atoi(arguments[6]));
    Cameras& cameras = place == "global" ? globalCameras : functionCameras();

    open(cameras.first, folder);
    grab(cameras.first, cameras.view);
    if (mode == "recording" || mode == "recorded") {
        record(cameras, file);
    }
    if (mode == "recorded") {
        play(cameras, folder, file);
    }
    if (mode == "sending" || mode == "receiving") {
        send(cameras, port);
    }
    if (mode == "receiving") {
        receive(cameras, folder, port);
    }
    if (std::string_view(arguments[4]) == "closed") {
        (void)cameras.first.close();
        (void)cameras.second.close();
    }
    if (std::string_view(arguments[3]) == "exit") {
        std::exit(EXIT_SUCCESS);
    }
    return EXIT_SUCCESS;
}
