// The file of the page of a result.
#ifndef QUENDIL_VIEW_IGVIEWPAGEFILE_H
#define QUENDIL_VIEW_IGVIEWPAGEFILE_H

#include <cstdint>
#include <string>

#include "companion/IGArchive.h"
#include "companion/IGOutputFile.h"
#include "view/IGViewResult.h"

/// The name of the page of a result: that of the result with ".html" instead of ".tar.gz". Of a
/// path such as "." that has no name of its own, it is that of the directory where it leads.
std::string pageNameOf(const std::string& path);

/// Writes the page, which then lacks its name only: see OutputFile::commit.
/// @param page was opened
/// @param archive is read a second time
/// @param limit bytes of content in the page
/// @return false with page.error()
bool writePageFile(OutputFile& page, ArchiveReader& archive, const Result& result,
                   std::uint64_t limit);

#endif
