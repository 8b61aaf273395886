#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "collaborators/CalibrationSource.hpp"
#include "doubles/CallLog.hpp"
#include "utils/Mutex.hpp"

namespace oru::doubles {

/// Keeps the calibration texts that it is offered. Threads: any for offer and text.
class CalibrationKeeper final : public CalibrationSource {
public:
    explicit CalibrationKeeper(CallLog* calls = nullptr) : log(calls) {}

    bool downloadCalibFile(String directory, int serial_number) override {
        if (log != nullptr) {
            log->add("download {} {}", directory.c_str(), serial_number);
        }
        if (onDownload) {
            onDownload();
        }
        return static_cast<bool>(onDownload);
    }
    void offer(int serial_number, std::string text) override {
        const MutexLock lock(mutex);
        texts[serial_number] = std::move(text);
    }
    void offerFrom(CalibrationOrigin origin, const std::string& place, int serial_number, std::string text) override {
        {
            const MutexLock lock(mutex);
            lastOrigin = origin;
            lastPlace = place;
        }
        CalibrationSource::offerFrom(origin, place, serial_number, std::move(text));
    }
    [[nodiscard]] CalibrationOrigin origin() {
        const MutexLock lock(mutex);
        return lastOrigin;
    }
    [[nodiscard]] std::string place() {
        const MutexLock lock(mutex);
        return lastPlace;
    }
    std::string text(int serial_number) override {
        const MutexLock lock(mutex);
        const auto found = texts.find(serial_number);
        return found == texts.end() ? std::string() : found->second;
    }

    std::function<void()> onDownload;  ///< without it the download fails

private:
    CallLog* log;
    Mutex mutex;
    std::map<int, std::string> texts ORU_GUARDED_BY(mutex);
    CalibrationOrigin lastOrigin ORU_GUARDED_BY(mutex) = CalibrationOrigin::ATTACHED_CAMERA;
    std::string lastPlace ORU_GUARDED_BY(mutex);
};

}  // namespace oru::doubles
