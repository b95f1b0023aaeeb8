#include "process/IGProcessGroup.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/IGGuards.h"

namespace {

// The fields of a process's stat file.
struct Process {
    char state;
    long parent;
    long group;
    long threads;
};

// Skips the given number of blanks; null when there are fewer.
const char* skipBlanks(const char* text, int count) {
    while (count-- > 0 && text != nullptr) {
        text = std::strchr(text, ' ');
        text = text == nullptr ? nullptr : text + 1;
    }
    return text;
}

// Parses "pid (name) state parent group ..."; the number of threads is the 20th field. A name may
// contain any character.
bool parse(const char* line, Process& process) {
    const char* name_end = std::strrchr(line, ')');
    const char* state = name_end == nullptr ? nullptr : skipBlanks(name_end, 1);
    const char* threads = skipBlanks(state, 17);
    if (state == nullptr || threads == nullptr) {
        return false;
    }
    process = {*state, std::strtol(skipBlanks(state, 1), nullptr, 10),
               std::strtol(skipBlanks(state, 2), nullptr, 10), std::strtol(threads, nullptr, 10)};
    return true;
}

bool readProcess(const char* pid, Process& process) {
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/%s/stat", pid);
    const FdGuard fd(::open(path.data(), O_RDONLY | O_CLOEXEC));
    std::array<char, 1024> line{};
    return fd && ::read(fd.get(), line.data(), line.size() - 1) > 0 && parse(line.data(), process);
}

// Checks the number of threads too: if only the first thread has ended, the state is also "Z".
bool isDead(const Process& process) {
    return (process.state == 'Z' || process.state == 'X') && process.threads <= 1;
}

bool isOurDeadChild(const char* pid) {
    Process process{};
    return readProcess(pid, process) && isDead(process) && process.parent == ::getpid();
}

}  // namespace

bool processGroupLives(pid_t leader) {
    std::array<char, 16> own{};
    std::snprintf(own.data(), own.size(), "%d", leader);
    const DirGuard proc(isOurDeadChild(own.data()) ? ::opendir("/proc") : nullptr);
    if (!proc) {
        return true;
    }
    while (const struct dirent* entry = ::readdir(proc.get())) {
        Process process{};
        const bool is_process = entry->d_name[0] >= '1' && entry->d_name[0] <= '9';
        if (is_process && readProcess(entry->d_name, process) && process.group == leader &&
            !isDead(process)) {
            return true;
        }
    }
    return false;
}
