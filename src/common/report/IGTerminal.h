// What the run shows to whoever has started it: the standard output and the standard error.
#ifndef QUENDIL_COMMON_REPORT_IGTERMINAL_H
#define QUENDIL_COMMON_REPORT_IGTERMINAL_H

#include <cstdio>

/// Whether to write to the terminal now. A reader that is slow holds a run up, as it does every
/// program; but a run that has been interrupted is to end, also when its output is not read any
/// more (IGPatience.h).
/// @param stream the standard output or the standard error, with nothing in its buffer
/// @return false when the run is interrupted, its patience is over and a write would wait
[[nodiscard]] bool terminalTakes(std::FILE* stream);

/// Has `write` write to the stream, when the terminal takes it, and shows it at once.
template <typename Write>
void writeTerminal(std::FILE* stream, Write write) {
    if (terminalTakes(stream)) {
        write(stream);
        std::fflush(stream);
    }
}

#endif
