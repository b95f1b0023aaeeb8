// A second copy of the catalogue of messages, and a call that issues any of them.
#ifndef QUENDIL_TESTS_SUPPORT_MESSAGE_CATALOGUE_H
#define QUENDIL_TESTS_SUPPORT_MESSAGE_CATALOGUE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/report/IGCmnMessage.h"

struct Entry {
    int number;
    int kind;
    unsigned f1;
    unsigned f2;
    const char* text;
};

// A second copy of the catalogue, in the order of its numbers: users, their scripts and the
// documents rely on these texts. A change of a text has to be made in both places.
inline const std::vector<Entry> CATALOGUE{
    {0, 2, 0, 0, "ZEPA101-E:The specified option(%s) is invalid.\n"},
    {1, 2, 0, 0, "ZEPA102-E:The specified option(%s) requires an argument.\n"},
    {2, 2, 0, 0, "ZEPA104-E:The specified directory(%s) does not exist.\n"},
    {3, 2, 0, 0, "ZEPA105-E:You do not have write permissions for the specified directory(%s).\n"},
    {4, 2, 0, 0, "ZEPA106-E:The specified configuration file(%s) does not exist.\n"},
    {5, 2, 0, 0, "ZEPA107-W:The specified option(%s) cannot be specified twice or more.\n"},
    {6, 2, 0, 0, "ZEPA108-E:The specified argument of the option(%s) is too long.\n"},
    {7, 2, 0, 0, "ZEPA109-E:The specified file(%s) already exists.\n"},
    {8, 2, 0, 0, "ZEPA112-E:You do not have access permissions for the specified file(%s).\n"},
    {9, 2, 0, 0,
     "ZEPA113-E:An error occurred during the following system call. "
     "system call name = %s, error code = %d, msg = %s.\n"},
    {10, 0, 0, 0, "ZEPA114-E:source = %s, line no = %d.\n"},
    {11, 2, 0, 0, "ZEPA115-E:A required option is not specified.\n"},
    {12, 2, 0, 0, "ZEPA116-E:Another quendil is already running. Please try later.\n"},
    {13, 2, 0, 0, "ZEPA117-E:This cannot be executed because the user is not a super user.\n"},
    {14, 2, 0, 0, "ZEPA118-E:A configuration file(%s) does not exist.\n"},
    {15, 2, 0, 0, "ZEPA119-E:A syntax error occurred.\n"},
    {16, 2, 0, 0, "ZEPA120-E:filename = %s, line no = %d.\n"},
    {17, 2, 0, 0,
     "ZEPA121-E:There is not system information to be collected under the specified options.\n"},
    {18, 2, 0, 0, "ZEPA122-E:Memory is insufficient.\n"},
    {19, 0, 0, 0,
     "ZEPA125-W:An information collecting tool(%s) that collects system information does not "
     "exist.\n"},
    {20, 0, 0, 0,
     "ZEPA126-W:A timeout occurred while information collecting tool(%s) was being executed.\n"},
    {21, 0, 0, 0, "ZEPA129-W:A system information(%s) is not found.\n"},
    {22, 0, 0, 0, "ZEPA130-W:An attempt to collect the system information has failed.\n"},
    {23, 3, 0, 0, "ZEPA131-W:The size of the output data exceeded a limit size.\n"},
    {24, 2, 0, 0, "ZEPA150-W:The specified command(%s) does not exist.\n"},
    {25, 2, 0, 0, "ZEPA132-W:An error occurred while an archiver was being executed.\n"},
    {26, 2, 0, 0, "ZEPA133-W:An attempt to copy the logfile (%s) has failed.\n"},
    {27, 2, 0, 0,
     "ZEPA134-W:An error occurred while Norvale Self-Extractor was being executed. "
     "error code = %d.\n"},
    {28, 2, 0, 0, "ZEPA135-W:An error occurred while a compression was being executed.\n"},
    {29, 2, 0, 0, "ZEPA136-E:quendil was interrupted. signal no = %d.\n"},
    {30, 0, 0, 0, "ZEPA137-W:Internal error occurred.\n"},
    {31, 0, 0, 0, "ZEPA138-W:filename = %s, line no = %d.\n"},
    {32, 2, 0, 0, "ZEPA139-W:Invalid format number(%s).\n"},
    {33, 0, 0, 0, "ZEPA142-W:An attempt to copy the logfile (%s) has failed.\n"},
    {34, 2, 0, 0,
     "ZEPA145-W:There is not system information because an error occurred during reading of all "
     "collection pattern definition files.\n"},
    {35, 2, 0, 0, "ZEPA146-W:An attempt to delete a %s has failed.\n"},
    {36, 2, 0, 0, "ZEPA144-E:The specified output file(%s) must be absolute path name.\n"},
    {37, 0, 0, 0, "ZEPA147-W:An attempt to read the registry(%s) has failed.\n"},
    {38, 0, 0, 0, "ZEPA148-W:An attempt to wait or stop a process (%d) has failed.\n"},
    {39, 3, 1, 0,
     "ZEPA149-W:There were one or more information collection tools which could not be waited or "
     "be stopped.\n"},
    {40, 3, 0, 0,
     "ZEPA140-W:An error occurred during the following system call. "
     "system call name = %s, error code = %d, msg = %s.\n"},
    {41, 3, 0, 0, "ZEPA141-W:source = %s, line no = %d.\n"},
    {42, 2, 0, 0, "ZEPA151-E:Additional information, %s = %s.\n"},
    {43, 3, 0, 0, "ZEPA152-W:Additional information, %s = %s.\n"},
    {44, 0, 0, 0,
     "ZEPA153-W:The size of the output data exceeded a limit size. "
     "filename = %s, size = %lld bytes.\n"},
    {45, 0, 0, 0, "ZEPA154-W:Retrying to stop a process(%s). PID = %d, COUNT = %d.\n"},
    {46, 0, 0, 0, "ZEPA155-W:A process(%s) was stopped. PID = %d.\n"},
    {47, 0, 0, 0, "ZEPA156-W:Trying to terminate a process(%s). PID = %d.\n"},
    {48, 0, 0, 0, "ZEPA157-W:A process(%s) was forced to terminate. PID = %d.\n"},
    {49, 2, 0, 0,
     "ZEPA158-W:A process(%s) may remain because system call error occurred. PID = %d.\n"},
    {50, 0, 1, 0, "ZEPA201-I:"},
    {51, 0, 1, 0, "quendil [Ver. %s] started at %s.\n"},
    {52, 0, 1, 0, "ZEPA202-I:"},
    {53, 0, 1, 0, "Started %s.\n"},
    {54, 0, 1, 0, "ZEPA203-I:"},
    {55, 0, 1, 0, "Ended %s.\n"},
    {56, 0, 1, 0, "ZEPA204-I:"},
    {57, 0, 1, 1, "quendil argument is \"%s\".\n"},
    {58, 0, 1, 0, "ZEPA205-I:"},
    {59, 0, 1, 1,
     "Summary of parameters.\n"
     "    Configuration file = %s\n"
     "    Output path of collected information = %s\n"
     "    Max output data size = %lld KB\n"
     "    Cleanup = %s\n"
     "    Output file = %s\n"},
    {61, 0, 1, 1, "    PP_GROUP = %s\n"},
    {62, 0, 1, 1, "    TARGET = %s\n"},
    {63, 0, 1, 1, "    PP_NAME = %s\n"},
    {64, 0, 1, 0, "ZEPA206-I:"},
    {65, 0, 1, 1,
     "Information collecting tool start.\n"
     "    Command  = \"%s\"\n"
     "    Start time = %s\n"
     "    Timeout = %d\n"},
    {66, 0, 1, 0, "ZEPA207-I:"},
    {67, 0, 1, 1,
     "Information collecting tool end.\n"
     "    Return code = %d\n"
     "    Status code = %d\n"
     "    End time = %s\n"},
    {68, 0, 1, 0, "ZEPA208-W:"},
    {69, 0, 1, 0, "Information collecting tool error message.\n"},
    {70, 0, 1, 0, "ZEPA209-I:"},
    {71, 0, 1, 1, "It copied collecting data = %s. size = %lld bytes.\n"},
    {72, 0, 1, 0, "ZEPA210-I:"},
    {73, 0, 1, 1, "Total data size: %lld bytes.\n"},
    {74, 1, 1, 0, "ZEPA211-I:"},
    {75, 1, 1, 0, "Archive file = %s. size = %lld bytes.\n"},
    {76, 0, 1, 0, "ZEPA212-I:"},
    {77, 0, 1, 1, "Deleted data below \"%s\".\n"},
    {78, 0, 1, 0, "ZEPA213-I:"},
    {79, 0, 1, 0, "quendil ended at %s. return code = %d.\n"},
    {80, 1, 1, 0, "ZEPA214-I:"},
    {81, 1, 1, 0, "Output file = %s. size = %lld bytes.\n"},
    {82, 1, 1, 0, "ZEPA215-I:Output = %s.\n"},
    {83, 3, 1, 0, "ZEPA216-I:Look at %s.\n"},
    {84, 5, 1, 0, "ZEPA301-I:quendil [Ver. %s] started at %s.\n"},
    {85, 5, 1, 0, "ZEPA302-I:quendil argument is %s.\n"},
    {86, 5, 1, 0, "ZEPA303-I:Output = %s.\n"},
    {87, 5, 1, 0, "ZEPA304-I:quendil exit code = %d.\n"},
    {88, 5, 1, 0, "ZEPA305-I:quendil ended at %s.\n"},
    {89, 4, 1, 0, ""},
    {90, 1, 0, 0,
     "%s [Ver. %s]\n"
     "\n"
     "usage:\t%s\t{ -g pp_group | -t target } ...\n"
     "\t\t[ -c configfile ] [ -d directory ] [ -o output_file ]\n"
     "\t%s\t-h\n"
     "\n"},
    {91, 2, 0, 0,
     "ZEPA306-I:The archive file has not been compressed. Use a following file as is.\n"},
    {92, 2, 0, 0,
     "ZEPA159-W:quendil command is older than the collection pattern file. "
     "skip the file (%s).\n"},
};

// One value for each kind of placeholder; the one for %lld needs more than 32 bits.
inline constexpr const char* TEXT = "some text";
inline constexpr int NUMBER = -7;
inline constexpr long long LONG_NUMBER = 5'000'000'000;

inline std::string filledIn(std::string text) {
    for (const auto& [placeholder, value] : {std::pair{std::string("%s"), std::string(TEXT)},
                                             {std::string("%d"), std::to_string(NUMBER)},
                                             {std::string("%lld"), std::to_string(LONG_NUMBER)}}) {
        for (std::size_t at = text.find(placeholder); at != std::string::npos;
             at = text.find(placeholder, at + value.size())) {
            text.replace(at, placeholder.size(), value);
        }
    }
    return text;
}

// Issues a message with the values above for its placeholders.
inline void issue(const Entry& entry) {
    std::string kinds;
    const std::string text = entry.text;
    for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
        kinds += text[at + 1];
    }
    const int n = entry.number;
    if (kinds.empty()) {
        IgCmnMsgOut(n);
    } else if (kinds == "s") {
        IgCmnMsgOut(n, TEXT);
    } else if (kinds == "d") {
        IgCmnMsgOut(n, NUMBER);
    } else if (kinds == "l") {
        IgCmnMsgOut(n, LONG_NUMBER);
    } else if (kinds == "ss") {
        IgCmnMsgOut(n, TEXT, TEXT);
    } else if (kinds == "sd") {
        IgCmnMsgOut(n, TEXT, NUMBER);
    } else if (kinds == "sl") {
        IgCmnMsgOut(n, TEXT, LONG_NUMBER);
    } else if (kinds == "sds") {
        IgCmnMsgOut(n, TEXT, NUMBER, TEXT);
    } else if (kinds == "sdd") {
        IgCmnMsgOut(n, TEXT, NUMBER, NUMBER);
    } else if (kinds == "ssd") {
        IgCmnMsgOut(n, TEXT, TEXT, NUMBER);
    } else if (kinds == "dds") {
        IgCmnMsgOut(n, NUMBER, NUMBER, TEXT);
    } else if (kinds == "ssss") {
        IgCmnMsgOut(n, TEXT, TEXT, TEXT, TEXT);
    } else if (kinds == "sslss") {
        IgCmnMsgOut(n, TEXT, TEXT, LONG_NUMBER, TEXT, TEXT);
    } else {
        FAIL() << "placeholders of message " << n << " are not known here";
    }
}

#endif
