#include "common/base/IGAssert.h"

#include <cstdio>
#include <cstdlib>

void IgCmnAssertFailed(const char* text, const char* file, int line, const char* function) {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, text);
    std::abort();
}
