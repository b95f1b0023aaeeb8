// The shell that copies and removes files for the program.
#ifndef QUENDIL_COMMON_FILE_IGSHELL_H
#define QUENDIL_COMMON_FILE_IGSHELL_H

/// Runs a command line with "/bin/sh" and waits for its end, as system(3) does, but SIGINT is not
/// ignored meanwhile: a signal to this program alone interrupts the run like any other, once the
/// command has ended. A command that SIGINT ended interrupts the run too: the terminal sends that
/// signal to both. Signals that are ignored when it starts do not reach the command either, so that
/// nothing stops the removal at the end of a run.
/// @return the wait status as waitpid(2) gives it; -1 with errno set when the shell could not be
/// started or waited for
int runShell(const char* command);

#endif
