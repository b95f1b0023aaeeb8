#include "common/base/IGLocale.h"

#include <langinfo.h>

#include <clocale>
#include <string_view>

void chooseLocale() {
    std::setlocale(LC_ALL, "");
#ifdef QUENDIL_STATIC
    // For any other character set a static C library loads a module, and a module of another
    // version of the library ends the process.
    const std::string_view characters = ::nl_langinfo(CODESET);
    if (characters != "UTF-8" && characters != "ANSI_X3.4-1968" &&
        std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        std::setlocale(LC_CTYPE, "C");
    }
#endif
}
