// The overview of many results as a page that needs no script.
#ifndef QUENDIL_VIEW_IGVIEWOVERVIEWPAGE_H
#define QUENDIL_VIEW_IGVIEWOVERVIEWPAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "view/IGViewOverview.h"
#include "view/IGViewSink.h"

/// Writes the page.
/// @param directory below which the results are
/// @param index the path of the page: links are relative to it
/// @param problems what could not be read
/// @return false if the sink has returned false
bool writeOverviewPage(const std::vector<OverviewRow>& rows, const std::string& directory,
                       const std::string& index, const std::vector<std::string>& problems,
                       const Sink& sink);

/// The address of a file for a page in another file, relative and percent-encoded (RFC 3986): no
/// name of a file becomes a scheme, a query or a fragment.
std::string linkTo(const std::string& path, const std::string& from);

#endif
