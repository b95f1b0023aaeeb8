/*
 * old_kernel: runs a program as Linux 4.18 would: every system call that is newer fails with
 * ENOSYS.
 *
 *     old_kernel PROGRAM [ARGUMENT...]
 *
 * It applies to every process that the program starts. A wrong word or a failed call ends it with
 * 121 and a line on the standard error.
 */

#define _GNU_SOURCE

#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

/* This architecture, and the number of the first call that Linux 4.18 does not have. */
#if defined(__x86_64__)
static const unsigned MACHINE = AUDIT_ARCH_X86_64;
enum { FIRST_NEW = 335 };
#elif defined(__aarch64__)
static const unsigned MACHINE = AUDIT_ARCH_AARCH64;
enum { FIRST_NEW = 294 };
#else
#error "the system calls of Linux 4.18 are not known for this machine"
#endif

enum { TROUBLE = 121 };

static _Noreturn void fail(const char* what) {
    dprintf(2, "old_kernel: %s: %s\n", what, errno != 0 ? strerror(errno) : "wrong word");
    _exit(TROUBLE);
}

int main(int argc, char** argv) {
    /* A program for another kind of machine, such as one of 32 bits, is ended. */
    struct sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, MACHINE, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, FIRST_NEW, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    struct sock_fprog program = {sizeof steps / sizeof steps[0], steps};

    if (argc < 2) {
        errno = 0;
        fail("no program");
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        fail("prctl");
    }
    execv(argv[1], argv + 1);
    fail(argv[1]);
}
