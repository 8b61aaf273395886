#pragma once

#include <memory>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace oru::coding {

/// Frees an object of the coding libraries.
struct AvDelete {
    void operator()(AVCodecContext* context) const;
    void operator()(AVFrame* image) const;
    void operator()(AVPacket* packet) const;
    void operator()(SwsContext* scaler) const;
};
template <class T>
using AvPtr = std::unique_ptr<T, AvDelete>;

/// Closes a file that is read.
struct AvCloseInput {
    void operator()(AVFormatContext* input) const;
};
using AvInput = std::unique_ptr<AVFormatContext, AvCloseInput>;

}  // namespace oru::coding
