// Switches to another effective user and back. The program does not call this unit; it is a file of
// its own so that it is not linked: a static C library loads shared libraries to look up a user.
#ifndef QUENDIL_PROCESS_IGCMNUSER_H
#define QUENDIL_PROCESS_IGCMNUSER_H

#include <cstdint>

/// The effective user before a switch.
struct usr_inf {
    std::uint32_t euid;
};

/// Result of the two functions below: unknown user, or a failed call (reported).
inline constexpr int USER_FAILED = 11;

/// Makes the named user the effective user and stores the current one in `usr_inf`. 0, USER_FAILED,
/// or -1 when memory runs out.
int IgCmnChangeUser(const char* user_name, usr_inf* usr_inf);
/// Restores the effective user. 0 or USER_FAILED.
int IgCmnRetoreUser(const usr_inf* usr_inf);

#endif
