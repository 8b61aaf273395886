#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "koruone/output/ContactSheet.hpp"
#include "oru/Mat.hpp"

namespace koruone {

/// Takes away what an ImageWriter and its table wrote into the directory before. False: something stays; `error` says
/// why.
bool removePictures(const std::filesystem::path& directory, std::string& error);

/// Writes images as DIR/frame_000000.png (numbered by frame) on a thread of its own, behind a bounded queue, and
/// keeps a contact sheet of them. No image is dropped: with a full queue the caller waits. Threads: one caller.
class ImageWriter {
public:
    static constexpr std::size_t kQueueLength = 8;

    explicit ImageWriter(std::filesystem::path directory);
    /// Finishes what is queued.
    ~ImageWriter();
    ImageWriter(const ImageWriter&) = delete;
    ImageWriter& operator=(const ImageWriter&) = delete;

    /// An empty place right now? Otherwise acquire will wait.
    [[nodiscard]] bool hasRoom();
    /// A container to fill, to be given back by submit or release. Waits while the queue is full; null when writing
    /// failed, or when no image was finished for ten seconds. Its memory is reused from image to image.
    oru::Mat* acquire();
    /// Queues the container as image of this frame; it must hold host memory.
    void submit(oru::Mat* image, uint64_t frame);
    void release(oru::Mat* image);

    /// Writes what is queued and DIR/contact_sheet.png, and ends the thread. False: something was not written.
    bool finish();
    /// The first failure, empty while there is none.
    [[nodiscard]] std::string error();
    [[nodiscard]] uint64_t written();

private:
    struct Job {
        oru::Mat* image = nullptr;
        uint64_t frame = 0;
    };

    void run();
    bool takeJob(Job& job);
    void writeJob(const Job& job);

    std::filesystem::path folder;
    PngEncoder encoder;  // this and the sheet are the writer thread's until it has ended
    ContactSheet sheet;
    std::array<oru::Mat, kQueueLength> images;

    // Guards everything up to the thread; held inside each operation, never while an image is written.
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<oru::Mat*> unused;
    std::deque<Job> waiting;
    bool ending = false;
    uint64_t finished = 0;
    std::string failure;

    std::thread worker;  // last: it uses all of the above
};

}  // namespace koruone
