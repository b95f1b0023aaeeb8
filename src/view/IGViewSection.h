// The sections of the page, in their order. Each is static HTML that reads without a script.
#ifndef QUENDIL_VIEW_IGVIEWSECTION_H
#define QUENDIL_VIEW_IGVIEWSECTION_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "view/IGViewHtml.h"
#include "view/IGViewResult.h"

/// What the rules have found, the heaviest first; folded, what they could not judge and what is
/// clear.
void writeFindings(HtmlWriter& out, const Result& result);
/// The facts by their groups, and the run.
void writeSummary(HtmlWriter& out, const Result& result);
void writeCharts(HtmlWriter& out, const Result& result);
/// The tools in the order of their start. Tools that have ended well within a second are grouped.
void writeTimeLine(HtmlWriter& out, const Result& result);
/// Warnings and errors of the run, with their entries in the manual.
void writeMessages(HtmlWriter& out, const Result& result);
/// All items by their targets, which are the first parts of their names.
void writeItems(HtmlWriter& out, const Result& result);

/// The name of the machine: that of the result without the time at its end.
std::string_view hostOf(const Result& result);
/// Whether it is the result of a run: it has the log or the index, or the name of one. The name
/// comes first, before an archive can be cut.
bool isResult(const Result& result);
/// Why something else is none.
inline constexpr const char* NO_RESULT_REASON = "it has neither quendil.log nor quendil_index";
/// Whether the page can open the item.
bool opens(const Result& result, std::uint32_t item);
/// Writes a link to a line, or to an item for line 0, around a text.
void writeLink(HtmlWriter& out, const Result& result, std::uint32_t item, std::uint64_t line,
               std::string_view text);
/// Writes "item:line" as a link to it, and the excerpt.
void writePlace(HtmlWriter& out, const Result& result, const Place& place);

/// Tools [first, last) of the run that stand in one row: one tool, or some that need no row of
/// their own.
struct ToolRow {
    std::size_t first = 0;
    std::size_t last = 0;
    bool quick = false;  // all have ended within a second, with exit code 0 and without a message
};
std::vector<ToolRow> toolRows(const RunLog& run);

#endif
