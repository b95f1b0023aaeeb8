// Another effective user for a while. The program does not call these functions, and they have a
// file of their own so that it does not link them: a static C library looks up a user with modules
// that it loads.
#ifndef QUENDIL_PROCESS_IGCMNUSER_H
#define QUENDIL_PROCESS_IGCMNUSER_H

#include <cstdint>

/// The effective user before a change.
struct usr_inf {
    std::uint32_t euid;
};

/// Result of the two functions below: unknown user, or a call failed (reported).
inline constexpr int USER_FAILED = 11;

/// Makes the named user the effective user and keeps the present one in `usr_inf`. 0, USER_FAILED,
/// or -1 when memory runs out.
int IgCmnChangeUser(const char* user_name, usr_inf* usr_inf);
/// Sets the effective user back. 0 or USER_FAILED.
int IgCmnRetoreUser(const usr_inf* usr_inf);

#endif
