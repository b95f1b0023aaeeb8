// The regular expressions of queries: how they are compiled, and those of one combination of
// queries.
#ifndef QUENDIL_VIEW_IGVIEWEXPRESSION_H
#define QUENDIL_VIEW_IGVIEWEXPRESSION_H

#include <re2/filtered_re2.h>
#include <re2/re2.h>
#include <re2/set.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "view/IGViewQuery.h"

/// Bytes that one expression may use, compiled and with what it remembers of the lines.
inline constexpr std::int64_t EXPRESSION_MEMORY = std::int64_t{256} * 1024;
/// The same for the texts of all expressions of a combination of queries.
inline constexpr std::int64_t SET_MEMORY = std::int64_t{4} * 1024 * 1024;

/// Options for an expression: bytes, so that invalid UTF-8 is a line like any other.
RE2::Options expressionOptions(bool captures);

/// Compiles every expression of a query.
/// @param names is extended by the names of its captures
/// @param mistake in plain words
/// @return false with a mistake
bool checkQuery(const Query& query, std::vector<std::string>& names, std::string& mistake);

/// Captures of a match: name and value.
using Captures = std::vector<std::pair<std::string_view, std::string_view>>;

/// A regular expression that is compiled when it is first needed.
class Expression {
  public:
    Expression(const std::string& text, bool captures) : text_(text), captures_(captures) {}

    /// Whether it matches somewhere in the text.
    bool matches(std::string_view text);
    /// The same; extends `captures` by its named captures.
    /// @param begin set to the beginning of the match
    bool matches(std::string_view text, Captures& captures, std::size_t& begin);
    [[nodiscard]] const std::string& text() const { return text_; }

  private:
    void compile();

    const std::string& text_;  // of the query
    std::unique_ptr<RE2> compiled_;
    std::vector<std::pair<std::string, std::size_t>> names_;  // with the numbers of their groups
    std::vector<re2::StringPiece> groups_;
    bool captures_;
};

/// The expressions of a query.
struct QueryExpressions {
    explicit QueryExpressions(const Query& query);
    std::vector<Expression> find;
    std::vector<Expression> unless;
    Expression after;
    Expression context;
    Expression needs;
    std::size_t first = 0;  // number of find[0] among those that are looked for together
};

/// The expressions of a combination of queries. One scan of a line looks for the fixed texts in all
/// of them, and only an expression whose texts are there is tried. To look for the expressions
/// themselves in one scan would be as fast for most lines, but a line can be made for which it is
/// very slow.
class ItemReader::Program {
  public:
    explicit Program(std::span<const Query* const> queries);

    [[nodiscard]] bool isFor(std::span<const Query* const> queries) const;
    /// Looks for all of them in the line.
    /// @return false if none matches
    bool scan(std::string_view text);
    /// After a scan: whether an expression may match; it is not certain, and must be tried.
    [[nodiscard]] bool mayMatch(std::size_t expression) const { return may_match_[expression]; }
    [[nodiscard]] const Query& query(std::size_t position) const { return *queries_[position]; }
    QueryExpressions& expressions(std::size_t position) { return expressions_[position]; }
    [[nodiscard]] std::size_t size() const { return queries_.size(); }
    [[nodiscard]] bool looksBack() const { return looks_back_; }

  private:
    void number();
    void makeFilter();

    std::vector<const Query*> queries_;
    std::vector<QueryExpressions> expressions_;
    std::vector<const std::string*> numbered_;  // find, context and needs of every query
    re2::FilteredRE2 filter_;
    std::vector<std::size_t> filtered_;  // the numbers of the expressions in it
    std::unique_ptr<RE2::Set> texts_;    // null if every expression is tried
    std::vector<int> found_texts_;
    std::vector<int> possible_;
    bool some_always_ = false;  // some expression has no fixed text
    std::vector<char> may_match_;
    bool looks_back_ = false;  // some query has `after`
};

#endif
