#include "shared/report.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include "oru/logging.hpp"

namespace koruone {
namespace {

struct CodeText {
    oru::ERROR_CODE code;
    const char* name;
    const char* advice;
};

constexpr std::array kCodeTexts{
    CodeText{oru::CONFIGURATION_ADJUSTED, "CONFIGURATION_ADJUSTED",
             "the size does not go with this HDR mode: add or remove --hdr"},
    CodeText{oru::CAMERA_UNAVAILABLE, "CAMERA_UNAVAILABLE",
             "the camera was lost: check its cable, then run the command again"},
    CodeText{oru::SUCCESS, "SUCCESS", "nothing to do"},
    CodeText{oru::FAILURE, "FAILURE", "the device or the input failed: check its cable and the messages above"},
    CodeText{oru::STREAM_SETUP_FAILED, "STREAM_SETUP_FAILED",
             "check the address, the port and the key, that the sender is running, and that no firewall blocks it"},
    CodeText{oru::DEVICE_NOT_FOUND, "DEVICE_NOT_FOUND", "choose a camera that 'koruone devices' lists"},
    CodeText{oru::SENSORS_SERIAL_INVALID, "SENSORS_SERIAL_INVALID",
             "the sensor board answers with another serial number: run 'koruone reboot', then try again"},
    CodeText{oru::SENSOR_DATA_UNAVAILABLE, "SENSOR_DATA_UNAVAILABLE",
             "the sensor board gives no data: unplug and plug the camera, or run 'koruone reboot'"},
    CodeText{oru::RESOLUTION_NOT_SUPPORTED, "RESOLUTION_NOT_SUPPORTED",
             "choose a --size that is not larger than the image, or another --resolution"},
    CodeText{oru::CALIBRATION_MISSING, "CALIBRATION_MISSING",
             "run 'koruone calib --serial N --refresh', or copy the camera's SN<serial>.conf into a settings directory "
             "that can be written and name it with --settings"},
    CodeText{oru::CALIBRATION_INCOMPLETE, "CALIBRATION_INCOMPLETE",
             "the calibration file has nothing for this size: run 'koruone calib --serial N --refresh', or choose "
             "another --resolution"},
    CodeText{oru::RLX_FILE_UNREADABLE, "RLX_FILE_UNREADABLE", "name a recording that 'koruone verify' finds intact"},
    CodeText{oru::RLX_CODEC_UNAVAILABLE, "RLX_CODEC_UNAVAILABLE",
             "this machine has no codec for that compression: record in another one (lossless and raw always work), or "
             "convert the recording where it was made"},
    CodeText{oru::END_OF_INPUT, "END_OF_INPUT", "the input has ended"},
    CodeText{oru::INVALID_PARAMETER, "INVALID_PARAMETER",
             "a value is outside what this input takes: see 'koruone controls list' and --help"},
    CodeText{oru::CAMERA_NOT_READY, "CAMERA_NOT_READY", "no frame came in time: check the cable and try again"},
    CodeText{oru::INVALID_CALL, "INVALID_CALL", "this input does not offer that"},
    CodeText{oru::INSTALLATION_DAMAGED, "INSTALLATION_DAMAGED", "install the camera software again"},
    CodeText{oru::DEVICE_SETUP_FAILED, "DEVICE_SETUP_FAILED",
             "the camera refused this set-up: try another --resolution or --fps, or run 'koruone reboot'"},
    CodeText{oru::CAMERA_IN_USE, "CAMERA_IN_USE",
             "end the program that holds the camera, or choose one that 'koruone devices' lists as free"},
    CodeText{oru::NOT_SUPPORTED, "NOT_SUPPORTED", "this input or this camera model does not offer that"},
    CodeText{oru::SENSORS_NOT_PRESENT, "SENSORS_NOT_PRESENT", "this input carries no sensors: choose another one"},
};

// Where no cable is that could be checked.
constexpr std::array kStreamTexts{
    CodeText{oru::CAMERA_UNAVAILABLE, "CAMERA_UNAVAILABLE",
             "the stream was lost: check that the sender runs, then run the command again"},
    CodeText{oru::FAILURE, "FAILURE",
             "check that it is a camera of this system that sends there, or run it again with -v"},
    CodeText{oru::CAMERA_NOT_READY, "CAMERA_NOT_READY",
             "no frame came in time: check that the sender still runs and the network reaches it"},
    CodeText{oru::SENSOR_DATA_UNAVAILABLE, "SENSOR_DATA_UNAVAILABLE", "the sender has sent no inertial data yet"},
};
constexpr std::array kFileTexts{
    CodeText{oru::CAMERA_UNAVAILABLE, "CAMERA_UNAVAILABLE", "the recording was closed: run the command again"},
    CodeText{oru::FAILURE, "FAILURE", "check the recording with 'koruone verify', or run it again with -v"},
    CodeText{oru::CAMERA_NOT_READY, "CAMERA_NOT_READY", "check the recording with 'koruone verify'"},
    CodeText{oru::SENSOR_DATA_UNAVAILABLE, "SENSOR_DATA_UNAVAILABLE", "the recording has no inertial data here"},
};

constexpr std::array kRecorderTexts{
    CodeText{oru::INVALID_PARAMETER, "INVALID_PARAMETER", "choose another file, in a directory that can be written"},
    CodeText{oru::FAILURE, "FAILURE", "make room or choose another file; what was written can be played"},
};
constexpr std::array kSenderTexts{
    CodeText{oru::STREAM_SETUP_FAILED, "STREAM_SETUP_FAILED", "choose another --port, and keys as the guide tells"},
    CodeText{oru::FAILURE, "FAILURE", "choose another --codec or a smaller --resolution"},
};

std::span<const CodeText> textsOf(Subject subject) {
    switch (subject) {
        case Subject::STREAM:
            return kStreamTexts;
        case Subject::RECORDING:
            return kFileTexts;
        case Subject::RECORDER:
            return kRecorderTexts;
        case Subject::SENDER:
            return kSenderTexts;
        default:
            return {};
    }
}

const CodeText* find(std::span<const CodeText> texts, oru::ERROR_CODE code) {
    const auto found =
        std::find_if(texts.begin(), texts.end(), [&](const CodeText& text) { return text.code == code; });
    return found == texts.end() ? nullptr : &*found;
}

const CodeText* find(oru::ERROR_CODE code, Subject subject = Subject::CAMERA) {
    const CodeText* special = find(textsOf(subject), code);
    return special != nullptr ? special : find(kCodeTexts, code);
}

}  // namespace

std::string codeName(oru::ERROR_CODE code) {
    const CodeText* text = find(code);
    return text != nullptr ? text->name : fmt::format("ERROR_CODE {}", static_cast<int>(code));
}

Subject subjectOf(oru::InputKind input) {
    if (input == oru::KIND_STREAM) {
        return Subject::STREAM;
    }
    return input == oru::KIND_RLX_FILE ? Subject::RECORDING : Subject::CAMERA;
}

void complain(oru::ERROR_CODE code, std::string_view what, Subject subject, std::string_view reason) {
    const CodeText* text = find(code, subject);
    const std::string advice = text != nullptr ? text->advice : "run it again with -v to see more";
    if (reason.empty()) {
        complain("{}: {}; {}.", what, codeName(code), advice);
        return;
    }
    const std::size_t end = reason.find("; ");
    complain("{}: {} ({}); {}.", what, reason.substr(0, end), codeName(code),
             end == std::string_view::npos ? advice : reason.substr(end + 2));
}

void complain(oru::ERROR_CODE code, std::string_view what, Subject subject) {
    complain(code, what, subject, oru::lastErrorReason().get());
}

void writeComplaint(std::string_view text) {
    std::fflush(stdout);
    // What the library has to say about it comes first.
    oru::flushLog();
    (void)fmt::print(stderr, "koruone: {}\n", text);
}

std::string counted(uint64_t count, const char* noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string streamText(const oru::StreamInputStatus& status) {
    return fmt::format("{}, {} dropped{}", counted(status.reconnections, "reconnection"),
                       counted(status.samples_dropped, "inertial sample"),
                       status.goodbye ? ", ended by the sender" : "");
}

void writeOutput(std::string_view text) {
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
}

bool outputWorks() {
    return std::ferror(stdout) == 0;
}

ExitStatus finishOutput(ExitStatus status) {
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    if (flushed && outputWorks()) {
        return status;
    }
    if (errno != EPIPE && errno != 0) {
        writeComplaint(fmt::format("cannot write the results: {}.", std::strerror(errno)));
    }
    return status == EXIT_OK ? EXIT_FAILED : status;
}

}  // namespace koruone
