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

bool EurocWriter::open(const std::string& path, const oru::rlxrw::RlxRecordingHeader& facts) {
    width = facts.width;
    height = facts.height;
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
            writeTextFile(root / "cam0" / calibration, facts.calibration_text, failure));
}

bool EurocWriter::write(const ConvertedFrame& frame) {
    for (std::size_t i = 0; i < gray.size(); ++i) {
        gray[i] = frame.pixels[2 * i];
    }
    const std::string name = fmt::format("{}.png", frame.time);
    if (!encoder.write(images / name, {gray.data(), width, height, width, true}, failure)) {
        return false;
    }
    frameTable.write(fmt::format("{},{}\n", frame.time, name));
    writeSamples(frame.source->getFrameIMUPackets());
    return !(frameTable.failed() || sampleTable.failed()) ||
           fail(frameTable.failed() ? frameTable.error() : sampleTable.error());
}

void EurocWriter::writeSamples(const std::vector<oru::IMUPacket>& packets) {
    for (const oru::IMUPacket& packet : packets) {
        if (packet.imu_timestamp <= lastSampleNs) {
            continue;
        }
        lastSampleNs = packet.imu_timestamp;
        // The stored vectors 3 and 4 are the calibrated rate and force, see the guide.
        const auto& rate = packet.vector_3;
        const auto& force = packet.vector_4;
        sampleTable.write(fmt::format("{},{},{},{},{},{},{}\n", packet.imu_timestamp, radians(rate[0]),
                                      radians(rate[1]), radians(rate[2]), force[0], force[1], force[2]));
    }
}

bool EurocWriter::finish() {
    const bool frames = frameTable.close();
    const bool samples = sampleTable.close();
    return (frames && samples) || fail(frames ? sampleTable.error() : frameTable.error());
}

}  // namespace koruone
