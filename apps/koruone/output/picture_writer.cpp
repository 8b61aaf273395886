#include "koruone/output/picture_writer.hpp"

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

PictureWriter::PictureWriter(std::filesystem::path directory) : folder(std::move(directory)) {
    for (oru::Mat& picture : pictures) {
        unused.push_back(&picture);
    }
    worker = std::thread([this] { run(); });
}

PictureWriter::~PictureWriter() {
    (void)finish();
}

bool PictureWriter::hasRoom() {
    const oru::MutexLock lock(mutex);
    return !unused.empty();
}

oru::Mat* PictureWriter::acquire() {
    const oru::MutexLock lock(mutex);
    while (unused.empty() && failure.empty()) {
        const uint64_t before = finished;
        if (changed.wait_for(mutex, kWriterPatience) == std::cv_status::timeout && finished == before) {
            failure = fmt::format("{} takes no picture for {} s", folder.string(), kWriterPatience.count());
        }
    }
    if (!failure.empty()) {
        return nullptr;
    }
    oru::Mat* picture = unused.back();
    unused.pop_back();
    return picture;
}

void PictureWriter::submit(oru::Mat* picture, uint64_t frame) {
    const oru::MutexLock lock(mutex);
    waiting.push_back({picture, frame});
    changed.notify_all();
}

void PictureWriter::release(oru::Mat* picture) {
    const oru::MutexLock lock(mutex);
    unused.push_back(picture);
}

bool PictureWriter::finish() {
    {
        const oru::MutexLock lock(mutex);
        ending = true;
        changed.notify_all();
    }
    if (worker.joinable()) {
        worker.join();
        std::string reason;
        const bool sheetKept = sheet.write(folder / "contact_sheet.png", encoder, reason);
        const oru::MutexLock lock(mutex);
        if (!sheetKept && failure.empty()) {
            failure = reason;
        }
    }
    return error().empty();
}

std::string PictureWriter::error() {
    const oru::MutexLock lock(mutex);
    return failure;
}

uint64_t PictureWriter::written() {
    const oru::MutexLock lock(mutex);
    return finished;
}

void PictureWriter::run() {
    Job job;
    while (takeJob(job)) {
        writeJob(job);
    }
}

bool PictureWriter::takeJob(Job& job) {
    const oru::MutexLock lock(mutex);
    while (waiting.empty() && !ending) {
        changed.wait(mutex);
    }
    if (waiting.empty() || !failure.empty()) {
        return false;
    }
    job = waiting.front();
    waiting.pop_front();
    return true;
}

void PictureWriter::writeJob(const Job& job) {
    std::string reason;
    const PictureView view = viewOf(*job.picture);
    const bool ok =
        view.pixels != nullptr && encoder.write(folder / fmt::format("frame_{:06}.png", job.frame), view, reason);
    if (ok) {
        sheet.offer(job.frame, view);
    }
    const oru::MutexLock lock(mutex);
    unused.push_back(job.picture);
    finished += ok ? 1 : 0;
    if (!ok && failure.empty()) {
        failure = reason.empty() ? "a picture without pixels was queued" : reason;
    }
    changed.notify_all();
}

}  // namespace koruone
