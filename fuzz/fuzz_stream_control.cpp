// Control messages, from the bytes to what the device hears of them: nothing but what it offers.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "backends/stream/control/ControlHandler.hpp"
#include "doubles/live_doubles.hpp"

using namespace oru::stream;

namespace {

constexpr int kMost = 100;  // of every control of the scripted camera

void abortUnless(bool right) {
    if (!right) {
        std::abort();
    }
}

/// What must hold of a write that the handler carried out.
void checkWritten(const ControlMessage& request, const oru::doubles::GrabberScript& camera) {
    const auto& v = request.values;
    if (request.automatic) {
        return;
    }
    if (request.control == oru::AEC_AGC_ROI) {
        abortUnless(v[0] >= 0 && v[1] >= 0 && v[2] > 0 && v[3] > 0 && int64_t{v[0]} + v[2] <= camera.width &&
                    int64_t{v[1]} + v[3] <= camera.height);
        return;
    }
    abortUnless(std::all_of(v.begin(), v.begin() + request.count, [](int32_t x) { return x >= 0 && x <= kMost; }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const ControlSeal seal("a control key", {});
    (void)readGreeting(data, size);
    (void)seal.read(data, size);
    const auto request = parseControl(data, size);
    if (!request) {
        return 0;
    }
    const ControlBytes sealed = seal.write(*request);
    abortUnless(seal.read(sealed.data(), sealed.size()) == request);

    oru::doubles::GrabberScript camera;
    oru::doubles::CallLog calls;
    oru::doubles::ScriptedGrabber grabber(camera, calls, oru::GMSL);
    bool written = false;
    ControlHandler handler([&written] { written = true; });
    handler.setGrabber(&grabber);
    calls.clear();
    const ControlMessage reply = handler.answer(*request);
    const auto isWrite = [](const std::string& call) { return call.starts_with("set") || call.starts_with("reset"); };
    const bool heard = std::any_of(calls.all().begin(), calls.all().end(), isWrite);
    abortUnless(heard == written && (!written || request->operation == ControlOperation::WRITE));
    if (written) {
        checkWritten(*request, camera);
    }
    const ControlBytes answer = seal.write(reply);
    abortUnless(seal.read(answer.data(), answer.size()) == reply);
    return 0;
}
