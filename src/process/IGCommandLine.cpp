#include "process/IGCommandLine.h"

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnStr.h"

namespace {

bool addWord(wchar_t* start, wchar_t* end, IgCmnListHeader** words, memory_pool* memoryp) {
    if (start == end) {
        return true;
    }
    const wchar_t kept = *end;
    *end = L'\0';
    char* word = IgCmnWCS2MBS(memoryp, start);
    *end = kept;
    return word != nullptr && IgCmnListAppend(memoryp, words, word) != -1;
}

}  // namespace

bool splitWords(const char* command_line, IgCmnListHeader** words, memory_pool* memoryp) {
    wchar_t* start = IgCmnMBS2WCS(memoryp, command_line);
    if (start == nullptr) {
        return false;
    }
    bool quoted = false;
    wchar_t* c = start;
    for (; *c != L'\0'; ++c) {
        if (*c == L'"') {
            quoted = !quoted;
        } else if (!quoted && (*c == L' ' || *c == L'\t')) {
            if (!addWord(start, c, words, memoryp)) {
                return false;
            }
            start = c + 1;
        }
    }
    return addWord(start, c, words, memoryp);
}

char** makeArgv(const IgCmnListHeader& words, memory_pool* memoryp) {
    auto** argv = newFromPool<char*>(memoryp, words.count + 1);
    if (argv == nullptr) {
        return nullptr;
    }
    std::size_t count = 0;
    for (const char& word : walkStrings(&words)) {
        argv[count] = IgCmnStrRemoveDQ(memoryp, &word);
        if (argv[count++] == nullptr) {
            return nullptr;
        }
    }
    return argv;
}
