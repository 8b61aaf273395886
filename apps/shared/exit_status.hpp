#pragma once

namespace koruone {

/// Exit codes of the tool.
enum ExitStatus : int {
    EXIT_OK = 0,             ///< done; the end of the input counts as done
    EXIT_FAILED = 1,         ///< the camera, a file or the disk refused
    EXIT_USAGE = 2,          ///< the command line is wrong
    EXIT_DAMAGED = 3,        ///< verify and repair: damaged but repairable, repaired with loss
    EXIT_INTERRUPTED = 130,  ///< ended by Ctrl-C, after closing everything
};

}  // namespace koruone
