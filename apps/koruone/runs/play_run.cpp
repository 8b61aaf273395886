#include "koruone/runs/play_run.hpp"

#include <fmt/core.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "koruone/camera/open_camera.hpp"
#include "koruone/output/picture_file.hpp"
#include "shared/interrupt.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr const char* kExplorer = "koru-explorer";

/// The terminal without echo and line editing, on a screen of its own, until the end of the scope.
class PictureScreen {
public:
    PictureScreen() : keyboard(::isatty(STDIN_FILENO) == 1 && ::tcgetattr(STDIN_FILENO, &before) == 0) {
        if (keyboard) {
            termios raw = before;
            raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
            (void)::tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        }
        writeOutput("\x1b[?1049h\x1b[?25l");
    }
    ~PictureScreen() {
        writeOutput("\x1b[0m\x1b[?25h\x1b[?1049l");
        (void)std::fflush(stdout);
        if (keyboard) {
            (void)::tcsetattr(STDIN_FILENO, TCSANOW, &before);
        }
    }
    PictureScreen(const PictureScreen&) = delete;
    PictureScreen& operator=(const PictureScreen&) = delete;

    [[nodiscard]] bool quitPressed() const {
        pollfd ready{STDIN_FILENO, POLLIN, 0};
        char key = 0;
        while (keyboard && ::poll(&ready, 1, 0) == 1 && ::read(STDIN_FILENO, &key, 1) == 1) {
            if (key == 'q' || key == 'Q') {
                return true;
            }
        }
        return false;
    }

private:
    termios before{};
    bool keyboard;
};

bool isProgram(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::string findExplorer() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::filesystem::path beside = self.parent_path() / kExplorer;
    if (!error && isProgram(beside)) {
        return beside.string();
    }
    const char* path = std::getenv("PATH");
    std::string_view folders = path == nullptr ? "" : path;
    while (!folders.empty()) {
        const std::size_t end = std::min(folders.find(':'), folders.size());
        const std::filesystem::path candidate = std::filesystem::path(folders.substr(0, end)) / kExplorer;
        if (end > 0 && isProgram(candidate)) {
            return candidate.string();
        }
        folders.remove_prefix(std::min(end + 1, folders.size()));
    }
    return "";
}

ExitStatus openInExplorer(const std::string& explorer, const PlayOptions& options) {
    (void)std::fflush(nullptr);
    ::execl(explorer.c_str(), kExplorer, options.input.file.c_str(), static_cast<char*>(nullptr));
    complain("{} cannot be started: {}; use --no-display or install it again.", explorer, std::strerror(errno));
    return EXIT_FAILED;
}

PlayRun::PlayRun(PlayOptions given)
    : options(std::move(given)), loop([this] { return camera.grab(); }, oru::KIND_RLX_FILE, nullptr) {
    options.input.realtime = true;
}

ExitStatus PlayRun::run() {
    const InterruptGuard guard;
    if (const ExitStatus opened = openCamera(camera, options.input); opened != EXIT_OK) {
        return opened;
    }
    if (options.from > 0 && camera.setRLXPosition(options.from) != oru::SUCCESS) {
        complain("{} has {} frames; there is no frame {}.", options.input.file, camera.getRLXNumberOfFrames(),
                 options.from);
        return EXIT_FAILED;
    }
    bool played = false;
    {
        const PictureScreen screen;
        played = loop.run([&] { return outputWorks() && !screen.quitPressed(); }, [this] { return draw(); });
    }
    const oru::FrameCounters counters = camera.getFrameCounters();
    writeOutput(fmt::format("{}: {} shown, {} left out to keep the pace, {} damaged\n", options.input.file,
                            counted(loop.frames(), "frame"), counters.late, counters.damaged + counters.decode_failed));
    return played ? EXIT_OK : EXIT_FAILED;
}

oru::Resolution PlayRun::pictureSize() const {
    const TerminalSize terminal = terminalSize(STDOUT_FILENO);
    const oru::Resolution whole = camera.getCameraInformation().configuration.resolution;
    // A cell shows two pixels, one above the other; the last line tells the time.
    const double across = static_cast<double>(std::min(terminal.columns, static_cast<std::size_t>(whole.width)));
    const double down = 2.0 * static_cast<double>(std::max<std::size_t>(terminal.rows, 3) - 2);
    const double form = static_cast<double>(whole.height) / static_cast<double>(whole.width);
    const double width = std::min(across, down / form);
    const auto even = [](double side) { return std::max<uint64_t>(2, static_cast<uint64_t>(side / 2.0) * 2); };
    return {even(width), even(width * form)};
}

bool PlayRun::draw() {
    if (const oru::ERROR_CODE code = camera.retrieveImage(image, oru::UNRECTIFIED, oru::CPU, pictureSize());
        code != oru::SUCCESS) {
        complain(code, "cannot show the picture", Subject::RECORDING);
        return false;
    }
    writeOutput("\x1b[H" + halfBlocks(viewOf(image)) +
                fmt::format("frame {} of {}, q ends\x1b[K", camera.getRLXPosition(), camera.getRLXNumberOfFrames()));
    (void)std::fflush(stdout);
    return true;
}

}  // namespace koruone
