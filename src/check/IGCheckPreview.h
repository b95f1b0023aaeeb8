// What a run would collect: its items, their sizes and times.
#ifndef QUENDIL_CHECK_IGCHECKPREVIEW_H
#define QUENDIL_CHECK_IGCHECKPREVIEW_H

#include "check/IGCheckOption.h"

struct root_tbl;

/// Prints it. `root` has the values of the special strings and the defaults of the configuration.
/// Returns the exit status.
int previewRun(const CheckOptions& options, root_tbl& root);

#endif
