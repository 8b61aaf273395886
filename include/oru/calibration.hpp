#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "oru/Lens.hpp"
#include "oru/types.hpp"

/// A camera's calibration file: an INI text, SN<serial>.conf, with MISC:Sensor_ID (the sensor's family, 1 or 2), one
/// section for each mode of the sensor with its fx, fy, cx and cy, and the section DISTO with the lens's coefficients.
/// Section and key are compared without regard to case. Everything here is safe on any thread.
namespace oru {

/// The coefficients in the order of CameraParameters::distortion.
inline constexpr std::array<const char*, 12> kDistortionNames{"k1", "k2", "p1", "p2", "k3", "k4",
                                                              "k5", "k6", "s1", "s2", "s3", "s4"};
inline constexpr const char* kDistortionSection = "DISTO";
/// In MISC: who made the file, when it is not the camera's own. A camera whose file says so differs on purpose.
inline constexpr const char* kCalibrationMakerKey = "made_by";
inline constexpr std::size_t kCalibrationTextLimitBytes = std::size_t{1} << 20;

/// How one image size is read out of the sensor: cut out of its centre, then binned.
struct SensorMode {
    int width = 0;
    int height = 0;
    int max_fps = 0;
    int binning = 1;                ///< sensor pixels a side that make one image pixel
    const char* section = nullptr;  ///< of the calibration file
};

/// The modes of a model in the order of its calibration file, the whole sensor first; none for any other model.
[[nodiscard]] ORU_API std::span<const SensorMode> sensorModes(MODEL model);
/// The mode of a model with that size; null when it has none.
[[nodiscard]] ORU_API const SensorMode* findMode(MODEL model, int width, int height);
/// The largest size of a model, which its lens refers to.
[[nodiscard]] ORU_API Resolution sensorSize(MODEL model);
/// The lens of the whole sensor as seen through a mode.
[[nodiscard]] ORU_API Lens modeLens(MODEL model, const Lens& sensor, const SensorMode& mode);
/// The model of a sensor family: 1 or 2, truncated toward zero; any other number gives MODEL_UNKNOWN.
[[nodiscard]] ORU_API MODEL modelOfFamily(double family);
/// 1 or 2; 0 for a model that has no calibration file.
[[nodiscard]] ORU_API int familyOf(MODEL model);

/// The values of a calibration file under "section:key" in lower case.
struct ORU_API CalibrationFile {
    std::string path;  ///< empty when they come from no file
    std::map<std::string, std::string> values;

    [[nodiscard]] bool empty() const { return values.empty(); }
    /// The number at the head of a value in the C locale, in single precision as the camera reads it; a text without
    /// a number or a missing key gives 0.
    [[nodiscard]] float number(const std::string& section, const std::string& key) const;
    [[nodiscard]] MODEL model() const { return modelOfFamily(number("MISC", "Sensor_ID")); }
    /// Empty when the section of that mode has no positive fx and fy.
    [[nodiscard]] std::optional<Lens> lens(const SensorMode& mode) const;
};

/// Empty when the text is no INI text.
[[nodiscard]] ORU_API CalibrationFile parseCalibration(const std::string& text);
/// Reads one file; without values when it cannot be read, is no plain file or longer than kCalibrationTextLimitBytes.
[[nodiscard]] ORU_API CalibrationFile readCalibration(const std::string& path);
/// The file that open() finds for a camera: in `directory`, a prefix that ends with "/", then in the system's settings
/// directory. Its path is empty when there is none.
[[nodiscard]] ORU_API CalibrationFile findCalibration(const std::string& directory, int serialNumber);
/// What the attached camera itself carries; empty when it is not attached or was never listed.
[[nodiscard]] ORU_API CalibrationFile factoryCalibration(int serialNumber);
/// Stores the camera's calibration, from itself or from KORU_CALIB_URL, where findCalibration looks first. Takes at
/// most some seconds; false when nothing was stored.
[[nodiscard]] ORU_API bool fetchCalibration(const std::string& directory, int serialNumber);

/// How sure it is that a text arrived whole.
enum class Completeness {
    KNOWN,   ///< its length was announced and met
    UNKNOWN  ///< it ended where the sender closed: every section and coefficient must be there, and a last line end
};

/// Why a text is no calibration of this camera; empty when it is one: an INI text with MISC:Sensor_ID 1 or 2, at
/// least one section of that sensor, in each of these fx and fy above 0 and a finite cx and cy, a DISTO section with
/// finite coefficients, and no MISC:Serial_Number of another camera.
[[nodiscard]] ORU_API std::string calibrationDefect(const std::string& text, int serialNumber,
                                                    Completeness completeness);

/// The text of a calibration file, with the pinhole of each mode.
[[nodiscard]] ORU_API std::string calibrationText(MODEL model, const std::array<double, 12>& distortion,
                                                  const std::function<Lens(const SensorMode&)>& lensOf);
/// The same for the lens of the whole sensor.
[[nodiscard]] ORU_API std::string calibrationText(MODEL model, const Lens& sensor);
/// Writes a whole text (see calibrationDefect) to `path` by a rename, so that no reader sees half a file.
/// @return why nothing was written; empty when it was.
[[nodiscard]] ORU_API std::string writeCalibration(const std::string& path, const std::string& text, int serialNumber);

struct CalibrationDifference {
    std::string key;      ///< "section:key"
    std::string file;     ///< "nothing" when the file lacks it
    std::string factory;  ///< "nothing" when the factory's lacks it
};

/// The values in which a file differs from the factory's, numbers compared as numbers, to single precision.
[[nodiscard]] ORU_API std::vector<CalibrationDifference> compareCalibrations(const CalibrationFile& file,
                                                                             const CalibrationFile& factory);

/// How far two lenses see the same ray apart, after the rotation between them that explains most of it: principal
/// point, tangential and prism terms stand for a small rotation of the camera as well.
struct LensDifference {
    double mean_pixels = 0.0;
    double max_pixels = 0.0;
    double rotation_degrees = 0.0;
    int points = 0;  ///< of 33 x 21 over the image, where both lenses have a ray
};

struct LensFit {
    Lens lens;
    double max_pixels = 0.0;  ///< the largest distance between the two lenses' pixels of one ray
};

/// The lens with fewer coefficients that is closest to another one over an image: only the first `coefficients` of
/// kDistortionNames (0 to 12) are free, with the focal lengths and the principal point. A lens that has no others stays
/// as it is. Empty for an unusable lens, and where it shows less than half of the image.
[[nodiscard]] ORU_API std::optional<LensFit> fitLens(const Lens& lens, const Resolution& image, int coefficients);

/// Empty for an unusable lens, and where fewer than half of the points can be compared.
[[nodiscard]] ORU_API std::optional<LensDifference> compareLenses(const Lens& first, const Lens& second,
                                                                  const Resolution& image);

}  // namespace oru
