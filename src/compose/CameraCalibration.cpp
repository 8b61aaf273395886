#include "compose/CameraCalibration.hpp"

#include <cstdlib>
#include <functional>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "calibration/readers.hpp"
#include "compose/settings_directory.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "oru/calibration.hpp"
#include "utils/text_file.hpp"

namespace oru {
namespace {

constexpr const char* kChoiceVariable = "KORU_CALIBRATION";
constexpr std::size_t kDifferencesShown = 3;
constexpr std::size_t kMostCameras = 64;  // whose files are remembered

bool namesLiveCamera(const InputType& input) {
    return !input.isSet() || input.kind() == KIND_GMSL_ID || input.kind() == KIND_GMSL_SERIAL;
}

CALIBRATION_CHOICE choiceOfEnvironment() {
    const char* wish = std::getenv(kChoiceVariable);
    if (wish == nullptr || *wish == '\0') {
        return CALIBRATION_DEFAULT;
    }
    if (std::string_view(wish) == "own" || std::string_view(wish) == "local") {
        return std::string_view(wish) == "own" ? CALIBRATION_OWN : CALIBRATION_LOCAL;
    }
    ORU_LOG(Warning, "{} {} is \"{}\" and not own or local; it is ignored.", kTagInit, kChoiceVariable, wish);
    return CALIBRATION_DEFAULT;
}

/// "fx 1066.50 at 1920x1200", of the first size that a text has.
std::string focalLength(const std::string& text) {
    const CalibrationFile file = parseCalibration(text);
    for (const SensorMode& mode : sensorModes(file.model())) {
        if (const std::optional<Lens> lens = file.lens(mode)) {
            return "fx " + std::to_string(lens->fx) + " at " + std::to_string(mode.width) + "x" +
                   std::to_string(mode.height);
        }
    }
    return "no focal length";
}

bool differ(const std::string& first, const std::string& second) {
    return !compareCalibrations(parseCalibration(first), parseCalibration(second)).empty();
}

std::string firstOf(const std::vector<CalibrationDifference>& differences) {
    std::string shown;
    for (std::size_t i = 0; i < differences.size() && i < kDifferencesShown; ++i) {
        shown += (i == 0 ? "" : ", ") + differences[i].key + " " + differences[i].file + " instead of " +
                 differences[i].factory;
    }
    return differences.size() > kDifferencesShown ? shown + ", ..." : shown;
}

/// Whether a camera's file was compared before, by whichever opening of the process.
bool wasSaid(int serialNumber, const std::string& text) {
    struct Said {
        Mutex mutex;
        std::map<int, std::size_t> texts ORU_GUARDED_BY(mutex);
    };
    static Said said;
    const std::size_t hash = std::hash<std::string>()(text);
    const MutexLock lock(said.mutex);
    if (said.texts.size() >= kMostCameras) {
        said.texts.clear();
    }
    const auto [known, isNew] = said.texts.try_emplace(serialNumber, hash);
    return !isNew && std::exchange(known->second, hash) == hash;
}

}  // namespace

std::shared_ptr<CollaboratorFactory> CameraCalibration::connect(const std::shared_ptr<CollaboratorFactory>& factory) {
    std::shared_ptr<CollaboratorFactory> own = factory->withCalibration(*this);
    const MutexLock lock(mutex);
    connected = own != nullptr;
    return connected ? own : factory;
}

std::string CameraCalibration::prepare(const InitParametersOne& parameters, CALIBRATION_CHOICE choice) {
    const std::string given = asPrefix(parameters.settings_path.get());
    const std::string store = given.empty() ? userSettingsDirectory() : given;
    const std::string defect = storingDefect(store);
    const MutexLock lock(mutex);
    calibrationChoice = choice == CALIBRATION_DEFAULT ? choiceOfEnvironment() : choice;
    givenPath = given;
    storePath = store;
    live = !connected || namesLiveCamera(parameters.input);
    shown = live ? store : given;
    if (live && defect.empty()) {
        return store;
    }
    if (!privateDirectory.make()) {
        return store;
    }
    if (live) {
        copyCalibrations(store, privateDirectory.prefix());
        ORU_LOG(Info, "{} Nothing can be stored in \"{}\": {}. A calibration that is missing is kept for this opening.",
                kTagInit, store, defect);
    }
    return privateDirectory.prefix();
}

std::string CameraCalibration::shownPath() {
    const MutexLock lock(mutex);
    return shown;
}

bool CameraCalibration::downloadCalibFile(String directory, int serial_number) {
    const MutexLock lock(mutex);
    const bool kept = privateDirectory.exists() && storingDefect(storePath).empty();
    if (!kept) {
        return processSource.downloadCalibFile(std::move(directory), serial_number);
    }
    if (!processSource.downloadCalibFile(String(storePath.c_str()), serial_number)) {
        return false;
    }
    const PlainText stored = readPlainText(calibrationPath(storePath, serial_number), kCalibrationTextLimitBytes);
    return stored.defect.empty() &&
           placeFile(calibrationPath(privateDirectory.prefix(), serial_number), stored.text).empty();
}

void CameraCalibration::offer(int serial_number, std::string text) {
    processSource.offer(serial_number, std::move(text));
}

std::optional<CameraCalibration::Candidate> CameraCalibration::carriedBy(const std::string& place, int serialNumber,
                                                                         std::string text) const {
    if (text.empty()) {
        return std::nullopt;
    }
    const std::string defect = calibrationDefect(text, serialNumber, Completeness::KNOWN);
    if (!defect.empty()) {
        ORU_LOG(Warning, "{} What {} carries is no calibration of camera {}: {}.", kTagInit, place, serialNumber,
                defect);
        return std::nullopt;
    }
    return Candidate{place, std::move(text)};
}

std::optional<CameraCalibration::Candidate> CameraCalibration::fileOfGivenPath(int serialNumber) const {
    if (givenPath.empty()) {
        return std::nullopt;
    }
    std::string path = calibrationPath(givenPath, serialNumber);
    PlainText file = readPlainText(path, kCalibrationTextLimitBytes);
    return file.defect.empty() ? std::optional(Candidate{std::move(path), std::move(file.text)}) : std::nullopt;
}

std::optional<CameraCalibration::Candidate> CameraCalibration::localFile(int serialNumber) const {
    ConfManager conf;
    openConfFile(storePath, serialNumber, conf);
    return conf.is_open ? std::optional(Candidate{conf.path, readPlainText(conf.path, kCalibrationTextLimitBytes).text})
                        : std::nullopt;
}

std::optional<CameraCalibration::Candidate> CameraCalibration::chosen(const std::optional<Candidate>& own,
                                                                      const std::string& place,
                                                                      int serialNumber) const {
    const bool takesLocal = calibrationChoice == CALIBRATION_LOCAL || !own;
    std::optional<Candidate> file = takesLocal ? localFile(serialNumber) : fileOfGivenPath(serialNumber);
    if (!own) {
        if (file) {
            ORU_LOG(Info, "{} {} carries no calibration: {} is used for camera {}.", kTagInit, place, file->place,
                    serialNumber);
        }
        return file;
    }
    if (!file || !differ(file->text, own->text)) {
        return own;
    }
    const bool ownWins = calibrationChoice == CALIBRATION_OWN;
    const Candidate& used = ownWins ? *own : *file;
    const Candidate& other = ownWins ? *file : *own;
    const auto sentence = [&](LogLevel level) {
        ORU_LOG_AT(level, __FILE__, __LINE__,
                   "{} Camera {} is rectified with {} ({}) and not with {} ({}). {}=own or =local chooses: what the "
                   "source carries, or the file.",
                   kTagInit, serialNumber, used.place, focalLength(used.text), other.place, focalLength(other.text),
                   kChoiceVariable);
    };
    sentence(calibrationChoice == CALIBRATION_DEFAULT ? LogLevel::Warning : LogLevel::Info);
    return used;
}

void CameraCalibration::offerFrom(CalibrationOrigin origin, const std::string& place, int serial_number,
                                  std::string text) {
    if (origin == CalibrationOrigin::ATTACHED_CAMERA) {
        processSource.offer(serial_number, std::move(text));
        return;
    }
    const std::optional<Candidate> own = carriedBy(place, serial_number, std::move(text));
    const MutexLock lock(mutex);
    const std::optional<Candidate> used = chosen(own, place, serial_number);
    if (!used) {
        return;
    }
    serialInUse = serial_number;
    textInUse = used->text;
    const std::string defect = privateDirectory.exists()
                                   ? placeFile(calibrationPath(privateDirectory.prefix(), serial_number), textInUse)
                                   : "there is no temporary directory";
    if (!defect.empty()) {
        ORU_LOG(Warning, "{} The calibration of camera {} could not be kept for this opening: {}.", kTagInit,
                serial_number, defect);
    }
}

std::string CameraCalibration::text(int serial_number) {
    {
        const MutexLock lock(mutex);
        if (serialInUse == serial_number && !textInUse.empty()) {
            return textInUse;
        }
    }
    return processSource.text(serial_number);
}

void CameraCalibration::compareWithFactory(int serialNumber) {
    const std::string factoryText = processSource.text(serialNumber);
    const MutexLock lock(mutex);
    const std::optional<Candidate> file = live ? localFile(serialNumber) : std::nullopt;
    if (!file) {
        return;
    }
    serialInUse = serialNumber;
    textInUse = file->text;
    if (factoryText.empty() || wasSaid(serialNumber, file->text)) {
        return;
    }
    const CalibrationFile stored = parseCalibration(file->text);
    const auto differences = compareCalibrations(stored, parseCalibration(factoryText));
    if (differences.empty()) {
        return;
    }
    const bool meant = stored.values.count(std::string("misc:") + kCalibrationMakerKey) != 0;
    ORU_LOG_AT(meant ? LogLevel::Info : LogLevel::Warning, __FILE__, __LINE__,
               "{} The calibration file {} disagrees with the factory calibration of camera {} in {} value(s) ({}); "
               "'koruone calib --serial {} --refresh' replaces it.",
               kTagInit, file->place, serialNumber, differences.size(), firstOf(differences), serialNumber);
}

}  // namespace oru
