// A run that another user started through the set-user-ID bit.
#ifndef QUENDIL_MAIN_IGMAINROOT_H
#define QUENDIL_MAIN_IGMAINROOT_H

/// The call that failed in IgMainBecomeRoot; null if none did.
struct RootChange {
    const char* failed_call = nullptr;
    int error = 0;
};

/// If only the effective user is root, makes the process fully root: user, group, no supplementary
/// groups, and a new environment. Of the user's variables only checked time-zone and locale values
/// reach the tools, which run as root and, unlike this program, do not know that another user
/// started them. Call it before anything reads the environment, and so before anything can be
/// reported.
RootChange IgMainBecomeRoot();

/// Reports the call that failed. Returns 0 when none did, else -1.
int IgMainRootFailure(const RootChange& change);

#endif
