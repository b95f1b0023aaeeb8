// Measures what a data item would collect now.
#ifndef QUENDIL_CHECK_IGCHECKMEASURE_H
#define QUENDIL_CHECK_IGCHECKMEASURE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>

struct Measured {
    bool found = false;            // something has this path or matches it
    std::size_t files = 0;         // without those that an earlier item collects
    std::int64_t bytes = 0;        // of these files, without those of the kernel
    std::size_t kernel_files = 0;  // of these: their size is known only when they are read
    std::size_t unreadable = 0;    // entries that could not be opened
};

/// Measures items in the order of a run. A file is collected once for each directory of a pattern.
class Measure {
  public:
    /// @param path absolute and normal; its last component may be a wildcard
    /// @param directory identifies the directory of the pattern
    Measured item(const std::string& path, const std::string& directory);

  private:
    std::unordered_set<std::size_t> collected_;  // hashes of directory and path
};

#endif
