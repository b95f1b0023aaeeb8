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
    struct timeval at_once = {0, 0};
    return ::select(fd + 1, nullptr, &ready, nullptr, &at_once) != 0;  // a failed look is no reason
}
