// Sends the live camera over the network and receives it in the same program:  stream_to_myself [PORT]
// The receiving half is all that another machine needs.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "oru/CameraOne.hpp"

namespace {

int receive(unsigned short port) {
    oru::InitParametersOne parameters;
    parameters.input.setFromStream("127.0.0.1", port);
    oru::CameraOne camera;
    if (camera.open(parameters) != oru::SUCCESS) {
        return 0;
    }
    oru::Mat image;
    int frames = 0;
    while (frames < 20 && camera.grab() == oru::SUCCESS && camera.retrieveImage(image) == oru::SUCCESS) {
        ++frames;
    }
    return frames;
}

}  // namespace

int main(int count, char** arguments) {
    const auto port = static_cast<unsigned short>(count > 1 ? std::atoi(arguments[1]) : 30000);
    oru::InitParametersOne parameters;
    parameters.requested_resolution = oru::HD600;
    parameters.requested_fps = 30;
    oru::StreamingParameters streaming;
    streaming.codec = oru::PLAIN_CODEC;
    streaming.port = port;

    oru::CameraOne camera;
    if (camera.open(parameters) != oru::SUCCESS || camera.enableStreaming(streaming) != oru::SUCCESS) {
        return 1;
    }
    int received = 0;
    std::atomic<bool> done{false};
    std::thread receiver([&] {
        received = receive(port);
        done.store(true, std::memory_order_release);
    });
    while (!done.load(std::memory_order_acquire)) {
        (void)camera.grab();  // every grabbed frame goes out
    }
    receiver.join();
    camera.disableStreaming();
    std::printf("%d frames received\n", received);
    return received > 0 ? 0 : 1;
}
