// Every pair of operations that docs/threading.md allows side by side, on every input: what ThreadSanitizer looks at.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <thread>

#include "backends/stream/stream_fixture.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"

namespace oru {
namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

/// Calls a round of operations again and again, as long as it lives.
class Caller {
public:
    explicit Caller(std::function<void()> round)
        : thread([this, round = std::move(round)](const std::stop_token& stop) {
              while (!stop.stop_requested()) {
                  round();
                  rounds.fetch_add(1, std::memory_order_relaxed);
                  std::this_thread::sleep_for(1ms);
              }
          }) {}
    std::atomic<int> rounds{0};

private:
    std::jthread thread;
};

class Threads : public ::testing::Test {
protected:
    Threads() {
        parameters.settings_path = directory.prefix();
        parameters.requested_resolution = HD600;
        parameters.requested_fps = 60;
        parameters.rlx_real_time = false;
    }

    [[nodiscard]] static StreamingParameters streamingTo(uint16_t port) {
        StreamingParameters streaming;
        streaming.codec = PLAIN_CODEC;
        streaming.port = port;
        return streaming;
    }

    static void grab(CameraOne& camera, int frames) {
        Mat view;
        const auto deadline = steady_clock::now() + 20s;
        while (frames > 0 && steady_clock::now() < deadline) {
            if (camera.grab() == SUCCESS) {
                EXPECT_EQ(camera.retrieveImage(view, RECTIFIED_GRAY, CPU, {480, 300}), SUCCESS);
                --frames;
            }
        }
        EXPECT_EQ(frames, 0);
    }

    static void query(CameraOne& camera) {
        EXPECT_TRUE(camera.isOpened());
        EXPECT_GT(camera.getInitParameters().requested_fps, 0);
        EXPECT_GE(camera.getTimestamp(CURRENT), camera.getTimestamp(IMAGE));
        EXPECT_GE(camera.getCurrentFPS(), 0.0F);
        EXPECT_GT(camera.getCameraFPS(), 0.0F);
        const FrameCounters counters = camera.getFrameCounters();
        EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
        EXPECT_GE(camera.getStreamInputStatus().last_frame_age_ms, 0.0);
        EXPECT_EQ(camera.getCameraInformation().configuration.resolution, (Resolution{960, 600}));
        (void)camera.isStreamingEnabled();
        EXPECT_NE(camera.getStreamingParameters().port, 0);
        EXPECT_LE(camera.getStreamingStatus().receivers, 1U);
        camera.pauseRecording(false);
        EXPECT_EQ(camera.getRecordingStatus().last_result, SUCCESS);
        EXPECT_LE(camera.getRLXPosition(), camera.getRLXNumberOfFrames());
    }

    static void readSensors(CameraOne& camera) {
        SensorsData data;
        std::vector<SensorsData> batch;
        EXPECT_EQ(camera.getSensorsData(data, IMAGE), SUCCESS);
        const ERROR_CODE current = camera.getSensorsData(data, CURRENT);
        EXPECT_TRUE(current == SUCCESS || current == SENSOR_DATA_UNAVAILABLE) << current;
        EXPECT_EQ(camera.getSensorsDataBatch(batch), SUCCESS);
    }

    static void useControls(CameraOne& camera) {
        int value = 0;
        int most = 0;
        Rect region;
        EXPECT_EQ(camera.getCameraSettings(SHARPNESS, value), SUCCESS);
        (void)camera.setCameraSettings(SHARPNESS, 2);
        (void)camera.getCameraSettings(GAIN, value);
        (void)camera.setCameraSettings(GAIN, 10);
        (void)camera.getCameraSettings(RANGE_SETTING_16, value, most);
        (void)camera.getCameraSettingsRange(EXPOSURE, value, most);
        (void)camera.isCameraSettingSupported(GAIN);
        (void)camera.getCameraSettings(AEC_AGC_ROI, region);
        (void)camera.setCameraSettings(AEC_AGC_ROI, Rect{}, true);
        (void)camera.getControlRefusal();
    }

    /// The grabbing thread's operations, beside those of the other threads.
    void use(CameraOne& camera, bool playsAFile) {
        std::list<Caller> callers;
        callers.emplace_back([&camera] { query(camera); });
        callers.emplace_back([&camera] { query(camera); });
        callers.emplace_back([&camera] { readSensors(camera); });
        callers.emplace_back([&camera] { useControls(camera); });
        callers.emplace_back([&camera] { (void)camera.getDeviceList(); });
        RecordingParameters recording{directory.path("copy.rlx2"), RLX_RAW, 0, 0, true};
        for (int round = 0; round < 2; ++round) {
            ASSERT_EQ(camera.enableStreaming(streamingTo(test::freePort())), SUCCESS);
            grab(camera, 2);
            ASSERT_EQ(camera.enableRecording(recording), SUCCESS);
            grab(camera, 4);
            camera.disableStreaming();
            grab(camera, 2);
            camera.disableRecording();
            if (playsAFile) {
                EXPECT_EQ(camera.setRLXPosition(2), SUCCESS);
                EXPECT_EQ(camera.setRLXPositionAt(camera.getTimestamp(IMAGE)), SUCCESS);
                EXPECT_EQ(camera.setRLXPosition(0), SUCCESS);
            }
        }
        for (const Caller& caller : callers) {
            EXPECT_GT(caller.rounds, 3);
        }
    }

    doubles::TemporaryDirectory directory;
    InitParametersOne parameters;
};

TEST_F(Threads, LiveCameraIsAskedBesideItsGrabs) {
    CameraOne camera;
    ASSERT_EQ(camera.open(parameters), SUCCESS);

    use(camera, false);
}

TEST_F(Threads, RecordedFileIsAskedBesideItsGrabs) {
    RecordingParameters recording{directory.path("a.rlx2"), RLX_RAW, 0, 0, false};
    CameraOne camera;
    ASSERT_EQ(camera.open(parameters), SUCCESS);
    ASSERT_EQ(camera.enableRecording(recording), SUCCESS);
    grab(camera, 20);
    ASSERT_EQ(camera.close(), SUCCESS);
    parameters.input.setFromFile(recording.video_filename);
    ASSERT_EQ(camera.open(parameters), SUCCESS);

    use(camera, true);
}

TEST_F(Threads, StreamIsAskedBesideItsGrabs) {
    const uint16_t port = test::freePort();
    CameraOne source;
    ASSERT_EQ(source.open(parameters), SUCCESS);
    ASSERT_EQ(source.enableStreaming(streamingTo(port)), SUCCESS);
    const Caller sending([&source] { (void)source.grab(); });
    CameraOne camera;
    parameters.input.setFromStream("127.0.0.1", port);
    ASSERT_EQ(camera.open(parameters), SUCCESS);

    use(camera, false);
}

}  // namespace
}  // namespace oru
