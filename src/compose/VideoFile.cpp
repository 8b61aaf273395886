#include "oru/VideoFile.hpp"

#include "compose/built_in_factory.hpp"
#include "compose/modules/modules.hpp"

namespace oru {

struct VideoFileWriter::Opened {
    std::unique_ptr<VideoWriter> writer;
    Resolution size;
    bool writable = false;
};

VideoFileWriter::VideoFileWriter() : opened(std::make_unique<Opened>()) {
    registerBuiltInFactory();
}
VideoFileWriter::~VideoFileWriter() = default;

ERROR_CODE VideoFileWriter::open(const String& path, const VideoFileParameters& parameters) {
    *opened = {};
    const std::unique_ptr<RecordingTools> tools = recordingTools();
    if (tools == nullptr) {
        return NOT_SUPPORTED;
    }
    rlxrw::RlxRecordingHeader facts;
    facts.width = static_cast<uint32_t>(parameters.size.width);
    facts.height = static_cast<uint32_t>(parameters.size.height);
    facts.fps = parameters.fps;
    facts.compression_mode = parameters.compression_mode;
    facts.bitrate = parameters.bitrate;
    opened->size = parameters.size;
    opened->writer = tools->makeVideoWriter();
    const ERROR_CODE code = opened->writer->open(path.get(), facts);
    opened->writable = code == SUCCESS;
    return code;
}

ERROR_CODE VideoFileWriter::write(const Mat& image) {
    if (!opened->writable) {
        return INVALID_CALL;
    }
    const auto* pixels = image.getPtr<unsigned char>(CPU);
    const Resolution size{image.getWidth(), image.getHeight()};
    if (image.getDataType() != U8_C2 || size != opened->size || pixels == nullptr) {
        return INVALID_PARAMETER;
    }
    opened->writable = opened->writer->write(pixels, image.timestamp);
    return opened->writable ? SUCCESS : FAILURE;
}

ERROR_CODE VideoFileWriter::close() {
    if (!opened->writable) {
        return INVALID_CALL;
    }
    opened->writable = false;
    return opened->writer->finish() ? SUCCESS : FAILURE;
}

String VideoFileWriter::error() const {
    return opened->writer == nullptr ? String{} : String{opened->writer->error()};
}

}  // namespace oru
