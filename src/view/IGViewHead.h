// The beginning and the end of every page.
#ifndef QUENDIL_VIEW_IGVIEWHEAD_H
#define QUENDIL_VIEW_IGVIEWHEAD_H

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "view/IGViewHtml.h"

/// A style beside that of every page.
struct PageStyle {
    std::string_view text;
    std::string_view sha256;  // in hexadecimal digits
};

/// The style of pages whose main content are tables: src/view/table.css.
PageStyle tableStyle();

/// The first bytes of a page.
/// @param mark tells from which result it was made, in letters and digits; "" for other pages
std::string headBeginning(std::string_view mark);

/// Writes everything up to the body. The page may load nothing, and run only the scripts that are
/// named here.
/// @param title may be from an archive
/// @param scripts their SHA-256 in hexadecimal digits
/// @param styles more styles than the one of every page
/// @param mark see headBeginning
void writeHead(HtmlWriter& out, std::string_view title,
               std::initializer_list<std::string_view> scripts,
               std::initializer_list<PageStyle> styles, std::string_view mark = {});

/// Writes what a reader must know first, as a banner; nothing if there is nothing.
void writeWarnings(HtmlWriter& out, const std::vector<std::string>& warnings);

/// Writes the end of a page without scripts.
void writeFoot(HtmlWriter& out);

#endif
