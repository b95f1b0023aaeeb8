// Builds the run's configuration from command line, configuration file and pattern directory.
#ifndef QUENDIL_INI_IGINICTRL_H
#define QUENDIL_INI_IGINICTRL_H

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"

struct root_tbl;

/// Results besides 0, -1 and those of the command line.
inline constexpr int CTRL_ALL_FAILED = 8;         ///< every pattern file failed
inline constexpr int CTRL_NOTHING_SELECTED = 12;  ///< no pattern matches the options

/// Returns a new root table of the pool with the values of the special strings, the default output
/// directory and name, and nothing selected; null on any failure (reported).
root_tbl* IgIniGetCmnRoot(memory_pool* memoryp);

/// Fills the root table. Returns 0 when there is something to collect, or when the run was
/// interrupted while it read the pattern files; otherwise, after reporting, -1, OPTION_ERROR,
/// OPTION_HELP, CTRL_ALL_FAILED, CTRL_NOTHING_SELECTED or the configuration reader's result.
int IgIniCtrl(int argc, char** argv, memory_pool* memoryp, root_tbl* root);

/// Selects the blocks of the current pattern that match the TARGET selection (all if there is
/// none): sets their `skip` to 0. Returns their number. The pool is not used.
int blockSelect(memory_pool* memoryp, root_tbl* root);

/// The names of the list in ascending byte order, null entries last, as an array of `list->count`
/// pointers; null when memory runs out.
char** sortFileArray(const IgCmnListHeader* list, memory_pool* memoryp);

/// Returns 1 when the pattern's names and groups each share an entry with the selection of their
/// kind, else 0. A null selection matches everything. All comparisons are exact.
int IgIniMatchSelection(const IgCmnListHeader* groups, const IgCmnListHeader* names,
                        const IgCmnListHeader* group_selection,
                        const IgCmnListHeader* name_selection);

#endif
