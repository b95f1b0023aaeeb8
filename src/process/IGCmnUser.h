// Switches to another effective user for a while. The program does not call this unit, which is
// alone in its file so that it is not linked: a static C library loads libraries to look up a user.
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
