#include "contracts/stream_contract.hpp"

#include "doubles/stream_doubles.hpp"

namespace oru {
namespace {

class ScriptedSubject final : public StreamSubject {
public:
    UDPOutput& sender() override { return scriptedOutput; }
    UDPInput& receiver() override { return scriptedInput; }
    int openReceiver(const UDPOutConfig& sent) override {
        input.description = {static_cast<int>(sent.serial_number),
                             static_cast<MODEL>(sent.model),
                             sent.camera_fw,
                             sent.sensors_fw,
                             sent.width,
                             sent.height,
                             true,
                             sent.flipped ? 1 : 0};
        input.fps = sent.fps;
        input.thenFrame = false;
        return scriptedInput.open("127.0.0.1", sent.port, 0);
    }
    void carry() override {
        input.arrivals.insert(input.arrivals.end(), output.sent.begin(), output.sent.end());
        output.sent.clear();
        input.packets.insert(input.packets.end(), output.samples.begin(), output.samples.end());
        input.imu = output.samples.back();
        output.samples.clear();
    }

private:
    doubles::StreamOutputScript output;
    doubles::StreamInputScript input;
    doubles::RlxScript recorder;
    doubles::CallLog calls;
    doubles::ScriptedStreamOutput scriptedOutput{output, calls, false};
    doubles::ScriptedStreamInput scriptedInput{input, recorder, calls, false};
};

/// Both ends of the SRT stream in one process.
class LoopbackSubject final : public StreamSubject {
public:
    UDPOutput& sender() override { return *output; }
    UDPInput& receiver() override { return *input; }
    int openReceiver(const UDPOutConfig& sent) override { return input->open("127.0.0.1", sent.port, 0); }
    void carry() override {}

private:
    std::unique_ptr<Clock> clock = makeSystemClock();
    doubles::CalibrationKeeper calibrations;
    std::unique_ptr<UDPOutput> output = makeStreamSender(*clock, calibrations, false);
    std::unique_ptr<UDPInput> input = makeStreamReceiver(*clock, calibrations, nullptr, false);
};

using Named = NamedSubject<StreamSubject>;
INSTANTIATE_TEST_SUITE_P(Streams, StreamContract,
                         testing::Values(Named::of<ScriptedSubject>("Scripted"),
                                         Named::of<LoopbackSubject>("SrtLoopback")),
                         Named::nameOf);

}  // namespace
}  // namespace oru
