#include <cstdlib>
#include <deque>
#include <string>
#include <utility>

#include "backends/calibration_fetch/address.hpp"
#include "backends/calibration_fetch/calibration_fetch.hpp"
#include "backends/calibration_fetch/download.hpp"
#include "calibration/readers.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "oru/calibration.hpp"
#include "utils/Mutex.hpp"
#include "utils/text_file.hpp"

namespace oru {
namespace {

constexpr std::size_t kMostOffers = 64;
constexpr const char* kAddressVariable = "KORU_CALIB_URL";

class CalibrationFetch final : public CalibrationSource {
public:
    explicit CalibrationFetch(DownloadText downloader) : download(downloader) {}

    bool downloadCalibFile(String directory, int serial_number) override {
        if (directory.empty()) {
            makeSystemSettingsDirectory();
        }
        const std::string path = calibrationPath(directory.get(), serial_number);
        return storeOffered(path, serial_number) || storeDownloaded(path, serial_number);
    }

    void offer(int serial_number, std::string text) override {
        if (text.empty() || text.size() > kCalibrationTextLimitBytes) {
            ORU_LOG(Warning, "{} The calibration offered for camera {} is empty or too large.", kTagInit,
                    serial_number);
            return;
        }
        const MutexLock lock(mutex);
        std::erase_if(offers, [&](const Offer& known) { return known.serial_number == serial_number; });
        offers.push_back({serial_number, std::move(text)});
        if (offers.size() > kMostOffers) {
            offers.pop_front();
        }
    }

    // Somebody's recording or stream says nothing about a camera that is attached here.
    void offerFrom(CalibrationOrigin origin, const std::string& /*place*/, int serial_number,
                   std::string text) override {
        if (origin == CalibrationOrigin::ATTACHED_CAMERA) {
            offer(serial_number, std::move(text));
        }
    }

    std::string text(int serial_number) override {
        const MutexLock lock(mutex);
        for (const Offer& known : offers) {
            if (known.serial_number == serial_number) {
                return known.text;
            }
        }
        return {};
    }

private:
    struct Offer {
        int serial_number = 0;
        std::string text;
    };

    bool storeOffered(const std::string& path, int serialNumber) {
        const std::string offered = text(serialNumber);
        return !offered.empty() && store(path, serialNumber, offered, Completeness::KNOWN, "the camera itself");
    }

    bool storeDownloaded(const std::string& path, int serialNumber) const {
        const char* base = std::getenv(kAddressVariable);
        if (base == nullptr || *base == '\0') {
            return false;
        }
        const std::string address = calibrationAddress(base, serialNumber);
        if (namesAnotherCamera(address, serialNumber)) {
            ORU_LOG(Warning, "{} {} names another camera than {}; nothing is fetched.", kTagInit, address,
                    serialNumber);
            return false;
        }
        const Download fetched = download(address, kDownloadLimit);
        if (!fetched.defect.empty()) {
            ORU_LOG(Warning, "{} No calibration of camera {} from {}: {}.", kTagInit, serialNumber, address,
                    fetched.defect);
            return false;
        }
        return store(path, serialNumber, fetched.text, fetched.completeness, address);
    }

    static bool store(const std::string& path, int serialNumber, const std::string& text, Completeness completeness,
                      const std::string& origin) {
        std::string defect = calibrationDefect(text, serialNumber, completeness);
        if (!defect.empty()) {
            ORU_LOG(Warning, "{} What {} gave is no calibration of camera {}: {}.", kTagInit, origin, serialNumber,
                    defect);
            return false;
        }
        defect = placeFile(path, text);
        if (!defect.empty()) {
            ORU_LOG(Warning, "{} The calibration of camera {} could not be written to {}: {}.", kTagInit, serialNumber,
                    path, defect);
            return false;
        }
        ORU_LOG(Info, "{} Stored the calibration of camera {} from {} as {}.", kTagInit, serialNumber, origin, path);
        return true;
    }

    DownloadText download;
    Mutex mutex;
    std::deque<Offer> offers ORU_GUARDED_BY(mutex);
};

}  // namespace

std::unique_ptr<CalibrationSource> makeCalibrationFetch(DownloadText download) {
    return std::make_unique<CalibrationFetch>(download);
}

}  // namespace oru
