// Checks of pointers that a caller must never pass as null. They stay in release builds: a null
// here is a programming error, and continuing would only hide its cause.
#ifndef QUENDIL_COMMON_BASE_IGASSERT_H
#define QUENDIL_COMMON_BASE_IGASSERT_H

/// Prints `FILE:LINE: FUNCTION: Assertion `TEXT' failed.` on the standard error and aborts.
[[noreturn]] void IgCmnAssertFailed(const char* text, const char* file, int line,
                                    const char* function);

/// Aborts with the text "NAME != ((void *)0)" when the pointer NAME is null.
#define IG_ASSERT_NOT_NULL(name) \
    ((name) != nullptr ? void(0) \
                       : IgCmnAssertFailed(#name " != ((void *)0)", __FILE__, __LINE__, __func__))

#endif
