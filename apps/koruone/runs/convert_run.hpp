#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backends/rlx/file/open_recording.hpp"
#include "collaborators/RLXVideo.hpp"
#include "shared/Progress.hpp"
#include "shared/exit_status.hpp"

namespace koruone {

struct ConvertOptions {
    std::string file;
    std::string output;
    std::optional<oru::RLX_COMPRESSION_MODE> compression;  ///< none: as recorded, or what the output needs
    bool overwrite = false;
};

/// One frame on its way into another form; the pointers are borrowed for the call.
struct ConvertedFrame {
    const unsigned char* pixels = nullptr;  ///< YUYV, one block
    std::size_t size = 0;
    oru::Timestamp time = 0;
    oru::rlxrw::RLXVideo* source = nullptr;  ///< tells the frame's metadata and samples
};

/// Where converted frames go. After a false result error() says why and nothing more is written.
class FrameTarget {
public:
    virtual ~FrameTarget() = default;
    [[nodiscard]] virtual bool open(const std::string& path, const oru::rlxrw::RlxRecordingHeader& facts) = 0;
    [[nodiscard]] virtual bool write(const ConvertedFrame& frame) = 0;
    [[nodiscard]] virtual bool finish() = 0;
    [[nodiscard]] virtual const std::string& error() const = 0;
};

/// One `koruone convert`, from a file, without a camera. The form follows the output's name: .rlx, .rlx2 and .mkv are
/// recordings, .mp4 is a video, a name without an ending is a directory in the EuRoC layout.
class ConvertRun {
public:
    explicit ConvertRun(ConvertOptions given);

    ExitStatus run();

private:
    bool openInput();
    bool chooseTarget();
    bool makeWay();
    bool copyFrames();

    ConvertOptions options;
    oru::rlx::HeaderRecord header;
    std::unique_ptr<oru::rlxrw::RLXVideo> reader;
    std::unique_ptr<FrameTarget> target;
    Progress progress{"convert"};
    uint64_t frameCount = 0;
};

}  // namespace koruone
