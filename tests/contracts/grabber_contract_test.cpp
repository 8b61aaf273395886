#include "contracts/grabber_contract.hpp"

#include "backends/virtual_bus/BusRig.hpp"
#include "doubles/live_doubles.hpp"

namespace oru {
namespace {

class ScriptedSubject final : public GrabberSubject {
public:
    ScriptedSubject() {
        script.width = kWidth;
        script.height = kHeight;
        script.pixels.resize(std::size_t{kWidth} * kHeight * 2);
    }
    LiveCameraGrabber& grabber() override { return scripted; }

private:
    doubles::GrabberScript script;
    doubles::CallLog calls;
    doubles::ScriptedGrabber scripted{script, calls, GMSL};
};

class VirtualSubject final : public GrabberSubject {
public:
    LiveCameraGrabber& grabber() override { return *rig.grabber; }

private:
    virtual_bus::BusRig rig;
};

using Named = NamedSubject<GrabberSubject>;
INSTANTIATE_TEST_SUITE_P(Grabbers, GrabberContract,
                         testing::Values(Named::of<ScriptedSubject>("Scripted"),
                                         Named::of<VirtualSubject>("VirtualBus")),
                         Named::nameOf);

}  // namespace
}  // namespace oru
