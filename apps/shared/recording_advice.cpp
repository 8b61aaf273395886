#include "shared/recording_advice.hpp"

#include <fmt/core.h>

#include "shared/report.hpp"

namespace koruone {

std::string recordingAdvice(oru::RECORDING_CONDITION condition, const std::string& file) {
    switch (condition) {
        using enum oru::RECORDING_CONDITION;
        case INTACT:
            return "it can be played";
        case MISSING:
            return "check its name";
        case NOT_A_FILE:
            return "name a file";
        case UNREADABLE:
            return "see that you may read it and that its disk works";
        case EMPTY:
            return "name another recording";
        case NOT_OURS:
            return "name a file that 'koruone record' or enableRecording wrote";
        case TOO_NEW:
            return "use the version of koruone that recorded it";
        case BEING_RECORDED:
            return "wait until that has ended";
        case NO_WHOLE_FRAME:
            return "there is nothing in it to be played";
        case UNFINISHED:
        case CUT_OFF:
        case DAMAGED:
            return fmt::format("run 'koruone repair {}'", file);
    }
    return fmt::format("run 'koruone verify {}'", file);
}

void complainOfRecording(oru::RECORDING_CONDITION condition, const std::string& file) {
    complain("{} {} ({}); {}.", file, oru::describe(condition), codeName(oru::RLX_FILE_UNREADABLE),
             recordingAdvice(condition, file));
}

}  // namespace koruone
