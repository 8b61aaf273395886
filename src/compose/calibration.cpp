#include "oru/calibration.hpp"

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/CollaboratorFactory.hpp"
#include "compose/built_in_factory.hpp"

namespace oru {

CalibrationFile factoryCalibration(int serialNumber) {
    registerBuiltInFactory();
    const auto platform = CollaboratorFactory::processDefault();
    return platform == nullptr ? CalibrationFile{} : parseCalibration(platform->calibration().text(serialNumber));
}

bool fetchCalibration(const std::string& directory, int serialNumber) {
    registerBuiltInFactory();
    return downloadCalibFile(directory, serialNumber);
}

}  // namespace oru
