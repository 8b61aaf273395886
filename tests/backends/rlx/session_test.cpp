#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <new>
#include <numeric>
#include <utility>

#include "backends/rlx/camera/RecordingSession.hpp"
#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/recording_fixture.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScriptedClock.hpp"
#include "doubles/recorded_doubles.hpp"

namespace oru::rlx_test {

namespace {

using rlx::RecordingSession;
using namespace std::chrono_literals;

/// What a file and the test share, also when the recorder is gone.
struct Storage {
    std::mutex mutex;
    std::condition_variable changed;
    bool answers = true;
    int entered = 0;
    int closed = 0;
    bool gone = false;
    std::function<void()> onWrite;

    void set(bool& flag, bool value) {
        const std::lock_guard lock(mutex);
        flag = value;
        changed.notify_all();
    }
    bool waitFor(const std::function<bool()>& condition) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 60s, condition);
    }
};

class StoredFile final : public rlxrw::RecordingFile {
public:
    explicit StoredFile(std::shared_ptr<Storage> shared) : storage(std::move(shared)) {}
    ~StoredFile() override { storage->set(storage->gone, true); }

    int writeFrame(const rlxrw::RlxFrame& frame) override {
        std::unique_lock lock(storage->mutex);
        ++storage->entered;
        storage->changed.notify_all();
        storage->changed.wait(lock, [this] { return storage->answers; });
        if (storage->onWrite) {
            storage->onWrite();
        }
        sum += std::accumulate(frame.pixels, frame.pixels + frame.size, uint64_t{0});
        return rlxrw::RLX_WRITTEN;
    }
    void close() override {
        const std::lock_guard lock(storage->mutex);
        ++storage->closed;
    }
    uint64_t bytesWritten() const override { return sum; }
    FrameCounters counters() const override { return {}; }

private:
    std::shared_ptr<Storage> storage;
    uint64_t sum = 0;
};

class SharingRecorder final : public doubles::ScriptedRlx {
public:
    SharingRecorder(doubles::RlxScript& answers, doubles::CallLog& calls, std::shared_ptr<Storage> storage)
        : ScriptedRlx(answers, calls, "recorder"), file(std::make_shared<StoredFile>(std::move(storage))) {}

    std::shared_ptr<rlxrw::RecordingFile> recordingFile() override { return std::exchange(file, nullptr); }

private:
    std::shared_ptr<rlxrw::RecordingFile> file;
};

class SharedRecording : public testing::Test {
protected:
    void offer() { session->offer({}, RecordingSession::WhenFull::DROP); }

    const Scene scene;
    std::shared_ptr<Storage> storage = std::make_shared<Storage>();
    doubles::RlxScript script;
    doubles::CallLog calls;
    doubles::ScriptedClock clock;
    std::unique_ptr<SharingRecorder> recorder = std::make_unique<SharingRecorder>(script, calls, storage);
    std::unique_ptr<RecordingSession> session = std::make_unique<RecordingSession>(*recorder, scene.header(), clock);
};

}  // namespace

TEST_F(SharedRecording, HungStorageLeavesTheThreadBehindWithAllThatItTouches) {
    storage->set(storage->answers, false);
    offer();
    offer();
    ASSERT_TRUE(storage->waitFor([this] { return storage->entered > 0; }));
    doubles::LogCapture log;

    session->stop(20ms);

    const RecordingStatus status = session->status();
    EXPECT_FALSE(status.recording);
    EXPECT_EQ(status.last_result, FAILURE);
    EXPECT_EQ(status.frames_dropped, 2U);
    EXPECT_EQ(log.texts(LogLevel::Warning).size(), 1U);
    session.reset();
    recorder.reset();
    EXPECT_FALSE(storage->gone);
    storage->set(storage->answers, true);
    EXPECT_TRUE(storage->waitFor([this] { return storage->gone; })) << "ends with the storage's answer";
    EXPECT_EQ(storage->closed, 1);
}

TEST_F(SharedRecording, ExceptionOfTheWriterFailsTheRecording) {
    storage->onWrite = [] { throw std::bad_alloc(); };
    const doubles::LogCapture log;

    offer();
    session->stop(60s);

    EXPECT_TRUE(session->hasFailed());
    EXPECT_EQ(session->status().last_result, FAILURE);
    EXPECT_EQ(session->status().frames_dropped, 1U);
    EXPECT_EQ(storage->closed, 1);
}

TEST(SharedRecordings, RecorderBeginsAnotherWhileOneIsStillHeld) {
    OneFile own;
    const Scene scene;
    ASSERT_EQ(own.file->create(own.path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    const std::shared_ptr<rlxrw::RecordingFile> held = own.file->recordingFile();
    const std::string second = own.folder.path("b.rlx2");
    ASSERT_EQ(own.file->create(own.path.c_str(), scene.header()), rlxrw::RLX_NOT_CREATABLE) << "it is being recorded";
    ASSERT_EQ(own.file->create(second.c_str(), scene.header()), rlxrw::RLX_CREATED);
    const std::vector<unsigned char> image = scene.image(0);
    rlxrw::RlxFrame frame;
    frame.pixels = image.data();
    frame.size = image.size();

    EXPECT_EQ(held->writeFrame(frame), rlxrw::RLX_WRITTEN);
    EXPECT_EQ(writeSceneFrame(*own.file, scene, 0), rlxrw::RLX_WRITTEN);
    own.file.reset();
    held->close();

    for (const std::string& path : {own.path, second}) {
        EXPECT_EQ(rlx::verifyRecording(path).condition, rlx::Condition::INTACT);
        EXPECT_EQ(rlx::verifyRecording(path).frames, 1U);
    }
}

}  // namespace oru::rlx_test
