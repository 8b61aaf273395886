#include "koruone/output/EurocWriter.hpp"

#include <utility>

#include "koruone/output/euroc_text.hpp"
#include "koruone/output/picture_file.hpp"

namespace koruone {
namespace {

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

bool EurocWriter::open(const std::string& path, oru::RecordedFile& source, const FrameFacts& facts) {
    const std::filesystem::path root = std::filesystem::path(path) / "mav0";
    std::error_code error;
    if (facts.overwrite && std::filesystem::remove_all(root, error) == static_cast<std::uintmax_t>(-1)) {
        return fail("cannot remove " + root.string() + ": " + error.message());
    }
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
    return writeSensors(root, source.facts(), facts);
}

bool EurocWriter::writeSensors(const std::filesystem::path& root, const oru::RecordingFacts& recorded,
                               const FrameFacts& facts) {
    const std::string calibration = "SN" + std::to_string(recorded.serial_number) + ".conf";
    return writeTextFile(root / "body.yaml", "comment: KORU One " + std::to_string(recorded.serial_number) + "\n",
                         failure) &&
           writeTextFile(root / "cam0" / "sensor.yaml", eurocCameraText(recorded, facts), failure) &&
           writeTextFile(root / "imu0" / "sensor.yaml", eurocInertialText(facts), failure) &&
           (recorded.calibration_text.empty() ||
            writeTextFile(root / "cam0" / calibration, recorded.calibration_text.get(), failure));
}

bool EurocWriter::write(const ConvertedFrame& frame) {
    const std::string name = std::to_string(frame.image.timestamp) + ".png";
    if (!writeImage(images / name, frame.image)) {
        return false;
    }
    frameTable.write(std::to_string(frame.image.timestamp) + "," + name + "\n");
    writeSamples(frame.samples);
    return !(frameTable.failed() || sampleTable.failed()) ||
           fail(frameTable.failed() ? frameTable.error() : sampleTable.error());
}

bool EurocWriter::writeImage(const std::filesystem::path& path, const oru::Mat& image) {
    if (image.getDataType() != oru::U8_C2) {
        return encoder.write(path, viewOf(image), failure);
    }
    const auto* pixels = image.getPtr<unsigned char>(oru::CPU);
    gray.resize(image.getWidth() * image.getHeight());
    for (std::size_t i = 0; i < gray.size(); ++i) {
        gray[i] = pixels[2 * i];
    }
    return encoder.write(path, {gray.data(), image.getWidth(), image.getHeight(), image.getWidth(), true}, failure);
}

void EurocWriter::writeSamples(const std::vector<oru::RecordedSample>& samples) {
    for (const oru::RecordedSample& sample : samples) {
        if (sample.timestamp > lastSampleNs) {
            lastSampleNs = sample.timestamp;
            sampleTable.write(eurocSampleLine(sample));
        }
    }
}

bool EurocWriter::finish() {
    const bool frames = frameTable.close();
    const bool samples = sampleTable.close();
    return (frames && samples) || fail(frames ? sampleTable.error() : frameTable.error());
}

}  // namespace koruone
