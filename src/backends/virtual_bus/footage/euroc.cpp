#include "backends/virtual_bus/footage/euroc.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <Eigen/LU>
#include <algorithm>
#include <charconv>

#include "utils/ini_text.hpp"

namespace oru::virtual_bus {
namespace {

constexpr std::size_t kMaxImages = 1'000'000;
constexpr std::size_t kMaxListed = 64;
constexpr std::string_view kWholeModel = "rational-thin-prism";  // as 'koruone convert' writes the camera's own lens

/// Takes the next line off the text, without its end.
std::string_view nextLine(std::string_view& text) {
    const auto end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view{}
                                           : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// Takes the next field of a comma-separated line off it.
std::string_view nextField(std::string_view& line) {
    const auto end = line.find(',');
    const std::string_view field = trim(line.substr(0, end));
    line = end == std::string_view::npos ? std::string_view{} : line.substr(end + 1);
    return field;
}

bool toTime(std::string_view text, uint64_t& time) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), time);
    // Later than 2262 no signed count of nanoseconds holds it.
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && time < (uint64_t{1} << 63U);
}

/// What stands after "key:" on its line and, for a list in brackets, on the lines up to the closing one.
std::string_view yamlValue(std::string_view yaml, std::string_view key) {
    while (!yaml.empty()) {
        const std::string_view rest = yaml;
        const std::string_view line = nextLine(yaml);
        const std::string_view start = trim(line);
        if (!start.starts_with(key) || !start.substr(key.size()).starts_with(':')) {
            continue;
        }
        const auto offset = static_cast<std::size_t>(start.data() - rest.data()) + key.size() + 1;
        const std::string_view value = trim(start.substr(key.size() + 1));
        if (!value.starts_with('[')) {
            return trim(value.substr(0, value.find('#')));
        }
        const std::string_view list = rest.substr(offset);
        const auto open = list.find('[');
        const auto close = list.find(']');
        return close == std::string_view::npos ? std::string_view{} : list.substr(open + 1, close - open - 1);
    }
    return {};
}

std::vector<double> yamlNumbers(std::string_view yaml, std::string_view key) {
    std::string_view list = yamlValue(yaml, key);
    std::vector<double> numbers;
    while (!list.empty()) {
        std::string field(nextField(list));
        std::erase_if(field, [](char c) { return c == '\n' || c == '\r' || c == ' ' || c == '\t'; });
        double number = 0.0;
        if (numbers.size() == kMaxListed || !toNumber(field, number)) {
            return {};
        }
        numbers.push_back(number);
    }
    return numbers;
}

bool wrong(std::string& error, const char* key, const char* expected) {
    error = fmt::format("sensor.yaml: {} must be {}", key, expected);
    return false;
}

/// T_BS, row by row; left as it is when the text has none.
bool parsePose(std::string_view yaml, std::array<double, 16>& pose, std::string& error) {
    constexpr double kRigidTolerance = 1e-3;
    if (yamlValue(yaml, "data").empty()) {
        return true;
    }
    const auto numbers = yamlNumbers(yaml, "data");
    if (numbers.size() != pose.size()) {
        return wrong(error, "T_BS: data", "16 numbers");
    }
    std::copy(numbers.begin(), numbers.end(), pose.begin());
    const Eigen::Matrix<double, 4, 4, Eigen::RowMajor> matrix(pose.data());
    const Eigen::Matrix3d rotation = matrix.topLeftCorner<3, 3>();
    const double defect = (rotation * rotation.transpose() - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff();
    if (!(defect <= kRigidTolerance) || !(rotation.determinant() > 0) ||
        matrix.row(3) != Eigen::RowVector4d(0, 0, 0, 1)) {
        return wrong(error, "T_BS: data", "a rotation with a translation");
    }
    return true;
}

}  // namespace

bool parseEurocImages(std::string_view csv, std::vector<EurocImage>& images, std::string& error) {
    for (int number = 1; !csv.empty(); ++number) {
        std::string_view line = nextLine(csv);
        if (trim(line).empty() || trim(line).starts_with('#')) {
            continue;
        }
        EurocImage image;
        const bool valid = toTime(nextField(line), image.time_ns);
        image.file = std::string(nextField(line));
        if (!valid || image.file.empty() || image.file.find('/') != std::string::npos) {
            error = fmt::format("cam0/data.csv: line {} is not a time and a file name", number);
            return false;
        }
        if (!images.empty() && image.time_ns <= images.back().time_ns) {
            error = fmt::format("cam0/data.csv: line {}: the time does not rise", number);
            return false;
        }
        if (images.size() == kMaxImages) {
            error = fmt::format("cam0/data.csv: more than {} pictures", kMaxImages);
            return false;
        }
        images.push_back(std::move(image));
    }
    if (images.empty()) {
        error = "cam0/data.csv: it lists no picture";
        return false;
    }
    return true;
}

bool parseEurocCamera(std::string_view yaml, EurocCamera& camera, std::string& error) {
    const auto size = yamlNumbers(yaml, "resolution");
    const auto pinhole = yamlNumbers(yaml, "intrinsics");
    const auto distortion = yamlNumbers(yaml, "distortion_coefficients");
    const std::string_view model = yamlValue(yaml, "distortion_model");
    if (size.size() != 2 || size[0] < 16 || size[1] < 16 || size[0] > 16384 || size[1] > 16384) {
        return wrong(error, "resolution", "[width, height]");
    }
    if (pinhole.size() != 4 || !(pinhole[0] > 0.0) || !(pinhole[1] > 0.0)) {
        return wrong(error, "intrinsics", "[fu, fv, cu, cv]");
    }
    if (!model.empty() && model != "radial-tangential" && model != kWholeModel) {
        return wrong(error, "distortion_model", "radial-tangential or rational-thin-prism");
    }
    if (model == kWholeModel ? distortion.size() != camera.lens.distortion.size() : distortion.size() > 4) {
        return wrong(error, "distortion_coefficients",
                     model == kWholeModel ? "[k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4]" : "[k1, k2, p1, p2]");
    }
    if (!parsePose(yaml, camera.pose, error)) {
        return false;
    }
    if (const std::string_view rate = yamlValue(yaml, "rate_hz"); !rate.empty()) {
        if (!toNumber(rate, camera.rate_hz) || camera.rate_hz < 0.1 || camera.rate_hz > 1000.0) {
            return wrong(error, "rate_hz", "a rate in hertz");
        }
    }
    camera.width = static_cast<int>(size[0]);
    camera.height = static_cast<int>(size[1]);
    camera.lens = {pinhole[0], pinhole[1], pinhole[2], pinhole[3], {}};
    std::copy(distortion.begin(), distortion.end(), camera.lens.distortion.begin());
    return true;
}

bool parseEurocImu(std::string_view yaml, EurocCamera& camera, std::string& error) {
    return parsePose(yaml, camera.imu_pose, error);
}

bool parseEurocSample(std::string_view line, EurocSample& sample) {
    if (!toTime(nextField(line), sample.time_ns)) {
        return false;
    }
    for (auto* vector : {&sample.rate, &sample.force}) {
        for (double& value : *vector) {
            if (!toNumber(nextField(line), value) || value < -1e6 || value > 1e6) {
                return false;
            }
        }
    }
    return true;
}

std::string eurocRoot(const std::string& path) {
    struct stat facts {};
    for (const std::string& root : {path + "/mav0", path}) {
        if (::stat((root + "/cam0/data.csv").c_str(), &facts) == 0) {
            return root;
        }
    }
    return {};
}

}  // namespace oru::virtual_bus
