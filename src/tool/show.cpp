// Prints files with the values of passwords, keys and the like masked.
//
// usage: show [-v] [-l MIB] PATH...
//   -v       for files of one value each: print each line after the name of its file
//   -l MIB   print at most the last MIB MiB of a file (default: 5); if the output is a file, let it
//            grow to four times as much
// PATH may be a wildcard. For a directory, all regular files in it and below it are printed;
// everything else in it is skipped, symlinks too. A symlink that a user has made is followed to
// that user's own files only. A file of keys, and a PATH that is not a regular file, is named and
// not opened. Control characters are printed as octal digits.
//
// The exit status is 0; 1 when the filter "mask" could not be started or failed, 2 for wrong usage.
#include <glob.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/IGCmnMemory.h"
#include "common/report/IGCmnMessage.h"
#include "tool/IGMaskPipe.h"
#include "tool/IGShow.h"

namespace {

constexpr int WRONG_USAGE = 2;
constexpr int LIMIT_FACTOR = 4;         // limit of the output, in limits of a file
constexpr std::size_t MOST_DIGITS = 6;  // of a limit in MiB

struct Arguments {
    bool values = false;
    int mib = 5;
    char** paths = nullptr;  // ends with a null
};

volatile sig_atomic_t stopped = 0;

void stop(int /*number*/) {
    stopped = 1;
}

int usage() {
    std::fputs("usage: show [-v] [-l MIB] PATH...\n", stderr);
    return WRONG_USAGE;
}

bool readMib(const char* text, int& mib) {
    const std::size_t length = std::strlen(text);
    if (length == 0 || length > MOST_DIGITS || std::strspn(text, "0123456789") != length) {
        return false;
    }
    mib = std::atoi(text);  // NOLINT(cert-err34-c): nothing but a few digits
    return true;
}

bool readArguments(int argc, char** argv, Arguments& arguments) {
    for (int option = 0; (option = ::getopt(argc, argv, "+vl:")) != -1;) {
        if (option == 'v') {
            arguments.values = true;
        } else if (option != 'l' || !readMib(optarg, arguments.mib)) {
            return false;
        }
    }
    arguments.paths = argv + optind;
    return *arguments.paths != nullptr;
}

// SIGTERM, from a time limit, ends the reading: what was read is still printed. A broken pipe makes
// a write fail.
void setSignals() {
    struct sigaction action = {};
    action.sa_handler = stop;
    ::sigaction(SIGTERM, &action, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
}

void printMatches(Show& show, const char* wildcard, bool values) {
    glob_t found = {};
    // Wildcards are expanded here, because no shell did so. Not "~": a static C library loads
    // libraries to look up a user, and the linker does not see this call of its own.
    if (::glob(wildcard, GLOB_NOCHECK, nullptr, &found) != 0) {
        toolWrite(show.out, "show: there is not enough memory\n");
        return;
    }
    for (std::size_t i = 0; i < found.gl_pathc && !showIsOver(show); ++i) {
        values ? showValues(show, found.gl_pathv[i], i == 0) : showPath(show, found.gl_pathv[i]);
    }
    ::globfree(&found);
}

void printAll(const Arguments& arguments, int fd) {
    static Show show{.out = {.fd = fd}, .mib = arguments.mib, .stopped = &stopped};
    IgCmnMemoryInit();
    // Failed system calls go to the run log alone, and this program has none.
    IgCmnMsgSetMode(MSGMODE_COLLECTING);
    for (char** path = arguments.paths; *path != nullptr && !showIsOver(show); ++path) {
        printMatches(show, *path, arguments.values);
    }
    toolFlush(show.out);
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    if (!readArguments(argc, argv, arguments)) {
        return usage();
    }
    setSignals();
    const int most_mib = arguments.mib * LIMIT_FACTOR;
    MaskPipe mask;
    if (maskStart(mask, argv[0], static_cast<rlim_t>(most_mib) << 20U) != 0) {
        std::perror("show: the filter could not be started");
        return EXIT_FAILURE;
    }
    printAll(arguments, mask.fd);
    switch (maskFinish(mask)) {
        case MaskEnd::LIMITED:
            std::printf("\nshow: the output was cut here, after %d MiB\n", most_mib);
            break;
        case MaskEnd::FAILED:
            std::puts("show: the filter failed, and what it did not print is missing");
            return EXIT_FAILURE;
        case MaskEnd::ALL:
            break;
    }
    return EXIT_SUCCESS;
}
