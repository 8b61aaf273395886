#pragma once

#include <Eigen/Core>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "collaborators/CollaboratorFactory.hpp"
#include "oru/Mat.hpp"
#include "oru/types.hpp"
#include "oru_koruone/FrameRateInspector.hpp"
#include "oru_koruone/input_mode.hpp"
#include "utils/Mutex.hpp"

namespace oru {

struct InputFacts;

/// The camera object behind CameraOne, whose header documents the public operations.
/// Threads: one grabs, opens, closes, retrieves, starts, stops and seeks. Beside all but open and close any threads may
/// query, one may read sensors and one may use controls; docs/threading.md says which operation is which.
/// Lock order, outermost first: grabMutex; then outputMutex, the grabber's critical section or the inspector's mutex;
/// then imuMutex; then a collaborator's own lock. No collaborator calls back while it holds its lock.
class CameraOneImpl final {
public:
    /// Takes the process default's collaborators; one must be registered.
    CameraOneImpl();
    explicit CameraOneImpl(std::shared_ptr<CollaboratorFactory> factory);
    ~CameraOneImpl();
    CameraOneImpl(const CameraOneImpl&) = delete;
    CameraOneImpl& operator=(const CameraOneImpl&) = delete;

    ERROR_CODE open(const InitParametersOne& params);
    ERROR_CODE close();
    [[nodiscard]] bool isOpened() const { return opened.load(std::memory_order_acquire); }
    [[nodiscard]] InitParametersOne getInitParameters() const { return initParameters; }
    static ERROR_CODE reboot(INPUT_TYPE type);
    static ERROR_CODE reboot();

    /// Holds grabMutex to the end and takes outputMutex and imuMutex inside it; never waits for another grab().
    ERROR_CODE grab();
    [[nodiscard]] Timestamp getTimestamp(TIME_REFERENCE reference) const;
    [[nodiscard]] float getCameraFPS() const;
    [[nodiscard]] float getCurrentFPS() const;
    [[nodiscard]] FrameCounters getFrameCounters();
    [[nodiscard]] StreamInputStatus getStreamInputStatus();
    [[nodiscard]] FrameInfo getFrameInfo() const;

    ERROR_CODE retrieveImage(Mat& destination, VIEW view, MEM memory, Resolution size);
    [[nodiscard]] std::vector<DeviceProperties> getDeviceList() const;
    [[nodiscard]] String getDeviceListProblem() const;
    [[nodiscard]] CameraDescription getCameraInformation(Resolution size);

    /// Takes imuMutex for the copy of the sample only.
    ERROR_CODE getSensorsData(SensorsData& data, TIME_REFERENCE reference);
    ERROR_CODE getSensorsDataBatch(std::vector<SensorsData>& batch);

    ERROR_CODE getCameraSettings(VIDEO_SETTINGS setting, int& value);
    ERROR_CODE setCameraSettings(VIDEO_SETTINGS setting, int value);
    ERROR_CODE getCameraSettings(VIDEO_SETTINGS setting, int& min, int& max);
    ERROR_CODE setCameraSettings(VIDEO_SETTINGS setting, int min, int max);
    ERROR_CODE getCameraSettings(VIDEO_SETTINGS setting, Rect& roi);
    ERROR_CODE setCameraSettings(VIDEO_SETTINGS setting, Rect roi, bool reset);
    ERROR_CODE getCameraSettingsRange(VIDEO_SETTINGS setting, int& min, int& max);
    [[nodiscard]] bool isCameraSettingSupported(VIDEO_SETTINGS setting);

    /// Of the stream that the next open() receives, and of the one that the next enableStreaming() sends; without a
    /// call those of the environment.
    void useStreamKeys(const StreamKeys& incoming, const StreamKeys& outgoing);
    ERROR_CODE enableStreaming(StreamingParameters parameters);
    void disableStreaming();
    [[nodiscard]] String getControlRefusal();
    [[nodiscard]] bool isStreamingEnabled() ORU_EXCLUDES(outputMutex);
    [[nodiscard]] StreamingParameters getStreamingParameters() ORU_EXCLUDES(outputMutex);
    [[nodiscard]] StreamingStatus getStreamingStatus() ORU_EXCLUDES(outputMutex);

    ERROR_CODE enableRecording(const RecordingParameters& parameters);
    void disableRecording();
    void pauseRecording(bool paused);
    [[nodiscard]] RecordingStatus getRecordingStatus();
    ERROR_CODE setRLXPosition(int frame);
    ERROR_CODE setRLXPositionAt(Timestamp time);
    [[nodiscard]] int getRLXPosition();
    [[nodiscard]] int getRLXNumberOfFrames();

private:
    friend struct CameraOneImplTestAccess;

    // what differs between the inputs
    struct InputOperations;
    static const InputOperations kNoInput;
    static const InputOperations kLiveInput;
    static const InputOperations kRecordedInput;
    static const InputOperations kStreamInput;
    static const InputOperations kUnknownInput;
    [[nodiscard]] static const InputOperations& operationsOf(InputMode mode);
    [[nodiscard]] const InputOperations& input() const { return operationsOf(inputMode); }

    // lifecycle
    void resetVariables();
    void leavePreviousOpening();
    void waitForSender();
    void destroySender();
    void freeRectifier();
    void releaseCudaStream();

    // open
    void replaceGrabber();
    ERROR_CODE selectInput(bool& hdrAdjusted);
    void setCoordinateTransform();
    ERROR_CODE selectLiveDevice(bool& hdrAdjusted);
    ERROR_CODE findDeviceBySerial(uint32_t serial);
    [[nodiscard]] bool isResolutionAllowed() const;
    bool adjustHdr();
    ERROR_CODE connectLive();
    ERROR_CODE setUpGrabber();
    ERROR_CODE askLive(InputFacts& facts);
    bool measureOrientation(KORUmcu& mcu);
    void CheckRequestedFPS(bool verbose, INPUT_TYPE inputType);
    void selectRecordedFile();
    ERROR_CODE connectRecorded();
    ERROR_CODE repairRecorded();
    void checkRealTime();
    ERROR_CODE askRecorded(InputFacts& facts);
    struct RecordedHeader {
        int32_t serial_number = 0;
        Resolution image_size;
        float fps = 0.0F;
        bool flipped = false;  ///< a version-1 file does not say
    };
    [[nodiscard]] RecordedHeader readRecordedHeader() const;
    void selectStream();
    ERROR_CODE connectStream();
    ERROR_CODE askStream(InputFacts& facts);
    ERROR_CODE adoptFacts();
    ERROR_CODE finishOpen();
    ERROR_CODE loadCalibration();
    void prepareGpuContext();
    int readCameraParam();

    // grab
    ERROR_CODE takeFrame();
    void pauseBetweenAttempts();
    [[nodiscard]] FrameStatus nextImage(bool flag);
    [[nodiscard]] FrameStatus nextImageOfLive(bool flag);
    [[nodiscard]] FrameStatus nextImageOfGMSL(bool flag);
    [[nodiscard]] FrameStatus nextImageOfStream(bool flag);
    [[nodiscard]] FrameStatus nextImageOfRLX(bool flag);
    [[nodiscard]] FrameStatus takeLiveFrame();
    void copyLiveFrame();
    void leaveShownImage();
    void copyForRecorder();
    [[nodiscard]] rlxrw::rlxSampleMetadata liveMetadata();
    void handOverToSender(const rlxrw::rlxSampleMetadata& metadata);
    void processNewFrame();
    void forwardImuPackets(const std::vector<IMUPacket>& packets) ORU_EXCLUDES(outputMutex);
    void handleRLXFrameRecording() ORU_REQUIRES(outputMutex);
    void updateIMUdata() ORU_EXCLUDES(imuMutex);
    [[nodiscard]] rlxrw::RLXVideo* activeRecorder();
    [[nodiscard]] bool hasRecordingModule() const { return playbackRecorder && rlxReader && rlxRecorder; }
    [[nodiscard]] CameraFrameContext frameContext() { return frameContext(streamOutput.get()); }
    [[nodiscard]] CameraFrameContext frameContext(UDPOutput* sender);
    /// For what may run beside enableStreaming and disableStreaming: names no sender.
    [[nodiscard]] CameraFrameContext queryContext() { return frameContext(nullptr); }
    [[nodiscard]] rlxrw::RlxRecordingHeader recordingSource();
    [[nodiscard]] bool isPlayingRecording() const { return inputMode == INPUT_MODE_RECORDED && hasRecordingModule(); }
    [[nodiscard]] float liveFrameRate() const;
    [[nodiscard]] float recordedFps() const;
    void describeRecordedFrame(Timestamp time);

    // sensors
    static void initSensor(SensorParameters& p);
    static void setSensor(SensorParameters& p, float sampling_rate, float noise_density, float random_walk,
                          float resolution, Vector2<float> range, SENSORS_UNIT unit, SENSOR_TYPE type);
    [[nodiscard]] KORUmcu* liveMcu() const { return grabber ? grabber->getMCU() : nullptr; }
    [[nodiscard]] std::vector<IMUPacket> takeLivePackets(Timestamp imageTime);
    [[nodiscard]] Eigen::Matrix4f liveImuToCamera() const;
    [[nodiscard]] Eigen::Matrix4f recordedImuToCamera() const;
    [[nodiscard]] Eigen::Matrix4f imuToCamera() const;
    ERROR_CODE fetchLiveSample(IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose);
    ERROR_CODE fetchRecordedSample(IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose);
    bool fetchRecordedMetadata(IMUPacket& sample);
    void describeImu(CameraDescription& description);
    ERROR_CODE processSensorsData(SensorsData& data, Eigen::Matrix4f& coordinate, TIME_REFERENCE reference);
    void readImageSample(SensorsData& data, IMUPacket& sample) ORU_EXCLUDES(imuMutex);
    ERROR_CODE readCurrentSample(SensorsData& data, IMUPacket& sample) ORU_EXCLUDES(imuMutex);
    ERROR_CODE fetchCurrentSample(IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose) ORU_REQUIRES(imuMutex);
    void readMetadataSample(SensorsData& data, IMUPacket& sample) ORU_EXCLUDES(imuMutex);
    void measureImuRate(SensorsData& data, uint64_t timestamp);
    void changeFrame(SensorsData& data, const IMUPacket& sample, const Eigen::Matrix4f& coordinate) const;

    // controls
    void resetCacheSettings(VIDEO_SETTINGS setting, int value, bool isAuto);
    [[nodiscard]] bool isOpenForRanges() const;
    [[nodiscard]] bool deviceRange(VIDEO_SETTINGS setting, int& min, int& max);
    [[nodiscard]] ERROR_CODE rangeRefusal(VIDEO_SETTINGS setting) const;
    [[nodiscard]] bool isCached(VIDEO_SETTINGS setting, int value) const;
    ERROR_CODE writeStreamSetting(VIDEO_SETTINGS setting, int value, bool automatic);
    ERROR_CODE writeLiveSetting(VIDEO_SETTINGS setting, int value, bool automatic);
    [[nodiscard]] bool writeLiveSharpness(int value, bool automatic);
    ERROR_CODE readSharpness(int& value);
    ERROR_CODE readGmslSetting(VIDEO_SETTINGS setting, int& value);
    ERROR_CODE readLiveSetting(VIDEO_SETTINGS setting, int& value);
    ERROR_CODE readStreamSetting(VIDEO_SETTINGS setting, int& value);
    ERROR_CODE readLiveRegion(Rect& region);
    ERROR_CODE readStreamRegion(Rect& region);
    ERROR_CODE writeLiveRegion(const Rect& region, bool reset);
    ERROR_CODE writeStreamRegion(const Rect& region, bool reset);

    // streaming
    [[nodiscard]] uint32_t streamFps(uint32_t source) const ORU_REQUIRES(outputMutex);
    void completeStreamingParameters(uint32_t fps) ORU_REQUIRES(outputMutex);
    [[nodiscard]] UDPOutConfig senderConfiguration(uint32_t fps) const ORU_REQUIRES(outputMutex);

    std::shared_ptr<CollaboratorFactory> collaborators;  // shared: a Mat of the application may outlive the camera
    std::atomic<bool> opened{false};
    std::shared_ptr<LiveCameraGrabber> grabber;  // shared: a sender may still use the grabber of a closed camera
    CameraDescription cameraInformation;
    float unitFactor = 0.0F;
    int32_t cameraId = -1;
    MODEL cameraModel = MODEL_UNKNOWN;
    Mutex grabMutex;
    InitParametersOne initParameters;
    InputMode inputMode = INPUT_MODE_NONE;
    Mutex outputMutex;
    bool imageFlipped = false;
    std::map<VIDEO_SETTINGS, int> settingsCache;
    float sharpnessFactor = 1.0F;  // read beside the setters: relaxed
    Mat image;
    Mat shownImage;  // on a stream, what the rectifier was given while `image` takes the next frame
    FrameInfo frameInfo;
    bool imageIsShown = false;  // the rectifier was given `image`
    RESOLUTION resolution = RESOLUTION_LAST;
    Resolution imageSize;
    CUstream_st* cudaStream = nullptr;
    std::unique_ptr<MonoRectifier> rectifier;
    Mutex imuMutex;
    ImuCalibration imuCalibration;
    InputMode imuSource = INPUT_MODE_NONE;
    IMUPacket currentImu ORU_GUARDED_BY(imuMutex);
    std::vector<IMUPacket> frameImuPackets ORU_GUARDED_BY(imuMutex);
    Eigen::Matrix4f imuPoseMatrix ORU_GUARDED_BY(imuMutex) = Eigen::Matrix4f::Identity();
    Eigen::Matrix4f coordinateTransform = Eigen::Matrix4f::Identity();
    Transform coordinateSystem;
    uint64_t imuRateLastTimestamp = 0;
    uint32_t imuRateNominal = 100;
    uint64_t imuRateCount = 0;
    double imuRateAverage = 0.0;
    double imuRateEstimate = 0.0;
    double imuRateSmoothing = 0.99;
    int32_t cameraFps = 0;
    FrameRateInspector frameRateInspector;
    ActualFrameRateInspector actualFrameRateInspector;
    Timestamp lastImuTimestamp = 0;
    std::unique_ptr<rlxrw::RLXVideo> rlxRecorder;
    RecordingParameters recordingParameters;
    std::atomic<bool> recordingEnabled{false};
    RecordingStatus recordingStatus;
    std::atomic<bool> recordingStateFlag{false};
    unsigned char* recordingFrameBuffer = nullptr;
    std::unique_ptr<rlxrw::RLXVideo> rlxReader;
    std::string rlxPath;
    std::shared_ptr<LiveCameraGrabber> streamGrabber;  // what the sender was given; let go right after the sender
    std::unique_ptr<UDPOutput> streamOutput;           // replaced under outputMutex, never beside grab()
    StreamKeys outgoingKeys;
    StreamingParameters streamingParameters ORU_GUARDED_BY(outputMutex);
    std::atomic<bool> streamingEnabled{false};
    std::unique_ptr<UDPInput> streamInput;
    StreamKeys incomingKeys;
    std::string streamInputIp;
    int32_t streamInputPort = 30000;
    std::unique_ptr<PlaybackRecorder> playbackRecorder;  // last: its threads use the recorders above
};

}  // namespace oru
