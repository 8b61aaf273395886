#include "koruone/output/EurocWriter.hpp"

#include <fmt/core.h>

#include <numbers>
#include <utility>

namespace koruone {
namespace {

double radians(float degrees) {
    return static_cast<double>(degrees) * std::numbers::pi / 180.0;
}

bool writeTextFile(const std::filesystem::path& path, const std::string& text, std::string& error) {
    OutputFile file;
    if (file.open(path)) {
        file.write(text);
    }
    const bool written = !file.failed() && file.close();
    error = file.error();
    return written;
}

}  // namespace

bool EurocWriter::fail(std::string reason) {
    failure = std::move(reason);
    return false;
}

bool EurocWriter::open(const std::string& path, const oru::RecordedFile& source, oru::RLX_COMPRESSION_MODE /*mode*/) {
    const oru::RecordingFacts& facts = source.facts();
    width = facts.size.width;
    height = facts.size.height;
    gray.resize(width * height);
    const std::filesystem::path root = std::filesystem::path(path) / "mav0";
    images = root / "cam0" / "data";
    if (!makeDirectory(images, failure) || !makeDirectory(root / "imu0", failure)) {
        return false;
    }
    if (!frameTable.open(root / "cam0" / "data.csv") || !sampleTable.open(root / "imu0" / "data.csv")) {
        return fail(frameTable.failed() ? frameTable.error() : sampleTable.error());
    }
    frameTable.write("#timestamp [ns],filename\n");
    sampleTable.write(
        "#timestamp [ns],w_RS_S_x [rad s^-1],w_RS_S_y [rad s^-1],w_RS_S_z [rad s^-1],"
        "a_RS_S_x [m s^-2],a_RS_S_y [m s^-2],a_RS_S_z [m s^-2]\n");
    const std::string sensor = fmt::format("sensor_type: camera\nrate_hz: {}\nresolution: [{}, {}]\n",
                                           static_cast<double>(facts.fps), width, height);
    const std::string calibration = fmt::format("SN{}.conf", facts.serial_number);
    return writeTextFile(root / "cam0" / "sensor.yaml", sensor, failure) &&
           writeTextFile(root / "imu0" / "sensor.yaml", "sensor_type: imu\n", failure) &&
           (facts.calibration_text.empty() ||
            writeTextFile(root / "cam0" / calibration, facts.calibration_text.get(), failure));
}

bool EurocWriter::write(const oru::Mat& image, oru::RecordedFile& source) {
    const auto* pixels = image.getPtr<unsigned char>(oru::CPU);
    for (std::size_t i = 0; i < gray.size(); ++i) {
        gray[i] = pixels[2 * i];
    }
    const std::string name = fmt::format("{}.png", image.timestamp);
    if (!encoder.write(images / name, {gray.data(), width, height, width, true}, failure)) {
        return false;
    }
    frameTable.write(fmt::format("{},{}\n", image.timestamp, name));
    writeSamples(source.samples());
    return !(frameTable.failed() || sampleTable.failed()) ||
           fail(frameTable.failed() ? frameTable.error() : sampleTable.error());
}

void EurocWriter::writeSamples(const std::vector<oru::RecordedSample>& samples) {
    for (const oru::RecordedSample& sample : samples) {
        if (sample.timestamp <= lastSampleNs) {
            continue;
        }
        lastSampleNs = sample.timestamp;
        const auto& rate = sample.angular_velocity;
        const auto& force = sample.linear_acceleration;
        sampleTable.write(fmt::format("{},{},{},{},{},{},{}\n", sample.timestamp, radians(rate[0]), radians(rate[1]),
                                      radians(rate[2]), force[0], force[1], force[2]));
    }
}

bool EurocWriter::finish() {
    const bool frames = frameTable.close();
    const bool samples = sampleTable.close();
    return (frames && samples) || fail(frames ? sampleTable.error() : frameTable.error());
}

}  // namespace koruone
