// Finds the results of runs below a directory, and what there is to say of each in one row.
#ifndef QUENDIL_VIEW_IGVIEWOVERVIEW_H
#define QUENDIL_VIEW_IGVIEWOVERVIEW_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "companion/IGArchive.h"
#include "view/IGViewDefinition.h"
#include "view/IGViewResult.h"

/// Titles of findings that a row has.
inline constexpr std::size_t MOST_TITLES = 10;

struct FoundFile;  // a result that is open

enum class OverviewState : std::uint8_t {
    READ,
    DAMAGED,    // read in part
    NO_RESULT,  // it can be read, but is no result of a run
    UNREADABLE
};

/// One result.
struct OverviewRow {
    std::string path;
    std::string page;     // the path of its page; "" if it has none
    std::string no_page;  // why a result has none
    std::string host;
    std::string started;    // "2026/11/23 16:25:38", or ""
    std::string arguments;  // of the run
    OverviewState state = OverviewState::UNREADABLE;
    ResultForm form = ResultForm::COMPRESSED;
    std::string reason;                  // why it is damaged or cannot be read
    std::array<std::size_t, 3> found{};  // findings, by their weights
    std::size_t not_judged = 0;
    std::vector<std::string> critical;  // titles of the first critical findings
    std::uint64_t bytes = 0;            // of the archive, or of the files in a directory
};

/// The archives (*.tar.gz, *.tar) and the directories of runs below a directory, in the order of
/// their paths. Links are not followed.
/// @param problems gets what could not be read
std::vector<std::string> findResults(const std::string& directory,
                                     std::vector<std::string>& problems);

/// Makes the rows. A page that is missing is made; one that is there is never changed.
class Overview {
  public:
    /// @param directory below which the results are; of its path links are followed, below it none
    /// @param index the path of the overview itself, which no page may take
    /// @param limit bytes of content in each page
    Overview(const Definitions& definitions, std::string directory, const std::string& index,
             std::uint64_t limit, bool follow_links);

    /// Reads one result, and makes its page. Its memory does not outlive the call.
    /// @param path as findResults has given it
    const OverviewRow& add(const std::string& path);
    /// Puts the worst first.
    void sort();

    [[nodiscard]] const std::vector<OverviewRow>& rows() const { return rows_; }
    /// Whether something could not be read completely, or has no page.
    [[nodiscard]] bool damaged() const;

  private:
    OverviewRow read(const std::string& path);
    void findPage(OverviewRow& row, const FoundFile& found, ArchiveReader& archive,
                  const Result& result);

    const Definitions& definitions_;
    std::string directory_;
    std::string index_;  // canonical
    std::uint64_t limit_;
    bool follow_links_;
    std::vector<OverviewRow> rows_;
};

#endif
