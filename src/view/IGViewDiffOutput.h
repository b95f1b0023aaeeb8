// The differences of two results as text for a terminal, and as JSON.
#ifndef QUENDIL_VIEW_IGVIEWDIFFOUTPUT_H
#define QUENDIL_VIEW_IGVIEWDIFFOUTPUT_H

#include <cstddef>
#include <string>

#include "view/IGViewDiff.h"

/// Prints what differs first, then what could not be compared, and what is equal. No text of the
/// archives can control a terminal.
void printDiffText(const Diff& diff);

/// Prints everything: docs/schema/diff.json.
void printDiffJson(const Diff& diff);

/// "changed", "added", "removed".
const char* nameOf(Change change);
/// "1 entry", "2 entries"
std::string entriesOf(std::size_t number);
/// "2 changed, 1 added"
std::string changesOf(const Comparison& comparison);
/// Why an item was not compared: "OLD: it is not in the archive".
std::string reasonOf(const NotCompared& item);
/// The lines that a file has gained and lost, or why it was not compared.
std::string changesOf(const FileDifference& file);

#endif
