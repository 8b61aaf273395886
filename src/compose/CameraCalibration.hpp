#pragma once

#include <memory>
#include <optional>
#include <string>

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/CollaboratorFactory.hpp"
#include "compose/PrivateDirectory.hpp"
#include "oru/CameraOne.hpp"
#include "oru/types.hpp"
#include "utils/Mutex.hpp"

namespace oru {

/// Which calibration one opening of a camera works with. A recording or a stream hands its own over inside open(); the
/// one that shall be used is then placed in a private directory, where the core looks first, and nowhere else: what a
/// live camera uses is never changed by it. A live camera keeps its rule: the stored file, else what the camera itself
/// carries, which is stored. Threads: any.
class CameraCalibration final : public CalibrationSource {
public:
    /// `process` knows what attached cameras carry, and outlives this.
    explicit CameraCalibration(CalibrationSource& process) : processSource(process) {}

    /// Once, before prepare(): the collaborators of which readers and receivers hand over to this object; those given,
    /// when they cannot.
    [[nodiscard]] std::shared_ptr<CollaboratorFactory> connect(const std::shared_ptr<CollaboratorFactory>& factory);

    /// Before open(): the settings path that the core is to be given.
    [[nodiscard]] std::string prepare(const InitParametersOne& parameters, CALIBRATION_CHOICE choice);
    /// What the application is shown in its place.
    [[nodiscard]] std::string shownPath();
    /// After a live camera was opened: says once where its stored file differs from what the camera carries.
    void compareWithFactory(int serialNumber);

    bool downloadCalibFile(String directory, int serial_number) override;
    void offer(int serial_number, std::string text) override;
    void offerFrom(CalibrationOrigin origin, const std::string& place, int serial_number, std::string text) override;
    /// The calibration in use, else what the attached camera carries.
    std::string text(int serial_number) override;

private:
    struct Candidate {
        std::string place;
        std::string text;
    };

    [[nodiscard]] std::optional<Candidate> carriedBy(const std::string& place, int serialNumber,
                                                     std::string text) const;
    [[nodiscard]] std::optional<Candidate> localFile(int serialNumber) const ORU_REQUIRES(mutex);
    [[nodiscard]] std::optional<Candidate> fileOfGivenPath(int serialNumber) const ORU_REQUIRES(mutex);
    [[nodiscard]] std::optional<Candidate> chosen(const std::optional<Candidate>& own, const std::string& place,
                                                  int serialNumber) const ORU_REQUIRES(mutex);

    CalibrationSource& processSource;
    Mutex mutex;
    PrivateDirectory privateDirectory ORU_GUARDED_BY(mutex);
    CALIBRATION_CHOICE calibrationChoice ORU_GUARDED_BY(mutex) = CALIBRATION_DEFAULT;
    std::string givenPath ORU_GUARDED_BY(mutex);  // by the application; empty when it gave none
    std::string storePath ORU_GUARDED_BY(mutex);  // where a live camera's files lie
    std::string shown ORU_GUARDED_BY(mutex);
    bool connected ORU_GUARDED_BY(mutex) = false;
    bool live ORU_GUARDED_BY(mutex) = false;
    int serialInUse ORU_GUARDED_BY(mutex) = 0;
    std::string textInUse ORU_GUARDED_BY(mutex);
};

}  // namespace oru
