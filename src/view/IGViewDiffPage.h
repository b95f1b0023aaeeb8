// The differences of two results as a page that needs no script.
#ifndef QUENDIL_VIEW_IGVIEWDIFFPAGE_H
#define QUENDIL_VIEW_IGVIEWDIFFPAGE_H

#include "view/IGViewDiff.h"
#include "view/IGViewSink.h"

/// More differences of one comparison are counted only: a browser must be able to draw the page.
inline constexpr std::size_t MOST_SHOWN_DIFFERENCES = 2000;

/// Writes the page.
/// @return false if the sink has returned false
bool writeDiffPage(const Diff& diff, const Sink& sink);

#endif
