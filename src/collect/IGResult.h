// How a step of the collection ended. The driver, the items and the archive maker share one type,
// so that each can return another's result unchanged.
#ifndef QUENDIL_COLLECT_IGRESULT_H
#define QUENDIL_COLLECT_IGRESULT_H

enum Result : int {
    RESULT_DONE = 0,
    RESULT_FAILED = -1,         ///< reported
    RESULT_INTERRUPTED = 2,     ///< by a signal
    RESULT_SIZE_LIMIT = 4,      ///< a file over the limit cannot be removed: collecting ends
    RESULT_TAR_NONZERO = 1,     ///< IgArcMake alone: tar was accepted with a non-zero exit code
    RESULT_NOT_COMPRESSED = 16  ///< IgArcMake alone: the ".tar" archive is the result
};

#endif
