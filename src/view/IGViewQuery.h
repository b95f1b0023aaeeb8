// Queries: which lines of which items a definition reads.
#ifndef QUENDIL_VIEW_IGVIEWQUERY_H
#define QUENDIL_VIEW_IGVIEWQUERY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "view/IGViewKeys.h"

/// What a query says; docs/formats.md describes every key. Expressions are those of RE2. They and
/// the lines are bytes: a line may be anything.
struct Query {
    std::vector<std::string> items;   // wildcards of fnmatch(3) for the names of items
    std::vector<std::string> find;    // a line must match one of them
    std::vector<std::string> unless;  // and none of these, nor may its context line
    std::string after;                // the line before must match it
    std::string context;              // the last earlier line that matches it adds its captures
    std::string needs;                // an item without a line that matches it has no answer
    bool empty = false;               // an item without a line is an answer
};

/// Reads the keys of a query; `keys` has the mistakes.
Query readQuery(Keys& keys);

/// A line that a query has found. The views live as long as the call that gets them.
class Match {
  public:
    /// A named capture of the line or of its context; "" if it took no part in the match.
    [[nodiscard]] std::string_view operator[](std::string_view name) const;
    /// All named captures; one of the line is before one of the context.
    [[nodiscard]] const auto& captures() const { return captures_; }

    std::string_view line;
    std::size_t expression = 0;  // which one of Query::find
    std::size_t begin = 0;       // where the match begins in the line
    std::uint64_t number = 0;    // of the line, from 1

  private:
    friend class ItemReader;
    std::vector<std::pair<std::string_view, std::string_view>> captures_;
};

/// What is wanted of the further matches in an item.
enum class Want : std::uint8_t { CAPTURES, COUNT, NOTHING };

/// What an item has to say to a query.
enum class Answer : std::uint8_t {
    NOTHING,  // it is empty, or says why the machine has no such thing
    LACKING,  // no line matches `needs`
    STOPPED,  // some of it: its tool was stopped, or its output was cut
    FULL
};

/// Which of many queries read an item.
class QueryIndex {
  public:
    /// @param queries must outlive the index
    explicit QueryIndex(std::span<const Query* const> queries);
    /// The numbers of the queries, ascending, each with the position of the first wildcard that
    /// matches; they are valid until the next call.
    struct Use {
        std::uint32_t query;
        std::uint32_t wildcard;
    };
    const std::vector<Use>& find(std::string_view item);

  private:
    struct Wildcard {
        std::string pattern;
        std::size_t literal;  // length of its beginning without special characters
        Use use;
    };
    std::unordered_map<std::string, std::vector<Use>> names_;
    std::vector<Wildcard> wildcards_;
    std::vector<Use> found_;
    std::string item_;
};

/// Reads the lines of one item after the other, for several queries at a time. A line without a
/// match is scanned once. What is compiled is kept for the last few combinations of queries, in
/// bounded memory.
class ItemReader {
  public:
    /// Gets a match and the position of its query among those of begin(). After Want::COUNT, which
    /// is much faster to find, the matches in the item have no captures.
    using Found = std::function<Want(std::size_t, const Match&)>;

    ItemReader();
    ~ItemReader();
    ItemReader(const ItemReader&) = delete;
    ItemReader& operator=(const ItemReader&) = delete;

    /// Begins an item.
    /// @param queries in any order, but the same one for the same combination
    void begin(std::span<const Query* const> queries);
    /// The next line, without its line feed.
    void line(std::string_view text, const Found& found);
    /// After the last line: what the item has to say to a query.
    [[nodiscard]] Answer answer(std::size_t query) const;
    /// The first line that says why there is no answer, at most LONGEST_EXCERPT bytes of it; "" if
    /// the item is empty.
    [[nodiscard]] const std::string& reason() const { return reason_; }
    /// Whether each line reports that there is none of what the item would list, such as ": there
    /// are none"; true for an empty item too.
    [[nodiscard]] bool none() const { return only_none_; }

  private:
    class Program;
    class Programs;
    struct Progress {
        std::vector<std::pair<std::string_view, std::string>> context;  // captures
        bool unwanted = false;  // the context line matches `unless`
        bool judged = false;
        Want want = Want::CAPTURES;
    };
    void note(std::string_view text);
    void readFor(std::size_t query, std::string_view text, const Found& found);
    bool findIn(std::size_t query, std::string_view text);
    void readContext(std::size_t query, std::string_view text);

    std::unique_ptr<Programs> programs_;
    Program* program_ = nullptr;
    std::vector<Progress> progress_;
    Match match_;
    std::string before_;  // the line before
    std::string reason_;
    std::uint64_t number_ = 0;
    bool answered_ = false;
    bool stopped_ = false;
    bool only_none_ = true;
};

#endif
