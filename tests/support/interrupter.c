/*
 * interrupter: runs a program and sends it signals at chosen places between its system calls.
 *
 *     interrupter REPORT [WHERE SIGNAL WHO]... -- PROGRAM [ARGUMENT...]
 *
 * The program stops twice at every system call: before it and after it. Of a series of one-byte
 * writes, which is how a progress bar is drawn, only the first counts. The program's run is
 * divided into segments: a new one begins each time it has made a child and each time it has reaped
 * one, and the stops of a segment are counted from 1. WHERE is SEGMENT:STOP with segments counted
 * from 0, or +N: the N-th stop after the signal before this one, or before:CALL or after:CALL: the
 * first such stop after that signal. WHO is "process", or "group" for everything that shares the
 * program's process group, which it leads.
 *
 * Children run untraced. All the program's own signals are delivered.
 *
 * REPORT gets a line for every signal sent: "SEGMENT STOP before|after CALL". Without any signal to
 * send it gets such a line for every stop. Calls that no test names are shown by their number.
 *
 * This program ends like PROGRAM: with the same exit code, or killed by the same signal. A
 * wrong word or a failed call ends it with 121 and a line on the standard error.
 */

#define _GNU_SOURCE

#include <errno.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

enum { TROUBLE = 121, MAX_SIGNALS = 8, SYSCALL_STOP = SIGTRAP | 0x80 };

/* A signal to send, and where. */
struct order {
    enum { ABSOLUTE, DISTANCE, BEFORE_CALL, AFTER_CALL } where;
    long segment;     /* ABSOLUTE */
    long stop;        /* ABSOLUTE, DISTANCE */
    const char* call; /* BEFORE_CALL, AFTER_CALL */
    int signal;
    bool group;
};

static struct order orders[MAX_SIGNALS];
static int order_count;
static int orders_done;

static pid_t program;
static enum { BEGINNING, CHILDREN, CALLS } watching; /* what the program stops at */
static FILE* report;
static long segment;
static long stop;
static long since_signal;

static _Noreturn void fail(const char* what) {
    dprintf(2, "interrupter: %s: %s\n", what, errno != 0 ? strerror(errno) : "wrong word");
    _exit(TROUBLE);
}

static long checked(long result, const char* what) {
    if (result < 0)
        fail(what);
    return result;
}

/* ---- Words ---------------------------------------------------------------------------------- */

static long number(const char* word) {
    char* end = NULL;
    errno = 0;
    const long value = strtol(word, &end, 10);
    if (end == word || *end != '\0' || value < 0)
        fail(word);
    return value;
}

/* The rest of a word after a prefix; NULL when it has another prefix. */
static const char* after_prefix(const char* word, const char* prefix) {
    const size_t length = strlen(prefix);
    return strncmp(word, prefix, length) == 0 ? word + length : NULL;
}

static struct order parse_place(char* word) {
    const char* rest = NULL;
    if ((rest = after_prefix(word, "+")) != NULL)
        return (struct order){.where = DISTANCE, .stop = number(rest)};
    if ((rest = after_prefix(word, "before:")) != NULL)
        return (struct order){.where = BEFORE_CALL, .call = rest};
    if ((rest = after_prefix(word, "after:")) != NULL)
        return (struct order){.where = AFTER_CALL, .call = rest};
    char* colon = strchr(word, ':');
    if (colon == NULL)
        fail(word);
    *colon = '\0';
    return (struct order){.segment = number(word), .stop = number(colon + 1)};
}

static struct order parse_order(char* const* words) {
    struct order order = parse_place(words[0]);
    order.signal = (int)number(words[1]);
    order.group = strcmp(words[2], "group") == 0;
    if (!order.group && strcmp(words[2], "process") != 0)
        fail(words[2]);
    return order;
}

/* Reads the orders; returns the program's own words. */
static char** parse(int argc, char** argv) {
    int word = 2;
    for (; word + 3 < argc && strcmp(argv[word], "--") != 0; word += 3) {
        if (order_count == MAX_SIGNALS)
            fail("too many signals");
        orders[order_count++] = parse_order(argv + word);
    }
    if (word + 1 >= argc || strcmp(argv[word], "--") != 0)
        fail("no program");
    return argv + word + 1;
}

/* ---- System calls --------------------------------------------------------------------------- */

static const char* call_name(unsigned long call) {
    static char unknown[32];
    switch (call) {
        case SYS_clone:
            return "clone";
        case SYS_clone3:
            return "clone3";
        case SYS_wait4:
            return "wait4";
        case SYS_waitid:
            return "waitid";
        case SYS_kill:
            return "kill";
        case SYS_setpgid:
            return "setpgid";
        case SYS_pselect6:
#ifdef SYS_select
        case SYS_select:
#endif
            return "select";
        case SYS_pidfd_open:
            return "pidfd_open";
        case SYS_rt_sigprocmask:
            return "sigprocmask";
        case SYS_rt_sigaction:
            return "sigaction";
        case SYS_rt_sigreturn:
            return "sigreturn";
        case SYS_umask:
            return "umask";
        case SYS_dup3:
#ifdef SYS_dup2
        case SYS_dup2:
#endif
            return "dup2";
        case SYS_close:
            return "close";
        case SYS_openat:
            return "open";
        case SYS_write:
            return "write";
        case SYS_exit_group:
            return "exit";
        default:
            snprintf(unknown, sizeof unknown, "%lu", call);
            return unknown;
    }
}

static bool makes_child(unsigned long call) {
    return call == SYS_clone || call == SYS_clone3;
}

/* ptrace(2); false when SIGKILL has ended the program meanwhile. */
static bool trace(enum __ptrace_request request, pid_t process, void* address, void* data) {
    const bool done = ptrace(request, process, address, data) != -1;
    if (!done && errno != ESRCH)
        fail("ptrace");
    return done;
}

/* ---- Stops ---------------------------------------------------------------------------------- */

static void send_signal(const struct order* order) {
    checked(kill(order->group ? -program : program, order->signal), "kill");
    since_signal = 0;
    orders_done++;
}

/* Whether the next order is due at this stop. */
static bool is_due(bool before, unsigned long call) {
    if (orders_done == order_count)
        return false;
    const struct order* next = &orders[orders_done];
    switch (next->where) {
        case ABSOLUTE:
            return segment == next->segment && stop == next->stop;
        case DISTANCE:
            return orders_done > 0 && since_signal == next->stop;
        default:
            return orders_done > 0 && since_signal > 0 && before == (next->where == BEFORE_CALL) &&
                   strcmp(call_name(call), next->call) == 0;
    }
}

/* Handles one stop before or after `call`. */
static void visit(bool before, unsigned long call) {
    stop++;
    since_signal++;
    const bool due = is_due(before, call);
    if (due || order_count == 0)
        fprintf(report, "%ld %ld %s %s\n", segment, stop, before ? "before" : "after",
                call_name(call));
    while (is_due(before, call))
        send_signal(&orders[orders_done]);
}

static unsigned long call = SYS_execve; /* the current one; at first the start of PROGRAM */
static bool tiny_write;
static bool repeated;

static void take_syscall_stop(void) {
    struct __ptrace_syscall_info info;
    if (!trace(PTRACE_GET_SYSCALL_INFO, program, (void*)sizeof info, &info))
        return;
    const bool before = info.op == PTRACE_SYSCALL_INFO_ENTRY;
    if (before) {
        call = info.entry.nr;
        const bool tiny = call == SYS_write && info.entry.args[2] == 1;
        repeated = tiny && tiny_write;
        tiny_write = tiny;
    }
    if (repeated)
        return;
    visit(before, call);
    const bool succeeded = !before && info.exit.is_error == 0 && info.exit.rval > 0;
    if (succeeded && (makes_child(call) || call == SYS_wait4)) {
        segment++;
        stop = 0;
    }
}

/* Detaches a child that the kernel has attached. The first segment with a signal may begin with it:
 * stopping at every earlier call would only cost time. */
static void take_new_child(void) {
    static long children;
    unsigned long child = 0;
    if (!trace(PTRACE_GETEVENTMSG, program, NULL, &child))
        return;
    checked(waitpid((pid_t)child, NULL, __WALL), "waitpid");
    trace(PTRACE_DETACH, (pid_t)child, NULL, NULL);
    children++;
    if (watching == CHILDREN && children == (orders[0].segment + 1) / 2) {
        watching = CALLS;
        call = SYS_clone;
        segment = 2 * children - 2;
    }
}

/* Handles one stop of the program; returns the signal to deliver to it. */
static int take_stop(int status) {
    switch (status >> 8) {
        case SYSCALL_STOP:
            if (watching == CALLS)
                take_syscall_stop();
            return 0;
        case SIGTRAP | PTRACE_EVENT_EXEC << 8:
            watching = order_count > 0 && orders[0].segment > 0 ? CHILDREN : CALLS;
            return 0;
        case SIGTRAP | PTRACE_EVENT_FORK << 8:
        case SIGTRAP | PTRACE_EVENT_VFORK << 8:
        case SIGTRAP | PTRACE_EVENT_CLONE << 8:
            take_new_child();
            return 0;
        default:
            return WSTOPSIG(status);
    }
}

/* Follows the program to its end; returns its wait status. */
static int follow(void) {
    for (int pass_on = 0;;) {
        if (order_count > 0 && orders_done == order_count)
            watching = CHILDREN; /* only to detach them */
        const int request = watching == CALLS ? PTRACE_SYSCALL : PTRACE_CONT;
        trace(request, program, NULL, (void*)(long)pass_on);
        int status = 0;
        checked(waitpid(program, &status, 0), "waitpid");
        if (!WIFSTOPPED(status))
            return status;
        pass_on = take_stop(status);
    }
}

static void start(char** words) {
    program = (pid_t)checked(fork(), "fork");
    if (program == 0) {
        checked(setpgid(0, 0), "setpgid");
        checked(ptrace(PTRACE_TRACEME, 0, NULL, NULL), "ptrace");
        raise(SIGSTOP);
        execv(words[0], words);
        fail(words[0]);
    }
    int status = 0;
    checked(waitpid(program, &status, 0), "waitpid");
    const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC | PTRACE_O_TRACEFORK |
                         PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    trace(PTRACE_SETOPTIONS, program, NULL, (void*)options);
}

int main(int argc, char** argv) {
    char** words = parse(argc, argv);
    report = fopen(argv[1], "we");
    if (report == NULL)
        fail(argv[1]);
    start(words);
    const int status = follow();
    if (fclose(report) != 0)
        fail(argv[1]);
    if (WIFSIGNALED(status)) {
        signal(WTERMSIG(status), SIG_DFL);
        raise(WTERMSIG(status));
    }
    return WEXITSTATUS(status);
}
