#include "oru/recording.hpp"

namespace oru {

bool isRepairable(RECORDING_CONDITION condition) {
    return condition == RECORDING_CONDITION::UNFINISHED || condition == RECORDING_CONDITION::CUT_OFF ||
           condition == RECORDING_CONDITION::DAMAGED;
}

const char* describe(RECORDING_CONDITION condition) {
    switch (condition) {
        using enum RECORDING_CONDITION;
        case INTACT:
            return "is intact";
        case MISSING:
            return "does not exist";
        case NOT_A_FILE:
            return "is not a file";
        case UNREADABLE:
            return "cannot be read";
        case EMPTY:
            return "is empty";
        case NOT_OURS:
            return "is not an RLX recording";
        case TOO_NEW:
            return "is of an RLX version or size that this program does not know";
        case BEING_RECORDED:
            return "is being written by another program";
        case NO_WHOLE_FRAME:
            return "holds no whole frame";
        case UNFINISHED:
            return "was not closed";
        case CUT_OFF:
            return "is cut off";
        case DAMAGED:
            return "is damaged";
    }
    return "is in an unknown state";
}

}  // namespace oru
