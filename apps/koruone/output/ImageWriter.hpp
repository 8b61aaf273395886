#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "koruone/output/ContactSheet.hpp"
#include "oru/Mat.hpp"
#include "utils/Mutex.hpp"

namespace koruone {

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
    [[nodiscard]] bool hasRoom() ORU_EXCLUDES(mutex);
    /// A container to fill, to be given back by submit or release. Waits while the queue is full; null when writing
    /// failed, or when no image was finished for ten seconds. Its memory is reused from image to image.
    oru::Mat* acquire() ORU_EXCLUDES(mutex);
    /// Queues the container as image of this frame; it must hold host memory.
    void submit(oru::Mat* image, uint64_t frame) ORU_EXCLUDES(mutex);
    void release(oru::Mat* image) ORU_EXCLUDES(mutex);

    /// Writes what is queued and DIR/contact_sheet.png, and ends the thread. False: something was not written.
    bool finish() ORU_EXCLUDES(mutex);
    /// The first failure, empty while there is none.
    [[nodiscard]] std::string error() ORU_EXCLUDES(mutex);
    [[nodiscard]] uint64_t written() ORU_EXCLUDES(mutex);

private:
    struct Job {
        oru::Mat* image = nullptr;
        uint64_t frame = 0;
    };

    void run() ORU_EXCLUDES(mutex);
    bool takeJob(Job& job) ORU_EXCLUDES(mutex);
    void writeJob(const Job& job) ORU_EXCLUDES(mutex);

    std::filesystem::path folder;
    PngEncoder encoder;  // this and the sheet are the writer thread's until it has ended
    ContactSheet sheet;
    std::array<oru::Mat, kQueueLength> images;

    oru::Mutex mutex;
    std::condition_variable_any changed;
    std::vector<oru::Mat*> unused ORU_GUARDED_BY(mutex);
    std::deque<Job> waiting ORU_GUARDED_BY(mutex);
    bool ending ORU_GUARDED_BY(mutex) = false;
    uint64_t finished ORU_GUARDED_BY(mutex) = 0;
    std::string failure ORU_GUARDED_BY(mutex);

    std::thread worker;  // last: it uses all of the above
};

}  // namespace koruone
