#include "companion/IGOption.h"

#include <string>

#include "companion/IGText.h"

bool takeOptions(const char* program, int argc, char** argv, const char* letters,
                 const option* names, const OptionTaker& take) {
    opterr = 0;
    const std::string told = std::string(":") + letters;  // tells a missing value from others
    for (int option = 0;
         (option = ::getopt_long(argc, argv, told.c_str(), names, nullptr)) != -1;) {
        if (option == '?' || option == ':') {
            return refuseOption(program, option, argv[optind - 1]);
        }
        if (!take(option, optarg)) {
            return false;
        }
    }
    return true;
}
