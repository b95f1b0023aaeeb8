// Copies its input with the values of passwords, keys, tokens and the like masked.
//
// usage: mask <FILE
//
// It writes all whole lines before it waits for more input. The exit status is 0; 153, a shell's
// status for SIGXFSZ, when the output reached a file-size limit, also when the signal is ignored; 1
// when the input cannot be read, or the output cannot be written for another reason.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tool/IGSecretText.h"

namespace {

constexpr int STATUS_FAILED = 1;
constexpr int STATUS_LIMIT = 128 + SIGXFSZ;

// Waits until a descriptor that another process has made non-blocking is ready.
// @return false when errno is not EAGAIN, or poll(2) failed
bool waitFor(int fd, short events) {
    struct pollfd one = {fd, events, 0};
    return errno == EAGAIN && ::poll(&one, 1, -1) >= 0;
}

bool mayTryAgain(int fd, short events) {
    return errno == EINTR || waitFor(fd, events);
}

bool writeOutput(void* /*to*/, const char* bytes, std::size_t size) {
    while (size != 0) {
        const ssize_t written = ::write(STDOUT_FILENO, bytes, size);
        if (written < 0) {
            if (!mayTryAgain(STDOUT_FILENO, POLLOUT)) {
                return false;
            }
            continue;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

int failed(const char* call) {
    const int number = errno;
    ::dprintf(STDERR_FILENO, "mask: %s: %s\n", call, std::strerror(number));
    return number == EFBIG ? STATUS_LIMIT : STATUS_FAILED;
}

secret_text text;  // static: 2 MiB are too large for the stack

}  // namespace

int main() {
    text.write = writeOutput;
    while (true) {
        const std::span<char> room = secretRoom(&text);
        const ssize_t size = ::read(STDIN_FILENO, room.data(), room.size());
        if (size < 0 && mayTryAgain(STDIN_FILENO, POLLIN)) {
            continue;
        }
        if (size < 0) {
            const int status = failed("read");
            return secretEnd(&text) ? status : failed("write");
        }
        if (!(size == 0 ? secretEnd(&text) : secretTake(&text, static_cast<std::size_t>(size)))) {
            return failed("write");
        }
        if (size == 0) {
            return 0;
        }
    }
}
