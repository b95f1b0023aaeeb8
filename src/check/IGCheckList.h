// The groups and targets of the installed patterns.
#ifndef QUENDIL_CHECK_IGCHECKLIST_H
#define QUENDIL_CHECK_IGCHECKLIST_H

#include "check/IGCheckOption.h"

struct root_tbl;

/// Prints them. Returns the exit status.
int listSelections(const CheckOptions& options, root_tbl& root);

#endif
