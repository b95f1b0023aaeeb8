// Reads one file through the program's own readers, and keeps every mistake and the place of every
// value.
#ifndef QUENDIL_CHECK_IGCHECKFILE_H
#define QUENDIL_CHECK_IGCHECKFILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "check/IGCheckFinding.h"
#include "check/IGCheckSource.h"
#include "common/base/IGGuards.h"
#include "ini/IGIniObserver.h"
#include "ini/IGIniTable.h"

/// A value that was read.
struct PlacedValue {
    std::string_view keyword;
    TextPlace keyword_place;
    TextPlace place;
    std::string value;
    bool joined = false;  // to a comment
};

/// An item of a block.
struct PlacedItem {
    TextPlace place;  // of its keyword
    const collect_item* item = nullptr;
    std::vector<PlacedValue> values;
    bool has_mistake = false;  // what seems to be missing may be in a line with a mistake

    /// The last value of a keyword; null when it has none.
    [[nodiscard]] const PlacedValue* find(std::string_view keyword) const;
};

struct PlacedBlock {
    TextPlace place;
    const ptn_block* block = nullptr;
    std::vector<PlacedValue> values;
    std::vector<PlacedItem> items;
};

enum class FileKind : std::uint8_t { PATTERN, CONFIGURATION };

/// A file while it is checked.
struct CheckedFile {
    std::string name;  // as it is shown
    FileKind kind = FileKind::PATTERN;
    bool installed = false;  // a run on this machine reads it
    SourceText source;
    std::vector<Finding> findings;
    bool truncated = false;  // there are more findings than MOST_FINDINGS
    // what was read
    std::vector<PlacedValue> values;  // outside of blocks
    std::vector<PlacedBlock> blocks;
    pickptn_tbl* pattern = nullptr;  // in `pool`
    LocalPool pool;

    void add(Finding finding);
    /// Adds a warning.
    void warn(Warning warning, TextPlace place, const Blanks& blanks = {});
    [[nodiscard]] bool hasError() const;
    /// Puts the findings in the order of their places, which become columns of the text.
    void settle();
};

/// Reads the opened source. `root` needs the values of the special strings.
/// @return false when reading failed; `reason` says why
bool readChecked(CheckedFile& file, root_tbl& root, std::string& reason);

#endif
