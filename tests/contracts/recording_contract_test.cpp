#include "contracts/recording_contract.hpp"

#include "backends/rlx/rlx_factory.hpp"
#include "doubles/CalibrationKeeper.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "doubles/recorded_doubles.hpp"

namespace oru {
namespace {

class ScriptedSubject final : public RecordingSubject {
public:
    ScriptedSubject() { script.openings = {0, 1}; }  // the second opening is of a file that is missing
    std::unique_ptr<rlxrw::RLXVideo> make() override {
        return std::make_unique<doubles::ScriptedRlx>(script, calls, "file");
    }
    std::string path() override { return "a.rlx2"; }

private:
    doubles::RlxScript script;
    doubles::CallLog calls;
};

class FileSubject final : public RecordingSubject {
public:
    std::unique_ptr<rlxrw::RLXVideo> make() override { return makeRlxVideo(calibrations); }
    std::string path() override { return folder.path("a.rlx2"); }

private:
    doubles::TemporaryDirectory folder;
    doubles::CalibrationKeeper calibrations;
};

using Named = NamedSubject<RecordingSubject>;
INSTANTIATE_TEST_SUITE_P(Recordings, RecordingContract,
                         testing::Values(Named::of<ScriptedSubject>("Scripted"), Named::of<FileSubject>("RlxFile")),
                         Named::nameOf);

}  // namespace
}  // namespace oru
