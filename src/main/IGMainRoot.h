// A run that another user started through the set-user-ID bit.
#ifndef QUENDIL_MAIN_IGMAINROOT_H
#define QUENDIL_MAIN_IGMAINROOT_H

/// The call that kept IgMainBecomeRoot from its work; null for none.
struct RootChange {
    const char* failed_call = nullptr;
    int error = 0;
};

/// Where the real user is not root but the effective one is, becomes root in full: user, group, no
/// further groups, and an environment of its own. Nothing that the user has set reaches the tools,
/// which run as root and, unlike this program, do not know that another user has started them. To
/// be called before anything reads the environment, and so before anything can be reported.
RootChange IgMainBecomeRoot();

/// Reports the call that failed. 0 when none did, else -1.
int IgMainRootFailure(const RootChange& change);

#endif
