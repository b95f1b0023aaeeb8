#include "tool/IGSecretFile.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>

namespace {

// Patterns for fnmatch(3) without FNM_PATHNAME: "*" matches slashes too.
constexpr const char* SECRET_FILES[] = {
    "*.key",           "*.keys",        "*.keytab",  "*.p12",      "*.pfx",       "*.jks",
    "*.kdbx",          "*.gpg",         "*.psk",     "*.der",      "*_key",       "*.private",
    "*.secret",        "*.secrets",     "*-secrets", "*.password", "*.passwd",    "*/id_[der]*sa",
    "*/id_[der]*sa.*", "*/id_ed25519*", "*/shadow*", "*/gshadow*", "*/private/*",
};

}  // namespace

bool isSecretFile(const char* path) {
    return std::any_of(std::begin(SECRET_FILES), std::end(SECRET_FILES),
                       [path](const char* pattern) { return ::fnmatch(pattern, path, 0) == 0; });
}
