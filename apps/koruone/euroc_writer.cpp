#include "euroc_writer.hpp"

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
    error_ = std::move(reason);
    return false;
}

bool EurocWriter::open(const std::string& path, const oru::rlxrw::RlxRecordingHeader& facts) {
    width_ = facts.width;
    height_ = facts.height;
    gray_.resize(width_ * height_);
    const std::filesystem::path root = std::filesystem::path(path) / "mav0";
    pictures_ = root / "cam0" / "data";
    if (!makeDirectory(pictures_, error_) || !makeDirectory(root / "imu0", error_)) {
        return false;
    }
    if (!frames_.open(root / "cam0" / "data.csv") || !samples_.open(root / "imu0" / "data.csv")) {
        return fail(frames_.failed() ? frames_.error() : samples_.error());
    }
    frames_.write("#timestamp [ns],filename\n");
    samples_.write(
        "#timestamp [ns],w_RS_S_x [rad s^-1],w_RS_S_y [rad s^-1],w_RS_S_z [rad s^-1],"
        "a_RS_S_x [m s^-2],a_RS_S_y [m s^-2],a_RS_S_z [m s^-2]\n");
    const std::string sensor = fmt::format("sensor_type: camera\nrate_hz: {}\nresolution: [{}, {}]\n",
                                           static_cast<double>(facts.fps), width_, height_);
    const std::string calibration = fmt::format("SN{}.conf", facts.serial_number);
    return writeTextFile(root / "cam0" / "sensor.yaml", sensor, error_) &&
           writeTextFile(root / "imu0" / "sensor.yaml", "sensor_type: imu\n", error_) &&
           (facts.calibration_text.empty() ||
            writeTextFile(root / "cam0" / calibration, facts.calibration_text, error_));
}

bool EurocWriter::write(const ConvertedFrame& frame) {
    for (std::size_t i = 0; i < gray_.size(); ++i) {
        gray_[i] = frame.pixels[2 * i];
    }
    const std::string name = fmt::format("{}.png", frame.time);
    if (!encoder_.write(pictures_ / name, {gray_.data(), width_, height_, width_, true}, error_)) {
        return false;
    }
    frames_.write(fmt::format("{},{}\n", frame.time, name));
    writeSamples(frame.source->getFrameIMUPackets());
    return !(frames_.failed() || samples_.failed()) || fail(frames_.failed() ? frames_.error() : samples_.error());
}

void EurocWriter::writeSamples(const std::vector<oru::IMUPacket>& packets) {
    for (const oru::IMUPacket& packet : packets) {
        if (packet.imu_timestamp <= last_sample_ns_) {
            continue;
        }
        last_sample_ns_ = packet.imu_timestamp;
        // The stored vectors 3 and 4 are the calibrated rate and force, see the guide.
        const auto& rate = packet.vector_3;
        const auto& force = packet.vector_4;
        samples_.write(fmt::format("{},{},{},{},{},{},{}\n", packet.imu_timestamp, radians(rate[0]), radians(rate[1]),
                                   radians(rate[2]), force[0], force[1], force[2]));
    }
}

bool EurocWriter::finish() {
    const bool frames = frames_.close();
    const bool samples = samples_.close();
    return (frames && samples) || fail(frames ? samples_.error() : frames_.error());
}

}  // namespace koruone
