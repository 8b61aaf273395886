#include "compose/CameraSlot.hpp"

#include <chrono>
#include <utility>

#include "compose/built_in_factory.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru {
namespace {

/// No operation takes longer by itself.
constexpr std::chrono::seconds kLongestOperation{10};

}  // namespace

Opening::Opening(const std::shared_ptr<CollaboratorFactory>& process)
    : calibration(process->calibration()), camera(calibration.connect(process)) {}

CameraSlot::Occupant CameraSlot::makeOccupant() {
    registerBuiltInFactory();
    auto promise = std::make_shared<std::promise<void>>();
    Occupant made;
    made.gone = promise->get_future();
    made.opening = {new Opening(), [promise](Opening* opening) {
                        delete opening;
                        promise->set_value();
                    }};
    return made;
}

CameraSlot::CameraSlot() : occupant(makeOccupant()) {}

std::shared_ptr<Opening> CameraSlot::current() const {
    const MutexLock lock(mutex);
    return occupant.opening;
}

ERROR_CODE CameraSlot::vacate() {
    if (!used) {
        return SUCCESS;
    }
    Occupant former = makeOccupant();
    {
        const MutexLock lock(mutex);
        std::swap(former, occupant);
    }
    used = false;
    useKeys();
    former.opening.reset();  // ends it here, unless another thread is inside one of its operations
    if (former.gone.wait_for(kLongestOperation) == std::future_status::ready) {
        return SUCCESS;
    }
    ORU_LOG(Warning, "{} an operation on another thread does not end: the camera closes when it does", kTagKoru);
    return FAILURE;
}

void CameraSlot::useKeys() {
    current()->camera.useStreamKeys(inputKeys, outputKeys);
}

ERROR_CODE CameraSlot::open(const InitParametersOne& wanted, CALIBRATION_CHOICE choice) {
    const MutexLock lock(lifecycle);
    (void)vacate();
    used = true;
    const ERROR_CODE opened = openCurrent(wanted, choice);
    if (opened != SUCCESS) {
        (void)vacate();
    }
    return opened;
}

ERROR_CODE CameraSlot::openCurrent(const InitParametersOne& wanted, CALIBRATION_CHOICE choice) {
    const std::shared_ptr<Opening> opening = current();
    InitParametersOne completed = wanted;
    completed.settings_path = opening->calibration.prepare(wanted, choice).c_str();
    const ERROR_CODE opened = opening->camera.open(completed);
    if (opened == SUCCESS) {
        opening->calibration.compareWithFactory(opening->camera.getCameraInformation({}).serial_number);
    }
    completed = opening->camera.getInitParameters();
    completed.settings_path = opening->calibration.shownPath().c_str();
    const MutexLock lock(mutex);
    parameters = completed;
    return opened;
}

ERROR_CODE CameraSlot::close() {
    const MutexLock lock(lifecycle);
    return vacate();
}

InitParametersOne CameraSlot::initParameters() const {
    const MutexLock lock(mutex);
    return parameters;
}

void CameraSlot::setInputStreamKeys(const StreamKeys& keys) {
    const MutexLock lock(lifecycle);
    inputKeys = keys;
    useKeys();
}

void CameraSlot::setOutputStreamKeys(const StreamKeys& keys) {
    const MutexLock lock(lifecycle);
    outputKeys = keys;
    useKeys();
}

}  // namespace oru
