#include "view/IGViewDiffSide.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "view/IGViewHash.h"
#include "view/IGViewLines.h"

namespace {

// Members that each run has of its own: index and log.
constexpr std::array<std::string_view, 2> OWN_FILES{"quendil_index", "quendil.log"};

bool isOwnFile(std::string_view name) {
    return std::find(OWN_FILES.begin(), OWN_FILES.end(), name) != OWN_FILES.end();
}

std::vector<const Query*> queriesOf(const std::vector<const ComparisonDefinition*>& comparisons) {
    std::vector<const Query*> queries;
    queries.reserve(comparisons.size());
    for (const ComparisonDefinition* comparison : comparisons) {
        queries.push_back(&comparison->query);
    }
    return queries;
}

auto rankOf(const DiffEntry& entry) {
    return std::tie(entry.key, entry.key_hash, entry.value, entry.value_hash);
}

void sortEntries(std::vector<DiffEntry>& entries) {
    const auto less = [](const DiffEntry& one, const DiffEntry& other) {
        return rankOf(one) < rankOf(other);
    };
    const auto equal = [](const DiffEntry& one, const DiffEntry& other) {
        return rankOf(one) == rankOf(other);
    };
    std::stable_sort(entries.begin(), entries.end(), less);
    entries.erase(std::unique(entries.begin(), entries.end(), equal), entries.end());
}

// Why an item cannot be compared, without its name; "" if it can.
std::string reasonOf(Answer answer, const std::string& said) {
    switch (answer) {
        case Answer::FULL:
            return "";
        case Answer::STOPPED:
            return "its tool was stopped, or its output was cut";
        case Answer::LACKING:
            return "no line tells";
        default:
            return said.empty() ? "it is empty" : said;
    }
}

std::string excerptOf(std::string_view text) {
    constexpr std::string_view MORE = "...";
    if (text.size() <= LONGEST_EXCERPT) {
        return std::string(text);
    }
    return std::string(text.substr(0, LONGEST_EXCERPT - MORE.size())) += MORE;
}

// The text with one blank for several: tools align their columns by the widest entry. Those at its
// beginning are kept, because they mean something in some configuration files.
std::string squeezed(std::string_view text) {
    constexpr std::string_view BLANKS = " \t\r";
    text = text.substr(0, text.find_last_not_of(BLANKS) + 1);
    std::string result(text.substr(0, std::min(text.find_first_not_of(BLANKS), text.size())));
    text.remove_prefix(result.size());
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(BLANKS), text.size());
        result += text.substr(0, end);
        text.remove_prefix(end);
        const std::size_t next = std::min(text.find_first_not_of(BLANKS), text.size());
        result += next > 0 ? " " : "";
        text.remove_prefix(next);
    }
    return result;
}

std::string keyOf(const Match& match) {
    std::string key(match["part"]);
    key += key.empty() ? "" : ": ";
    return key += squeezed(match["key"]);
}

std::string valueOf(const Match& match) {
    std::string value = squeezed(match["value"]);
    const std::string_view more = match["more"];
    value += value.empty() || more.empty() ? "" : " ";
    return value += squeezed(more);
}

}  // namespace

// --- while an archive is read ---

DiffSide::DiffSide(const std::vector<const ComparisonDefinition*>& comparisons, bool all)
    : comparisons_(comparisons),
      index_(queriesOf(comparisons)),
      items_(comparisons.size()),
      entries_(comparisons.size()),
      all_(all) {
}

bool DiffSide::begin(const std::string& name) {
    uses_ = index_.find(name);
    open_.clear();
    open_lines_ = nullptr;
    std::vector<const Query*> queries;
    for (const QueryIndex::Use& use : uses_) {
        // Of members with the same name, the first one counts.
        const auto [place, is_new] = items_[use.query].try_emplace(name);
        const std::vector<std::string>& names = comparisons_[use.query]->query.items;
        place->second.named = std::find(names.begin(), names.end(), name) != names.end();
        open_.push_back(is_new ? &place->second : nullptr);
        queries.push_back(&comparisons_[use.query]->query);
    }
    if (!uses_.empty()) {
        reader_.begin(queries);
        return true;
    }
    if (all_ && !isOwnFile(name)) {
        const auto [place, is_new] = lines_.try_emplace(name);
        open_lines_ = is_new ? &place->second : nullptr;
    }
    return open_lines_ != nullptr;
}

void DiffSide::line(std::string_view text) {
    if (open_lines_ != nullptr) {
        takeLine(text);
    } else {
        reader_.line(text, found_);
    }
}

void DiffSide::take(std::size_t position, const Match& match) {
    DiffItem* item = open_[position];
    if (item == nullptr || !item->reason.empty()) {
        return;
    }
    std::size_t& entries = entries_[uses_[position].query];
    if (entries == MOST_ENTRIES || bytes_ >= MOST_ENTRY_BYTES) {
        item->reason = entries == MOST_ENTRIES
                           ? "there are more than " + std::to_string(MOST_ENTRIES) + " entries"
                           : "the archive has too many entries";
        return;
    }
    const std::string key = keyOf(match);
    const std::string value = valueOf(match);
    item->entries.push_back(
        {excerptOf(key), excerptOf(value), hashOf(key), hashOf(value), match.number});
    ++entries;
    bytes_ +=
        sizeof(DiffEntry) + item->entries.back().key.size() + item->entries.back().value.size();
}

void DiffSide::end(const Item& item) {
    if (open_lines_ != nullptr) {
        finishLines(item);
    }
    for (std::size_t position = 0; position < open_.size(); ++position) {
        finish(position, item);
    }
}

void DiffSide::finish(std::size_t position, const Item& item) {
    DiffItem* open = open_[position];
    if (open == nullptr) {
        return;
    }
    const Answer answer = reader_.answer(position);
    open->silent = answer == Answer::NOTHING || answer == Answer::LACKING;
    open->none = open->silent && reader_.none() && item.size > 0 && !item.cut;
    if (open->reason.empty()) {
        open->reason =
            item.cut ? "the archive has it only in part" : reasonOf(answer, reader_.reason());
    }
    if (open->reason.empty()) {
        sortEntries(open->entries);
    } else {
        std::vector<DiffEntry>().swap(open->entries);
    }
}

void DiffSide::takeLine(std::string_view text) {
    DiffLines& lines = *open_lines_;
    lines.binary = lines.binary || text.find('\0') != std::string_view::npos;
    const std::uint64_t hash = hashOf(text);
    constexpr std::uint64_t FACTOR = 0x9e3779b97f4a7c15;  // odd: no bit of what came before is lost
    lines.hash = lines.hash * FACTOR + hash;
    if (line_count_ < MOST_COMPARED_LINES) {
        lines.hashes.push_back(hash);
        ++line_count_;
    } else {
        lines.reason =
            "the files have more than " + std::to_string(MOST_COMPARED_LINES) + " lines together";
    }
}

void DiffSide::finishLines(const Item& item) {
    DiffLines& lines = *open_lines_;
    lines.size = item.size;
    if (item.cut) {
        lines.reason = "the archive has it only in part";
    }
    if (lines.binary || !lines.reason.empty()) {
        line_count_ -= lines.hashes.size();
        std::vector<std::uint64_t>().swap(lines.hashes);
    }
    lines.hashes.shrink_to_fit();
    std::sort(lines.hashes.begin(), lines.hashes.end());
}

// --- when it is read again ---

bool LinePicker::begin(const std::string& name) {
    const auto found = wanted_.find(name);
    if (found == wanted_.end() || bytes_ >= MOST_SHOWN_BYTES) {
        return false;
    }
    other_.clear();
    for (const std::uint64_t hash : found->second.other->hashes) {
        if (other_.empty() || other_.back().first != hash) {
            other_.emplace_back(hash, 0);
        }
        ++other_.back().second;
    }
    lines_ = found->second.lines;
    number_ = 0;
    wanted_.erase(found);  // of members with the same name, the first one counts
    return true;
}

void LinePicker::line(std::string_view text) {
    ++number_;
    if (lines_->size() == MOST_SHOWN_LINES) {
        return;
    }
    const std::uint64_t hash = hashOf(text);
    const auto place =
        std::lower_bound(other_.begin(), other_.end(), std::pair(hash, std::size_t{0}));
    if (place != other_.end() && place->first == hash && place->second > 0) {
        --place->second;
        return;
    }
    lines_->push_back({number_, excerptOf(text)});
    bytes_ += sizeof(OnlyLine) + lines_->back().text.size();
}

void LinePicker::end(const Item& /*item*/) {
    lines_ = nullptr;
}
