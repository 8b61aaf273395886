#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "utils/Clock.hpp"

namespace oru::rlx {

/// One recording from start to end: a fixed set of image buffers and a thread that writes. The grabbing thread fills
/// the free buffer and offers it; it never waits unless it asks to. Every offered frame is written or counted as
/// dropped. The thread shares the ownership of buffers and file, so that it can be left behind with them when its
/// storage hangs. Threads: freeBuffer, offer and stop from one thread at a time; status from any.
class RecordingSession {
public:
    /// For the frames that wait, and then again for the file's end.
    static constexpr std::chrono::seconds kLongestWait{10};

    /// `recorder` has been created with `header` and outlives the session, which closes it. Throws when there is no
    /// memory or no thread.
    RecordingSession(rlxrw::RLXVideo& recorder, const rlxrw::RlxRecordingHeader& header, Clock& clock);
    ~RecordingSession() { stop(kLongestWait); }
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    struct Facts {
        Timestamp time = 0;
        rlxrw::rlxSampleMetadata metadata{};
        bool has_imu = false;
        IMUPacket imu;
    };
    enum class WhenFull {
        DROP,  ///< also when the writer is behind by more than its share of a second
        WAIT,  ///< for the writer, in bounded time
    };

    /// Where the next image belongs; never null, changes with every frame that is taken.
    [[nodiscard]] unsigned char* freeBuffer() const;
    [[nodiscard]] std::size_t bufferSize() const;
    /// Takes the image in freeBuffer() and the packets that the recorder was given since the last one taken.
    void offer(const Facts& facts, WhenFull whenFull);
    /// Writes what was taken and closes the file, each within `limit`. When the storage hangs longer, the thread is
    /// left behind, which a Warning says, and what it had not written counts as dropped; it still ends the file when
    /// the storage answers. A recorder without a file of its own (RLXVideo::recordingFile) is waited for.
    void stop(std::chrono::milliseconds limit);

    /// The file cannot grow, the encoder failed or there was no memory; the file is closed already.
    [[nodiscard]] bool hasFailed() const;
    /// Why; empty while it has not.
    [[nodiscard]] std::string failure() const;
    /// All fields but `paused`.
    [[nodiscard]] RecordingStatus status() const;
    [[nodiscard]] const rlxrw::RlxRecordingHeader& header() const;

private:
    struct Slot;
    struct Shared;

    rlxrw::RLXVideo& rlxRecorder;
    std::shared_ptr<Shared> shared;
    std::size_t freeSlot = 0;
    std::thread writer;
};

}  // namespace oru::rlx
