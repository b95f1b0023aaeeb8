// Compares two results: what the comparisons among the definitions find in each of them, as sets.
#ifndef QUENDIL_VIEW_IGVIEWCOMPARE_H
#define QUENDIL_VIEW_IGVIEWCOMPARE_H

#include <string>

#include "companion/IGArchive.h"
#include "view/IGViewDefinition.h"
#include "view/IGViewDiff.h"

/// One of the two archives.
struct DiffSource {
    std::string path;
    ArchiveReader& archive;
};

/// Compares two archives. Each is read once, and with `all` twice; memory does not grow with their
/// sizes, because files with too many entries are not compared.
/// @param all whether volatile comparisons and all other files are compared too
/// @param why which archive nothing could be read of, and the reason
/// @return false with `why`
bool compareArchives(const DiffSource& old_source, const DiffSource& new_source,
                     const Definitions& definitions, bool all, Diff& diff, std::string& why);

#endif
