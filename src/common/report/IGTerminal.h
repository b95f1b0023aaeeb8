// The terminal of the run: the standard output and the standard error.
#ifndef QUENDIL_COMMON_REPORT_IGTERMINAL_H
#define QUENDIL_COMMON_REPORT_IGTERMINAL_H

#include <cstdio>

/// Whether to write to the terminal now. A slow reader blocks a run, as it blocks every program;
/// but an interrupted run must end even if its output is no longer read (IGPatience.h).
/// @param stream the standard output or the standard error, with an empty buffer
/// @return false when the run is interrupted, its patience is used up and a write would block
[[nodiscard]] bool terminalTakes(std::FILE* stream);

/// Calls `write` with the stream if the terminal takes output, and flushes.
template <typename Write>
void writeTerminal(std::FILE* stream, Write write) {
    if (terminalTakes(stream)) {
        write(stream);
        std::fflush(stream);
    }
}

#endif
