// Special strings: names between percent signs, such as %HOST%, that are replaced by values of the
// run. All values are computed once, so every expansion in one run gives the same time.
#ifndef QUENDIL_INI_IGCMNREPLACESTR_H
#define QUENDIL_INI_IGCMNREPLACESTR_H

#include <string_view>

#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Fills the root table's special-string values from the clock and the host name. Returns 0, or -1
/// after reporting.
int IgCmnSpecialStrInit(root_tbl* root, memory_pool* memoryp);

/// 1 when `name`, which includes its leading "%" but no closing one, is a special string.
/// The program itself never calls it.
int IgCmnIsSpecialStr(const char* name);

/// Code of the first special string, reserved ones included, whose name begins the text; 0 if none.
/// The program itself never calls it.
int IgCmnGetSpecialStrCode(const char* text);

/// The value of the named special string as a new string; a copy of the name itself when it is
/// unknown or its value is empty. `flag` is not used. Null when memory runs out.
char* IgCmnRepSpecialStr(const char* name, int flag, const root_tbl* root, memory_pool* memoryp);

/// Expands every special string of the text (status null): a new string, null on failure
/// (reported). An unknown or empty one is dropped; "%%" gives "%"; a "%" that is never closed stays
/// with the text after it. With `status` the text is only checked: *status becomes 1 when a name is
/// unknown or a "%" not closed, and the result is a constant that must not be freed, or null when
/// the text cannot be converted (reported). `flag` is not used.
char* IgCmnReplaceStrs(const char* text, int flag, const root_tbl* root, memory_pool* memoryp,
                       int* status);

/// Why a text fails the check.
struct BadSpecialStr {
    bool is_closed;         // an unknown name; else a "%" without its closing one
    std::string_view text;  // from the "%" up to the closing one, or to the end
};
/// Finds the first mistake of a text that fails the check.
BadSpecialStr findBadSpecialStr(std::string_view text);

#endif
