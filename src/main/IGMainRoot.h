// Makes a run that another user started through the set-user-ID bit fully root.
#ifndef QUENDIL_MAIN_IGMAINROOT_H
#define QUENDIL_MAIN_IGMAINROOT_H

/// The call that failed in IgMainBecomeRoot; null if none did.
struct RootChange {
    const char* failed_call = nullptr;
    int error = 0;
};

/// If only the effective user is root, makes the process fully root: user, group, no supplementary
/// groups, and a new environment. Only checked time-zone and locale values of the user reach the
/// tools: they run as root and, unlike this program, in the C library's normal mode, in which it
/// trusts the environment. Call it before anything reads the environment; at that time nothing can
/// be reported yet.
RootChange IgMainBecomeRoot();

/// Reports the call that failed. Returns 0 when none did, else -1.
int IgMainRootFailure(const RootChange& change);

#endif
