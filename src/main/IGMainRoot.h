// A run that another user started through the set-user-ID bit.
#ifndef QUENDIL_MAIN_IGMAINROOT_H
#define QUENDIL_MAIN_IGMAINROOT_H

/// Where the real user is not root but the effective one is, becomes root in full: user, group, no
/// further groups, and an environment of its own. Nothing that the user has set reaches the tools,
/// which run as root and, unlike this program, do not know that another user has started them. To
/// be called before anything reads the environment. Reports nothing: see IgMainRootFailure.
void IgMainBecomeRoot();

/// Reports the call that kept IgMainBecomeRoot from its work. 0 when none did, else -1.
int IgMainRootFailure();

#endif
