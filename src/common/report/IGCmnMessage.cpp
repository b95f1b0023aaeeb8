#include "common/report/IGCmnMessage.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/base/IGCmnMemory.h"
#include "common/base/IGPrintable.h"
#include "common/base/IGRunHooks.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnMessageState.h"
#include "common/report/IGCmnProgress.h"
#include "common/report/IGSysErr.h"
#include "common/report/IGTerminal.h"

// The texts are in the catalogue; IgCmnMsg<> has checked their arguments.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

MsgState msg_state;

namespace {

constexpr const char* MEMORY_WARNING = "ZEPA143-W:Memory is insufficient.\n";

// The latest run-log warning, stored while the run counts as failed.
struct SavedMessage {
    memory_pool pool;
    char* text;
    std::size_t size;
};
SavedMessage saved;

struct Output {
    const char* text;
    std::int32_t kind;
};

// In any other mode than the normal one, a failed system call is a warning in the run log.
Output chooseText(int number) {
    const MsgEntry& entry = msgEntry(number);
    const Output as_listed{entry.text, entry.kind};
    if (msg_state.mode == MSGMODE_NORMAL) {
        return as_listed;
    }
    switch (number) {
        case SYSERR_ERROR.call:
            return {IgCmnMsgGetText(SYSERR_WARNING.call), MSGKIND_LOG};
        case SYSERR_ERROR.place:
            return {IgCmnMsgGetText(SYSERR_WARNING.place), MSGKIND_LOG};
        case ZEPA122_E:
            return msg_state.mode == MSGMODE_COLLECTING ? Output{MEMORY_WARNING, entry.kind}
                                                        : as_listed;
        case SYSERR_ERROR.subject:
            return {IgCmnMsgGetText(SYSERR_WARNING.subject), MSGKIND_LOG};
        default:
            return as_listed;
    }
}

// Shows the output of `write` on its own line.
template <typename Write>
void show(std::FILE* stream, Write write) {
    IgCmnProgressNewline();
    writeTerminal(stream, write);
}

void showText(std::FILE* stream, const char* text, std::va_list args) {
    show(stream, [text, &args](std::FILE* terminal) {
        std::va_list copy;
        va_copy(copy, args);
        std::vfprintf(terminal, text, copy);
        va_end(copy);
    });
}

void writeLog(const char* text, std::va_list args) {
    if (msg_state.log == nullptr) {
        return;
    }
    std::va_list copy;
    va_copy(copy, args);
    const int written = std::vfprintf(msg_state.log, text, copy);
    va_end(copy);
    if (written < 0) {
        msgLogFailed("vfprintf", errno);
    }
    if (std::fflush(msg_state.log) != 0) {
        msgLogFailed("fflush", errno);
    }
}

void dropSaved() {
    if (saved.text != nullptr) {
        IgCmnMemoryFree(&saved.pool, saved.text, saved.size);
    }
    saved.text = nullptr;
    saved.size = 0;
}

void saveWarning(const char* text, std::va_list args) {
    std::va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(nullptr, 0, text, copy);
    va_end(copy);
    if (length < 0) {
        dropSaved();
        return;
    }
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    auto* grown = static_cast<char*>(IgCmnMemoryRealloc(&saved.pool, saved.text, saved.size, size));
    if (grown == nullptr) {
        dropSaved();
        return;
    }
    saved.text = grown;
    saved.size = std::max(saved.size, size);
    va_copy(copy, args);
    std::vsnprintf(saved.text, saved.size, text, copy);
    va_end(copy);
}

bool worthSaving(int number) {
    return msg_state.log != nullptr && IgMainGetRetCode() > RETCODE_DIRECTORY &&
           number <= ZEPA140_W && number != ZEPA114_E;
}

void writeMessage(int number, const Output& out, std::va_list args) {
    switch (out.kind) {
        case MSGKIND_LOG:
            writeLog(out.text, args);
            if (worthSaving(number)) {
                saveWarning(out.text, args);
            }
            break;
        case MSGKIND_STDOUT_LOG:
            showText(stdout, out.text, args);
            writeLog(out.text, args);
            break;
        case MSGKIND_STDERR_LOG:
            msg_state.stderr_used = 1;
            showText(stderr, out.text, args);
            writeLog(out.text, args);
            break;
        case MSGKIND_STDERR:
            msg_state.stderr_used = 1;
            showText(stderr, out.text, args);
            break;
        case MSGKIND_STDOUT:
            showText(stdout, out.text, args);
            break;
        default:
            break;
    }
}

}  // namespace

void IgCmnMsgOut(int number, ...) {
    const int kept_errno = errno;  // a caller may still check errno after a report
    const Output out = chooseText(number);
    if (out.text != nullptr) {
        std::va_list args;
        va_start(args, number);
        writeMessage(number, out, args);
        va_end(args);
    }
    errno = kept_errno;
}

void IgCmnMsgOutWhole(MsgNo number, const char* text, ...) {
    const int kept_errno = errno;
    std::va_list args;
    va_start(args, text);
    writeMessage(number, {text, msgEntry(number).kind}, args);
    va_end(args);
    errno = kept_errno;
}

void IgCmnMsgSetMode(MsgMode mode) {
    msg_state.mode = mode;
}

MessageMode::MessageMode(MsgMode mode) : former_(msg_state.mode) {
    IgCmnMsgSetMode(mode);
}

MessageMode::~MessageMode() {
    IgCmnMsgSetMode(former_);
}

const char* IgCmnMsgGetText(int number) {
    return msgEntry(number).text;
}

int IgCmnMsgLogOpened() {
    return msg_state.log_opened;
}

void IgCmnMsgReprint() {
    if (msg_state.stderr_used == 0 && saved.text != nullptr) {
        show(stderr, [](std::FILE* terminal) { std::fputs(saved.text, terminal); });
    }
    if (msg_state.log_opened != 0) {
        IgCmnMsg<ZEPA216_I>(static_cast<const char*>(msg_state.log_path.data()));
    }
}

void IgCmnMsgFree() {
    IgCmnMemoryFree(&saved.pool, nullptr, 0);
    saved = SavedMessage{};
}

void IgCmnSysErr(const SysErr& failed, SourcePlace place) {
    writeSysErr(failed, place, SYSERR_ERROR,
                [](MsgNo number, auto... args) { IgCmnMsgOut(number, args...); });
}

void IgCmnSysErrPath(const char* call, int error, const char* path, SourcePlace place) {
    IgCmnSysErr({.call = call, .error = error, .subject = path}, place);
}

void IgCmnSysErrPlain(const char* call, int error, SourcePlace place) {
    IgCmnSysErr({.call = call, .error = error}, place);
}

ShownText::ShownText(const char* text) : text_(text) {
    if (text == nullptr) {
        return;
    }
    const std::size_t size = IgCmnMsgPrintableSize(text, Tabs::KEPT);
    if (size == std::strlen(text) + 1) {
        return;  // true for most texts
    }
    const int kept_errno = errno;
    auto* shown = static_cast<char*>(IgCmnMemoryAlloc(&pool_, size));
    if (shown != nullptr) {
        IgCmnMsgPrintable(text, shown, size, Tabs::KEPT);
    }
    text_ = shown == nullptr ? "?" : shown;
    errno = kept_errno;
}

ShownText::~ShownText() {
    if (pool_ != nullptr) {
        const int kept_errno = errno;
        IgCmnMemoryFree(&pool_, nullptr, 0);
        errno = kept_errno;
    }
}

[[noreturn]] void msgLogFailed(const char* call, int error) {
    msg_state.stderr_used = 1;
    show(stderr, [call, error](std::FILE* terminal) {
        writeSysErr({.call = call, .error = error, .subject = msg_state.log_path.data()}, {},
                    SYSERR_ERROR, [terminal](MsgNo number, auto... args) {
                        std::fprintf(terminal, IgCmnMsgGetText(number), args...);
                    });
    });
    std::fclose(std::exchange(msg_state.log, nullptr));
    IgCmnMsgSetMode(MSGMODE_NORMAL);  // without a run log, later failures must reach the terminal
    const auto end = run_hooks.end_after_log_failure;
    std::exit(end != nullptr ? end() : IgMainGetRetCode());
}
