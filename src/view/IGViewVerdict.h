// What Judge keeps of the matches of one definition until all items are read.
#ifndef QUENDIL_VIEW_IGVIEWVERDICT_H
#define QUENDIL_VIEW_IGVIEWVERDICT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "view/IGViewQuery.h"
#include "view/IGViewResult.h"
#include "view/IGViewTable.h"

/// The item that is read.
struct CurrentItem {
    std::uint32_t number = NONE;
    std::string_view name;
};

/// A match that is kept: its place and its captures, both truncated.
struct Kept {
    Kept() = default;
    Kept(const CurrentItem& item, const Match& match);
    [[nodiscard]] std::string capture(std::string_view name) const;

    Place place;
    std::vector<std::pair<std::string, std::string>> captures;
};

/// Takes what one query finds.
class Taker {
  public:
    Taker() = default;
    virtual ~Taker() = default;
    Taker(const Taker&) = delete;
    Taker& operator=(const Taker&) = delete;

    /// @param wildcard position of the one in Query::items that names the item
    /// @return what it wants of further matches in this item
    virtual Want take(const CurrentItem& item, std::uint32_t wildcard, const Match& match) = 0;
    /// After the last line of an item.
    virtual void answered(const CurrentItem& item, Answer answer, const std::string& reason) {
        (void)item, (void)answer, (void)reason;
    }
};

/// Which items have answered a query, and why the others have not.
class Answers {
  public:
    void add(const CurrentItem& item, Answer answer, const std::string& reason);
    /// Whether what they do not say is not there: an item has answered in full and, unless all of
    /// them tell the same, none was cut off.
    /// @param same whether all of them tell the same
    [[nodiscard]] bool full(const Result& result, bool same) const;
    /// The last item that has answered.
    [[nodiscard]] std::uint32_t latest() const { return full_.empty() ? NONE : full_.back(); }
    /// Why it is not known.
    [[nodiscard]] std::string why(const Query& query, const Result& result) const;

  private:
    std::vector<std::uint32_t> full_;  // in the order of the archive
    std::string reason_;               // of the first one that has not
    std::string stopped_;  // of the first one whose output says that its tool was stopped
};

/// The other number of a percentage, from another item.
class OfTaker : public Taker {
  public:
    Want take(const CurrentItem& item, std::uint32_t wildcard, const Match& match) override;
    void answered(const CurrentItem& item, Answer answer, const std::string& reason) override;

    std::optional<double> value;
    Answers answers;
};

/// What one rule has found.
class RuleTaker : public Taker {
  public:
    explicit RuleTaker(const RuleDefinition& rule);

    Want take(const CurrentItem& item, std::uint32_t wildcard, const Match& match) override;
    void answered(const CurrentItem& item, Answer answer, const std::string& reason) override;
    [[nodiscard]] Finding finding(const Result& result);
    OfTaker* of() { return definition_.measure.of ? &of_ : nullptr; }

  private:
    struct Candidate {
        Kept kept;
        std::size_t form = 0;  // which one of the texts tells about it
        double value = 0;      // as it was read; what is compared later, if it must wait
    };
    struct Matches {
        std::optional<Candidate> extreme;  // the largest or smallest value
        std::size_t count = 0;
    };
    struct Seen {
        explicit Seen(std::size_t forms) : by_form(forms) {}
        [[nodiscard]] std::size_t count() const;

        std::vector<Candidate> candidates;
        std::vector<Matches> by_form;
    };
    [[nodiscard]] std::size_t formOf(const Match& match) const;
    [[nodiscard]] bool waits() const;
    [[nodiscard]] bool counts(double value) const;
    [[nodiscard]] std::optional<double> valueOf(const Match& match) const;
    void takeNumber(Seen& seen, const CurrentItem& item, const Match& match);
    void wait(Seen& seen, Candidate candidate);
    [[nodiscard]] bool isWorse(double value, const Matches& matches) const;
    void add(Seen& seen, Candidate candidate);
    void settle(const Result& result);
    [[nodiscard]] Seen gathered() const;
    [[nodiscard]] std::string unsettled(const Result& result) const;
    [[nodiscard]] std::string textOf(const Seen& seen) const;
    [[nodiscard]] std::string textOf(const Seen& seen, std::size_t form) const;
    [[nodiscard]] std::string valueIn(const Candidate& candidate, std::string_view name) const;
    [[nodiscard]] std::string namesOfBits(double value) const;

    const RuleDefinition& definition_;
    std::vector<Seen> seen_;  // by wildcard
    Answers answers_;
    OfTaker of_;
    bool waiting_ = false;   // candidates could not be compared
    bool left_out_ = false;  // there were too many of them
};

/// A line of the summary.
class FactTaker : public Taker {
  public:
    explicit FactTaker(const FactDefinition& fact) : definition_(fact) {}
    Want take(const CurrentItem& item, std::uint32_t wildcard, const Match& match) override;
    /// Adds what was found; a fact with the group and label of an earlier one is left out.
    void addTo(std::vector<Fact>& facts) const;

  private:
    const FactDefinition& definition_;
    std::vector<Fact> facts_;
    std::uint32_t wildcard_ = NONE;  // of the facts
};

/// The rows of a chart.
class ChartTaker : public Taker {
  public:
    explicit ChartTaker(const ChartDefinition& chart) : definition_(chart) {}
    Want take(const CurrentItem& item, std::uint32_t wildcard, const Match& match) override;
    /// Adds the chart, if it has a row.
    void addTo(std::vector<Chart>& charts);
    OfTaker* of() { return definition_.measure.of ? &of_ : nullptr; }

  private:
    void addRow(const Kept& kept, const std::string& label, std::string_view value,
                std::string_view of);
    const ChartDefinition& definition_;
    std::vector<ChartRow> rows_;
    OfTaker of_;
};

/// Fills a template from one match.
std::string filledFrom(const Template& form, const Kept& kept);

#endif
