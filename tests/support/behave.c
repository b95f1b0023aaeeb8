/*
 * behave: a program that performs its arguments; it acts as every tool and archiver in the tests.
 *
 *     behave ACTION...  [-- ARGUMENT...]
 *     behave play SCRIPT [ARGUMENT...]
 *
 * The actions are performed in order; after the last one the program exits with 0. Each action is
 * one word followed by a fixed number of words. ARGUMENTs are not actions: a caller of
 * the imitated program passed them, for the actions that read them. SCRIPT holds one word to a
 * line; empty lines and lines that begin with '#' are skipped. So a file whose first line is
 * "#!/opt/behave play" is a program of its own, and can replace any other one.
 *
 * In every word \n \t \r \s (blank) \q (double quote) \z (nothing) \\ and \xHH stand for one byte.
 * A signal is a number or a name without SIG. PATH "-" is the standard output.
 *
 * Output
 *     out TEXT                    write to the standard output
 *     err TEXT                    write to the standard error
 *     flood FD BYTES              write so many bytes to a descriptor, in lines of 64
 *     write PATH TEXT             make or replace a file (mode 0666 less the umask)
 *     append PATH TEXT            append to a file
 *     fill PATH BYTES             make or replace a file of so many bytes
 * Files
 *     dir PATH, fifo PATH, socket PATH, link TARGET PATH, remove PATH, rename PATH PATH
 *     mode PATH OCTAL, owner PATH UID GID, touch PATH SECONDS, cd PATH, umask OCTAL
 * Ending
 *     exit CODE                   exit at once; "exit last" with the code of the last "run"
 *     die SIGNAL                  be killed by a signal
 *     close FD                    close a descriptor
 * Signals
 *     ignore SIGNAL, default SIGNAL, block SIGNAL, unblock SIGNAL
 *     note SIGNAL PATH            from now on append the number of each such signal to PATH
 *     exiton SIGNAL CODE          from now on exit with CODE when the signal arrives
 *     kill SIGNAL WHO             WHO: self, parent, group, or the path of a file with a process id
 *     stop                        stop itself, until continued
 * Waiting
 *     forever                     sleep until killed, even if signal handlers run
 *     nap MILLISECONDS            sleep so long, even if signal handlers run
 *     ready PATH                  make PATH with the process id, complete at once
 *     await PATH                  continue when PATH exists
 *     drain PATH                  read the standard input to its end, write the byte count to PATH
 * Processes
 *     child ACTION... end         a child performs these actions; the program itself continues
 *     wait                        wait for all children
 *     group                       become the leader of a new process group
 *     leave                       join the process group of the parent
 *     session                     become the leader of a new session
 *     daemon                      continue as an orphan in a new session; the first process exits 0
 * The caller's arguments
 *     ifarg TEXT ACTION... end    perform these actions if an argument contains TEXT
 *     once PATH ACTION... end     perform these actions unless PATH exists, and make it
 *     run PROGRAM                 run a program with the arguments and wait for it
 *     exec PROGRAM                become a program with the arguments
 *     tarwrite BYTES              write so many bytes to the archive that "tar cf... NAME" names
 *     gzwrite BYTES               write so many bytes to the last argument with ".gz" appended
 *     gzconsume                   remove the file that the last argument names
 * Report
 *     report PATH                 write the inherited state as lines KEY=VALUE, complete at once:
 *                                 argN, pid, ppid, pgid, sid, uid, euid, gid, egid, umask, cwd,
 *                                 blocked, ignored, caught (signal numbers, comma-separated) and,
 *                                 for every open descriptor, fdN=MODE TARGET with MODE r, w or rw
 *
 * A wrong word or a failed action ends the program with 121 and a line on the standard error.
 */

#define _GNU_SOURCE

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { TROUBLE = 121, MAX_WORDS = 512, LINE = 64 };

/* The actions and the position in them; the caller's arguments. */
static char* words[MAX_WORDS];
static int word_count;
static int next_word;
static char** arguments;
static int argument_count;

static char** all_argv;
static int all_argc;
static int last_code;
static int note_fd[NSIG];
static int exit_code[NSIG];

static _Noreturn void fail(const char* what, const char* subject) {
    dprintf(2, "behave: %s: %s: %s\n", what, subject, errno != 0 ? strerror(errno) : "wrong word");
    _exit(TROUBLE);
}

static int checked(int result, const char* what, const char* subject) {
    if (result < 0)
        fail(what, subject);
    return result;
}

/* ---- Words ---------------------------------------------------------------------------------- */

/* Resolves the escapes of a word, in place. */
static char* decode(char* word) {
    static const char letters[] = "ntrsq\\", bytes[] = "\n\t\r \"\\";
    char* to = word;
    for (const char* from = word; *from != '\0'; from++) {
        if (*from != '\\') {
            *to++ = *from;
            continue;
        }
        from++;
        const char* letter = *from != '\0' ? strchr(letters, *from) : NULL;
        unsigned int byte;
        if (letter != NULL) {
            *to++ = bytes[letter - letters];
        } else if (*from == 'x' && sscanf(from + 1, "%2x", &byte) == 1) {
            *to++ = (char)byte;
            from += 2;
        } else if (*from != 'z') {
            errno = 0;
            fail("escape", word);
        }
    }
    *to = '\0';
    return word;
}

static void add_word(char* word) {
    errno = 0;
    if (word_count == MAX_WORDS)
        fail("too many words", word);
    words[word_count++] = decode(word);
}

/* Reads the words of a script. */
static void read_script(const char* path) {
    FILE* script = fopen(path, "re");
    if (script == NULL)
        fail("script", path);
    char* line = NULL;
    size_t capacity = 0;
    while (getline(&line, &capacity, script) > 0) {
        line[strcspn(line, "\n")] = '\0';
        if (line[0] != '\0' && line[0] != '#')
            add_word(strdup(line));
    }
    free(line);
    fclose(script);
}

static long number_of(const char* word, int base) {
    char* rest;
    errno = 0;
    long number = strtol(word, &rest, base);
    if (rest == word || *rest != '\0')
        fail("not a number", word);
    return number;
}

static int signal_of(const char* word) {
    if (word[0] >= '0' && word[0] <= '9')
        return (int)number_of(word, 10);
    for (int number = 1; number < NSIG; number++) {
        const char* name = sigabbrev_np(number);
        if (name != NULL && strcmp(name, word) == 0)
            return number;
    }
    errno = 0;
    fail("not a signal", word);
}

static void perform(void);
static void skip_block(void);

/* ---- Output and files ----------------------------------------------------------------------- */

static void put(int fd, const char* text, size_t size) {
    while (size > 0) {
        ssize_t done = write(fd, text, size);
        if (done < 0 && errno != EINTR)
            fail("write", "output");
        if (done > 0) {
            text += done;
            size -= (size_t)done;
        }
    }
}

static void put_lines(int fd, long size) {
    char line[LINE];
    memset(line, 'x', LINE);
    line[LINE - 1] = '\n';
    for (; size > 0; size -= LINE)
        put(fd, line, size < LINE ? (size_t)size : LINE);
}

static int open_output(const char* path, int flags) {
    if (strcmp(path, "-") == 0)
        return checked(dup(1), "dup", path);
    return checked(open(path, O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666), "open", path);
}

static void write_file(const char* path, int flags, const char* text) {
    int fd = open_output(path, flags);
    put(fd, text, strlen(text));
    close(fd);
}

static void fill_file(const char* path, long size) {
    int fd = open_output(path, O_TRUNC);
    put_lines(fd, size);
    close(fd);
}

/* Makes a file that is complete as soon as it exists. */
static void publish(const char* path, const char* text) {
    char hidden[PATH_MAX];
    if (strcmp(path, "-") == 0) {
        put(1, text, strlen(text));
        return;
    }
    snprintf(hidden, sizeof hidden, "%s.%d", path, (int)getpid());
    write_file(hidden, O_TRUNC, text);
    checked(rename(hidden, path), "rename", path);
}

static void publish_number(const char* path, long number) {
    char text[32];
    snprintf(text, sizeof text, "%ld\n", number);
    publish(path, text);
}

static void make_socket(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    int fd = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket", path);
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    checked(bind(fd, (struct sockaddr*)&address, sizeof address), "bind", path);
    close(fd);
}

static void touch(const char* path, long seconds) {
    struct timespec both[2] = {{.tv_sec = seconds}, {.tv_sec = seconds}};
    checked(utimensat(AT_FDCWD, path, both, AT_SYMLINK_NOFOLLOW), "utimensat", path);
}

/* ---- Signals and waiting -------------------------------------------------------------------- */

static void on_note(int number) {
    int saved = errno;
    char text[] = {(char)('0' + number / 10), (char)('0' + number % 10), '\n'};
    const char* start = number < 10 ? text + 1 : text;
    if (write(note_fd[number], start, (size_t)(text + sizeof text - start)) < 0)
        _exit(TROUBLE);
    errno = saved;
}

static void on_exit_signal(int number) {
    _exit(exit_code[number]);
}

static void set_action(int number, void (*handler)(int)) {
    struct sigaction action = {.sa_handler = handler};
    checked(sigaction(number, &action, NULL), "sigaction", sigabbrev_np(number));
}

static void set_mask(int how, int number) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    checked(sigprocmask(how, &set, NULL), "sigprocmask", sigabbrev_np(number));
}

static _Noreturn void die(int number) {
    if (number != SIGKILL)
        set_action(number, SIG_DFL);
    set_mask(SIG_UNBLOCK, number);
    raise(number);
    fail("survived", sigabbrev_np(number));
}

static void send_signal(int number, const char* who) {
    int pid = 0;
    if (strcmp(who, "self") == 0) {
        pid = getpid();
    } else if (strcmp(who, "parent") == 0) {
        pid = getppid();
    } else if (strcmp(who, "group") != 0) {
        FILE* file = fopen(who, "re");
        if (file == NULL || fscanf(file, "%d", &pid) != 1)
            fail("no process id", who);
        fclose(file);
    }
    checked(kill(pid, number), "kill", who);
}

static void nap(long milliseconds) {
    struct timespec left = {milliseconds / 1000, milliseconds % 1000 * 1000000};
    while (nanosleep(&left, &left) < 0 && errno == EINTR)
        ;
}

static void await(const char* path) {
    while (access(path, F_OK) < 0)
        nap(2);
}

static void drain(const char* path) {
    char buffer[4096];
    long total = 0;
    ssize_t got;
    while ((got = read(0, buffer, sizeof buffer)) > 0)
        total += got;
    checked((int)got, "read", "standard input");
    publish_number(path, total);
}

/* ---- Processes and arguments ---------------------------------------------------------------- */

static void start_child(void) {
    if (checked(fork(), "fork", "child") == 0) {
        perform();
        _exit(0);
    }
    skip_block();
}

static void wait_for_children(void) {
    while (wait(NULL) > 0 || errno == EINTR)
        ;
}

static void become_daemon(void) {
    if (checked(fork(), "fork", "daemon") > 0)
        _exit(0);
    checked(setsid(), "setsid", "daemon");
}

static int has_argument(const char* text) {
    for (int i = 0; i < argument_count; i++)
        if (strstr(arguments[i], text) != NULL)
            return 1;
    return 0;
}

static _Noreturn void become(char* program) {
    char* vector[MAX_WORDS] = {program};
    for (int i = 0; i < argument_count && i < MAX_WORDS - 2; i++)
        vector[i + 1] = arguments[i];
    execv(program, vector);
    fail("exec", program);
}

static void run(char* program) {
    int status;
    pid_t pid = checked(fork(), "fork", program);
    if (pid == 0)
        become(program);
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            fail("waitpid", program);
    last_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

static char* argument(int place) {
    errno = 0;
    if (place < 0 || place >= argument_count)
        fail("argument", "missing");
    return arguments[place];
}

static void write_compressed(long size) {
    char path[PATH_MAX];
    snprintf(path, sizeof path, "%s.gz", argument(argument_count - 1));
    fill_file(path, size);
}

/* ---- The report ----------------------------------------------------------------------------- */

static void report_signals(FILE* to) {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, NULL, &blocked);
    static const char* const names[] = {"blocked", "ignored", "caught"};
    for (int kind = 0; kind < 3; kind++) {
        const char* separator = "";
        fprintf(to, "%s=", names[kind]);
        for (int number = 1; number < NSIG; number++) {
            struct sigaction action;
            if (sigaction(number, NULL, &action) < 0)
                continue;
            int is[] = {sigismember(&blocked, number), action.sa_handler == SIG_IGN,
                        action.sa_handler != SIG_IGN && action.sa_handler != SIG_DFL};
            if (is[kind]) {
                fprintf(to, "%s%d", separator, number);
                separator = ",";
            }
        }
        fputc('\n', to);
    }
}

static void report_descriptors(FILE* to) {
    DIR* directory = opendir("/proc/self/fd");
    if (directory == NULL)
        fail("opendir", "/proc/self/fd");
    for (struct dirent* entry; (entry = readdir(directory)) != NULL;) {
        int fd = atoi(entry->d_name);
        if (entry->d_name[0] == '.' || fd == dirfd(directory))
            continue;
        char target[PATH_MAX];
        ssize_t size = readlinkat(dirfd(directory), entry->d_name, target, sizeof target);
        static const char* const modes[] = {"r", "w", "rw", "-"};
        fprintf(to, "fd%d=%s %.*s\n", fd, modes[fcntl(fd, F_GETFL) & O_ACCMODE],
                (int)(size < 0 ? 0 : size), target);
    }
    closedir(directory);
}

static void report(const char* path) {
    char* text = NULL;
    size_t size = 0;
    char cwd[PATH_MAX];
    FILE* to = open_memstream(&text, &size);
    mode_t mask = umask(0);
    umask(mask);
    for (int i = 0; i < all_argc; i++)
        fprintf(to, "arg%d=%s\n", i, all_argv[i]);
    fprintf(to, "pid=%d\nppid=%d\npgid=%d\nsid=%d\n", getpid(), getppid(), getpgrp(), getsid(0));
    fprintf(to, "uid=%u\neuid=%u\ngid=%u\negid=%u\n", getuid(), geteuid(), getgid(), getegid());
    fprintf(to, "umask=%04o\ncwd=%s\n", mask, getcwd(cwd, sizeof cwd) != NULL ? cwd : "");
    report_signals(to);
    report_descriptors(to);
    fclose(to);
    publish(path, text);
    free(text);
}

/* Makes the marker of "once"; returns whether it is new. */
static int first_time(const char* path) {
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST)
        fail("open", path);
    if (fd >= 0)
        close(fd);
    return fd >= 0;
}

/* ---- Actions -------------------------------------------------------------------------------- */

/* Each gets its words; for one that opens a block, next_word is at the block's start. */

static void do_out(char** w) {
    put(1, w[0], strlen(w[0]));
}
static void do_err(char** w) {
    put(2, w[0], strlen(w[0]));
}
static void do_flood(char** w) {
    put_lines((int)number_of(w[0], 10), number_of(w[1], 10));
}
static void do_write(char** w) {
    write_file(w[0], O_TRUNC, w[1]);
}
static void do_append(char** w) {
    write_file(w[0], O_APPEND, w[1]);
}
static void do_fill(char** w) {
    fill_file(w[0], number_of(w[1], 10));
}

static void do_dir(char** w) {
    checked(mkdir(w[0], 0777), "mkdir", w[0]);
}
static void do_fifo(char** w) {
    checked(mkfifo(w[0], 0666), "mkfifo", w[0]);
}
static void do_socket(char** w) {
    make_socket(w[0]);
}
static void do_link(char** w) {
    checked(symlink(w[0], w[1]), "symlink", w[1]);
}
static void do_remove(char** w) {
    checked(remove(w[0]), "remove", w[0]);
}
static void do_rename(char** w) {
    checked(rename(w[0], w[1]), "rename", w[0]);
}
static void do_mode(char** w) {
    checked(chmod(w[0], (mode_t)number_of(w[1], 8)), "chmod", w[0]);
}
static void do_touch(char** w) {
    touch(w[0], number_of(w[1], 10));
}
static void do_cd(char** w) {
    checked(chdir(w[0]), "chdir", w[0]);
}
static void do_umask(char** w) {
    umask((mode_t)number_of(w[0], 8));
}

static void do_owner(char** w) {
    uid_t user = (uid_t)number_of(w[1], 10);
    gid_t group = (gid_t)number_of(w[2], 10);
    checked(lchown(w[0], user, group), "lchown", w[0]);
}

static void do_exit(char** w) {
    _exit(strcmp(w[0], "last") == 0 ? last_code : (int)number_of(w[0], 10));
}

static void do_die(char** w) {
    die(signal_of(w[0]));
}
static void do_close(char** w) {
    checked(close((int)number_of(w[0], 10)), "close", w[0]);
}

static void do_ignore(char** w) {
    set_action(signal_of(w[0]), SIG_IGN);
}
static void do_default(char** w) {
    set_action(signal_of(w[0]), SIG_DFL);
}
static void do_block(char** w) {
    set_mask(SIG_BLOCK, signal_of(w[0]));
}
static void do_unblock(char** w) {
    set_mask(SIG_UNBLOCK, signal_of(w[0]));
}
static void do_kill(char** w) {
    send_signal(signal_of(w[0]), w[1]);
}

static void do_note(char** w) {
    int number = signal_of(w[0]);
    note_fd[number] = open_output(w[1], O_APPEND);
    set_action(number, on_note);
}

static void do_exiton(char** w) {
    int number = signal_of(w[0]);
    exit_code[number] = (int)number_of(w[1], 10);
    set_action(number, on_exit_signal);
}

static void do_stop(char** w) {
    (void)w;
    raise(SIGSTOP);
}

static void do_forever(char** w) {
    (void)w;
    for (;;)
        pause();
}

static void do_nap(char** w) {
    nap(number_of(w[0], 10));
}
static void do_ready(char** w) {
    publish_number(w[0], getpid());
}
static void do_await(char** w) {
    await(w[0]);
}
static void do_drain(char** w) {
    drain(w[0]);
}

static void do_child(char** w) {
    (void)w;
    start_child();
}

static void do_wait(char** w) {
    (void)w;
    wait_for_children();
}

static void do_group(char** w) {
    (void)w;
    checked(setpgid(0, 0), "setpgid", "self");
}

static void do_leave(char** w) {
    (void)w;
    checked(setpgid(0, getpgid(getppid())), "setpgid", "parent");
}

static void do_session(char** w) {
    (void)w;
    checked(setsid(), "setsid", "self");
}

static void do_daemon(char** w) {
    (void)w;
    become_daemon();
}

static void perform_if(int condition) {
    if (condition)
        perform();
    else
        skip_block();
}

static void do_ifarg(char** w) {
    perform_if(has_argument(w[0]));
}
static void do_once(char** w) {
    perform_if(first_time(w[0]));
}
static void do_run(char** w) {
    run(w[0]);
}
static void do_exec(char** w) {
    become(w[0]);
}
static void do_tarwrite(char** w) {
    fill_file(argument(1), number_of(w[0], 10));
}
static void do_gzwrite(char** w) {
    write_compressed(number_of(w[0], 10));
}

static void do_gzconsume(char** w) {
    (void)w;
    checked(unlink(argument(argument_count - 1)), "unlink", "the archive");
}

static void do_report(char** w) {
    report(w[0]);
}

/* An action: how many words it takes, and whether a block follows them. */
struct action {
    const char* name;
    int takes;
    int opens;
    void (*perform)(char** taken);
};

static const struct action actions[] = {
    {"out", 1, 0, do_out},
    {"err", 1, 0, do_err},
    {"flood", 2, 0, do_flood},
    {"write", 2, 0, do_write},
    {"append", 2, 0, do_append},
    {"fill", 2, 0, do_fill},
    {"dir", 1, 0, do_dir},
    {"fifo", 1, 0, do_fifo},
    {"socket", 1, 0, do_socket},
    {"link", 2, 0, do_link},
    {"remove", 1, 0, do_remove},
    {"rename", 2, 0, do_rename},
    {"mode", 2, 0, do_mode},
    {"owner", 3, 0, do_owner},
    {"touch", 2, 0, do_touch},
    {"cd", 1, 0, do_cd},
    {"umask", 1, 0, do_umask},
    {"exit", 1, 0, do_exit},
    {"die", 1, 0, do_die},
    {"close", 1, 0, do_close},
    {"ignore", 1, 0, do_ignore},
    {"default", 1, 0, do_default},
    {"block", 1, 0, do_block},
    {"unblock", 1, 0, do_unblock},
    {"note", 2, 0, do_note},
    {"exiton", 2, 0, do_exiton},
    {"kill", 2, 0, do_kill},
    {"stop", 0, 0, do_stop},
    {"forever", 0, 0, do_forever},
    {"nap", 1, 0, do_nap},
    {"ready", 1, 0, do_ready},
    {"await", 1, 0, do_await},
    {"drain", 1, 0, do_drain},
    {"child", 0, 1, do_child},
    {"wait", 0, 0, do_wait},
    {"group", 0, 0, do_group},
    {"leave", 0, 0, do_leave},
    {"session", 0, 0, do_session},
    {"daemon", 0, 0, do_daemon},
    {"ifarg", 1, 1, do_ifarg},
    {"once", 1, 1, do_once},
    {"run", 1, 0, do_run},
    {"exec", 1, 0, do_exec},
    {"tarwrite", 1, 0, do_tarwrite},
    {"gzwrite", 1, 0, do_gzwrite},
    {"report", 1, 0, do_report},
    {"gzconsume", 0, 0, do_gzconsume},
    {"end", 0, 0, NULL},
};

/* Moves past the next action and its words, which begin at *taken. */
static const struct action* take_action(char*** taken) {
    const char* name = words[next_word++];
    size_t i = 0;
    errno = 0;
    while (i < sizeof actions / sizeof actions[0] && strcmp(actions[i].name, name) != 0)
        i++;
    if (i == sizeof actions / sizeof actions[0])
        fail("not an action", name);
    *taken = words + next_word;
    next_word += actions[i].takes;
    if (next_word > word_count)
        fail("a word is missing", name);
    return &actions[i];
}

/* Skips to the word after the "end" of the block that begins here. */
static void skip_block(void) {
    for (int depth = 1; depth > 0 && next_word < word_count;) {
        char** taken;
        const struct action* action = take_action(&taken);
        depth += action->perform == NULL ? -1 : action->opens;
    }
}

/* Performs actions up to the end of the current block, or of all words. */
static void perform(void) {
    while (next_word < word_count) {
        char** taken;
        const struct action* action = take_action(&taken);
        if (action->perform == NULL)
            return;
        action->perform(taken);
    }
}

int main(int argc, char** argv) {
    all_argv = argv;
    all_argc = argc;
    if (argc > 2 && strcmp(argv[1], "play") == 0) {
        read_script(argv[2]);
        arguments = argv + 3;
        argument_count = argc - 3;
    } else {
        int i = 1;
        for (; i < argc && strcmp(argv[i], "--") != 0; i++)
            add_word(strdup(argv[i]));
        if (i < argc) {
            arguments = argv + i + 1;
            argument_count = argc - i - 1;
        }
    }
    perform();
    return 0;
}
