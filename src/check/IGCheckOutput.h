// Which data items collect what a tool writes, and which tools write the same file.
#ifndef QUENDIL_CHECK_IGCHECKOUTPUT_H
#define QUENDIL_CHECK_IGCHECKOUTPUT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// Whether a data item of this path brings a file: the path may be a directory above the file, and
/// its last component a wildcard. Both are normal paths.
bool collects(const std::string& path, std::string_view file);

/// The paths of the data items of one pattern file.
class DataPaths {
  public:
    /// @param index of the item in the file, which grows
    void add(const std::string& path, std::size_t index);
    /// Whether an item after the index-th one collects a file.
    [[nodiscard]] bool collectAfter(std::string_view file, std::size_t index) const;

  private:
    std::unordered_map<std::string, std::size_t> last_;  // item with a path
    // items with a wildcard, by their directories
    std::unordered_map<std::string, std::vector<std::pair<std::string, std::size_t>>> wildcards_;
};

/// The files that tools write, of all patterns that are checked together: patterns with the same
/// targets share a directory.
class Outputs {
  public:
    /// The number of a directory, which the targets of a pattern identify.
    std::size_t directoryOf(const std::string& targets);
    /// Adds a file, and where a tool writes it. Returns where an earlier one does; null for none.
    /// @param directory 0 for a path outside of the directories of patterns
    const std::string* add(std::size_t directory, const std::string& path,
                           const std::string& where);

  private:
    std::unordered_map<std::string, std::size_t> directories_;
    std::unordered_map<std::string, std::string> files_;
};

#endif
