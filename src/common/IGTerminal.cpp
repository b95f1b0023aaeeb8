#include "common/IGTerminal.h"

#include <sys/select.h>

#include "common/IGRunState.h"

bool terminalTakes(std::FILE* stream) {
    if (run_state.interrupted == 0) {
        return true;
    }
    const int fd = ::fileno(stream);
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(fd, &ready);
    static struct timeval patience = {3, 0};  // select takes from it what it has waited
    return ::select(fd + 1, nullptr, &ready, nullptr, &patience) != 0;  // else a write tells
}
