// Runs the shell that copies and removes files for the program.
#ifndef QUENDIL_COMMON_FILE_IGSHELL_H
#define QUENDIL_COMMON_FILE_IGSHELL_H

/// Runs a command line with "/bin/sh" and waits for its end, as system(3) does, but does not ignore
/// SIGINT meanwhile: a signal to this program alone interrupts the run as usual, once the command
/// has ended. A command that SIGINT ended interrupts the run too, because the terminal sends that
/// signal to both. The command also ignores the interrupting signals that are ignored when it
/// starts, so nothing stops the removal at the end of a run.
/// @return the wait status from waitpid(2); -1 with errno set when the shell could not be started
///         or waited for
int runShell(const char* command);

#endif
