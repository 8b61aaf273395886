#include "picture_writer.hpp"

#include <fmt/core.h>

#include <chrono>
#include <utility>

namespace koruone {
namespace {

constexpr std::chrono::seconds kWriterPatience{10};

PictureView viewOf(const oru::Mat& picture) {
    return {picture.getPtr<unsigned char>(oru::CPU), picture.getWidth(), picture.getHeight(),
            picture.getStepBytes(oru::CPU), picture.getDataType() == oru::U8_C1};
}

}  // namespace

PictureWriter::PictureWriter(std::filesystem::path directory) : directory_(std::move(directory)) {
    for (oru::Mat& picture : pictures_) {
        free_.push_back(&picture);
    }
    thread_ = std::thread([this] { run(); });
}

PictureWriter::~PictureWriter() {
    (void)finish();
}

bool PictureWriter::hasRoom() {
    const oru::MutexLock lock(mutex_);
    return !free_.empty();
}

oru::Mat* PictureWriter::acquire() {
    const oru::MutexLock lock(mutex_);
    while (free_.empty() && error_.empty()) {
        const uint64_t before = written_;
        if (changed_.wait_for(mutex_, kWriterPatience) == std::cv_status::timeout && written_ == before) {
            error_ = fmt::format("{} takes no picture for {} s", directory_.string(), kWriterPatience.count());
        }
    }
    if (!error_.empty()) {
        return nullptr;
    }
    oru::Mat* picture = free_.back();
    free_.pop_back();
    return picture;
}

void PictureWriter::submit(oru::Mat* picture, uint64_t frame) {
    const oru::MutexLock lock(mutex_);
    queued_.push_back({picture, frame});
    changed_.notify_all();
}

void PictureWriter::release(oru::Mat* picture) {
    const oru::MutexLock lock(mutex_);
    free_.push_back(picture);
}

bool PictureWriter::finish() {
    {
        const oru::MutexLock lock(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) {
        thread_.join();
        std::string reason;
        const bool sheet = sheet_.write(directory_ / "contact_sheet.png", encoder_, reason);
        const oru::MutexLock lock(mutex_);
        if (!sheet && error_.empty()) {
            error_ = reason;
        }
    }
    return error().empty();
}

std::string PictureWriter::error() {
    const oru::MutexLock lock(mutex_);
    return error_;
}

uint64_t PictureWriter::written() {
    const oru::MutexLock lock(mutex_);
    return written_;
}

void PictureWriter::run() {
    Job job;
    while (takeJob(job)) {
        writeJob(job);
    }
}

bool PictureWriter::takeJob(Job& job) {
    const oru::MutexLock lock(mutex_);
    while (queued_.empty() && !ending_) {
        changed_.wait(mutex_);
    }
    if (queued_.empty() || !error_.empty()) {
        return false;
    }
    job = queued_.front();
    queued_.pop_front();
    return true;
}

void PictureWriter::writeJob(const Job& job) {
    std::string reason;
    const PictureView view = viewOf(*job.picture);
    const bool ok =
        view.pixels != nullptr && encoder_.write(directory_ / fmt::format("frame_{:06}.png", job.frame), view, reason);
    if (ok) {
        sheet_.offer(job.frame, view);
    }
    const oru::MutexLock lock(mutex_);
    free_.push_back(job.picture);
    written_ += ok ? 1 : 0;
    if (!ok && error_.empty()) {
        error_ = reason.empty() ? "a picture without pixels was queued" : reason;
    }
    changed_.notify_all();
}

}  // namespace koruone
