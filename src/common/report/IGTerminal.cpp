#include "common/report/IGTerminal.h"

#include <sys/select.h>

#include "common/base/IGPatience.h"
#include "common/base/IGRunState.h"

bool terminalTakes(std::FILE* stream) {
    if (run_state.interrupted == 0) {
        return true;
    }
    const int fd = ::fileno(stream);
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(fd, &ready);
    return waitPatiently(fd + 1, &ready, PATIENCE) != 0;  // on an error the write itself fails
}
