#include "koruone/output/ImageWriter.hpp"

#include <fmt/core.h>

#include <chrono>
#include <utility>

#include "koruone/output/picture_file.hpp"

namespace koruone {
namespace {

constexpr std::chrono::seconds kWriterPatience{10};

bool isPicture(const std::string& name) {
    return (name.starts_with("frame_") && name.ends_with(".png")) || name == "frames.csv" ||
           name == "contact_sheet.png";
}

}  // namespace

bool removePictures(const std::filesystem::path& directory, std::string& error) {
    std::error_code code;
    for (const auto& entry : std::filesystem::directory_iterator(directory, code)) {
        if (isPicture(entry.path().filename().string()) && !std::filesystem::remove(entry.path(), code)) {
            error = fmt::format("cannot remove {}: {}", entry.path().string(), code.message());
            return false;
        }
    }
    return true;
}

ImageWriter::ImageWriter(std::filesystem::path directory) : folder(std::move(directory)) {
    for (oru::Mat& image : images) {
        unused.push_back(&image);
    }
    worker = std::thread([this] { run(); });
}

ImageWriter::~ImageWriter() {
    (void)finish();
}

bool ImageWriter::hasRoom() {
    const std::lock_guard lock(mutex);
    return !unused.empty();
}

oru::Mat* ImageWriter::acquire() {
    std::unique_lock lock(mutex);
    while (unused.empty() && failure.empty()) {
        const uint64_t before = finished;
        if (changed.wait_for(lock, kWriterPatience) == std::cv_status::timeout && finished == before) {
            failure = fmt::format("{} takes no picture for {} s", folder.string(), kWriterPatience.count());
        }
    }
    if (!failure.empty()) {
        return nullptr;
    }
    oru::Mat* image = unused.back();
    unused.pop_back();
    return image;
}

void ImageWriter::submit(oru::Mat* image, uint64_t frame) {
    const std::lock_guard lock(mutex);
    waiting.push_back({image, frame});
    changed.notify_all();
}

void ImageWriter::release(oru::Mat* image) {
    const std::lock_guard lock(mutex);
    unused.push_back(image);
}

bool ImageWriter::finish() {
    {
        const std::lock_guard lock(mutex);
        ending = true;
        changed.notify_all();
    }
    if (worker.joinable()) {
        worker.join();
        std::string reason;
        const bool sheetKept = sheet.write(folder / "contact_sheet.png", encoder, reason);
        const std::lock_guard lock(mutex);
        if (!sheetKept && failure.empty()) {
            failure = reason;
        }
    }
    return error().empty();
}

std::string ImageWriter::error() {
    const std::lock_guard lock(mutex);
    return failure;
}

uint64_t ImageWriter::written() {
    const std::lock_guard lock(mutex);
    return finished;
}

void ImageWriter::run() {
    Job job;
    while (takeJob(job)) {
        writeJob(job);
    }
}

bool ImageWriter::takeJob(Job& job) {
    std::unique_lock lock(mutex);
    while (waiting.empty() && !ending) {
        changed.wait(lock);
    }
    if (waiting.empty() || !failure.empty()) {
        return false;
    }
    job = waiting.front();
    waiting.pop_front();
    return true;
}

void ImageWriter::writeJob(const Job& job) {
    std::string reason;
    const ImageView view = viewOf(*job.image);
    const bool ok =
        view.pixels != nullptr && encoder.write(folder / fmt::format("frame_{:06}.png", job.frame), view, reason);
    if (ok) {
        sheet.offer(job.frame, view);
    }
    const std::lock_guard lock(mutex);
    unused.push_back(job.image);
    finished += ok ? 1 : 0;
    if (!ok && failure.empty()) {
        failure = reason.empty() ? "a picture without pixels was queued" : reason;
    }
    changed.notify_all();
}

}  // namespace koruone
