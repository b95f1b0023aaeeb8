// Where a page goes while it is written.
#ifndef QUENDIL_VIEW_IGVIEWSINK_H
#define QUENDIL_VIEW_IGVIEWSINK_H

#include <functional>
#include <string_view>

/// Takes a piece of the page; false if it cannot be written, which ends the page.
using Sink = std::function<bool(std::string_view)>;

#endif
