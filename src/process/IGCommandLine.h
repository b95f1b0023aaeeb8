// Splits a command line into words.
#ifndef QUENDIL_PROCESS_IGCOMMANDLINE_H
#define QUENDIL_PROCESS_IGCOMMANDLINE_H

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"

/// Splits a command line at blanks and tabs outside double quotes; the words keep their quotes.
/// @param words the list of the words, from the pool; null when there are none
/// @return false after a reported failure
bool splitWords(const char* command_line, IgCmnListHeader** words, memory_pool* memoryp);

/// Makes an argv for execv(3): the words without their enclosing double quotes, ended by a null;
/// from the pool. Null after a reported failure.
char** makeArgv(const IgCmnListHeader& words, memory_pool* memoryp);

#endif
