// The page: one HTML file that needs nothing else.
#ifndef QUENDIL_VIEW_IGVIEWPAGE_H
#define QUENDIL_VIEW_IGVIEWPAGE_H

#include <functional>
#include <string>
#include <vector>

#include "view/IGViewContent.h"
#include "view/IGViewHtml.h"
#include "view/IGViewResult.h"
#include "view/IGViewSink.h"

/// The first bytes of the page. They tell whether it was made from this result: they change with
/// its form and size, and with the names, sizes and times of its members.
std::string pageBeginning(const Result& result);

/// Writes the page.
/// @param contents what the page shows of every item; skipped_lines are set by `write_contents`
/// @param write_contents calls its argument for every compressed chunk of the contents
/// @return false if the sink or `write_contents` has returned false
bool writePage(const Result& result, std::vector<ItemContent>& contents,
               const std::function<bool(const Sink&)>& write_contents, const Sink& sink);

#endif
