// The result as text for a terminal, and as JSON.
#ifndef QUENDIL_VIEW_IGVIEWOUTPUT_H
#define QUENDIL_VIEW_IGVIEWOUTPUT_H

#include "view/IGViewResult.h"

/// Prints findings, summary and run. No text of the archive can control a terminal.
void printText(const Result& result);

/// Prints everything but the contents: docs/schema/report.json.
void printJson(const Result& result);

/// How the run ended, which the form of its result tells: "complete: a compressed archive".
const char* endOf(ResultForm form);
/// "critical", "warning", "notice".
const char* nameOf(Weight weight);

#endif
