#include "calibration/readers.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"
#include "tables/tables.hpp"
#include "utils/env_var.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kOpenSignature;

ERROR_CODE unreadable() {
    ORU_LOG(Error,
            "{} Cannot load RLX file. Check that the path of the RLX is correct, avoid white spaces in filename, add "
            "\".rlx\" or \".rlx2\" extension to filename.",
            kTagInit);
    return ORU_REPORT(RLX_FILE_UNREADABLE);
}

void logRepairFailure(int result) {
    switch (result) {
        case REPAIR_UNREADABLE:
            ORU_LOG(Debug,
                    "Failed to repair RLX file. Cannot read input file. Please check that the input path of the RLX is "
                    "correct");
            break;
        case REPAIR_NOT_WRITABLE:
            ORU_LOG(Debug,
                    "Failed to repair RLX file. Cannot create output file. Please check that you have permissions to "
                    "write in this folder");
            break;
        default:
            ORU_LOG(Debug, "Failed to repair RLX file. Invalid compression detected in input file.");
            break;
    }
    ORU_LOG(Info, "RLX auto-repair failed");
}

}  // namespace

void CameraOneImpl::selectRecordedFile() {
    inputMode = INPUT_MODE_RECORDED;
    if (check_env_var_real_time_rlx()) {
        initParameters.rlx_real_time = true;
    }
    rlxPath = expandHome(initParameters.input.first().get());
}

ERROR_CODE CameraOneImpl::connectRecorded() {
    streamInput.reset();
    if (!hasRecordingModule()) {
        return ORU_REPORT(NOT_SUPPORTED);
    }
    rlxReader->follow(initParameters.rlx_follow);
    const int opening = rlxReader->open(rlxPath.c_str());
    if (opening == rlxrw::kRlxModuleMissing) {
        return ORU_REPORT(NOT_SUPPORTED);
    }
    if (opening == rlxrw::RLX_NOT_DECODABLE) {
        ORU_LOG(Error,
                "{} Cannot open RLX file due to unsupported compression. Make sure that NVENC is installed on your PC.",
                kTagInit);
        return ORU_REPORT(RLX_CODEC_UNAVAILABLE);
    }
    return opening == rlxrw::RLX_DAMAGED ? repairRecorded() : SUCCESS;
}

ERROR_CODE CameraOneImpl::repairRecorded() {
    if (!check_env_var_repair_rlx_in_place()) {
        return unreadable();
    }
    ORU_LOG(Info, "Corruption detected in RLX file, attempting to auto-repair the file...");
    if (const int result = rlxReader->repairFile(rlxPath.c_str(), "", true, false); result != REPAIR_DONE) {
        logRepairFailure(result);
        return unreadable();
    }
    if (rlxReader->open(rlxPath.c_str()) == rlxrw::RLX_DAMAGED) {
        return unreadable();
    }
    ORU_LOG(Info, "RLX auto-repair succeeded");
    return SUCCESS;
}

}  // namespace oru
