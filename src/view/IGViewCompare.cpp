#include "view/IGViewCompare.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "view/IGViewDiffSide.h"
#include "view/IGViewScan.h"
#include "view/IGViewSection.h"

namespace {

// Repeated names that are shown.
constexpr std::size_t MOST_NAMED = 10;

struct Side {
    Side(const std::vector<const ComparisonDefinition*>& comparisons, bool all)
        : taken(comparisons, all) {}

    Result result;
    DiffSide taken;
    std::map<std::string, const Item*> items;
    std::set<std::string> repeated;  // names of several files
};

bool readSide(const DiffSource& source, Side& side, std::string& why) {
    const Definitions none;
    side.result.path = source.path;
    if (!scanArchive(source.archive, none, side.result, &side.taken)) {
        why = source.path + ": " +
              (source.archive.error().empty() ? "it is empty" : source.archive.error());
        return false;
    }
    for (const Item& item : side.result.items) {
        const bool is_new = side.items.try_emplace(item.name, &item).second;
        if (!is_new && item.kind == ItemKind::REGULAR) {
            side.repeated.insert(item.name);
        }
    }
    return true;
}

DiffHead headOf(const Result& result) {
    return {result.path,        result.name, std::string(hostOf(result)),
            result.run.started, result.form, result.damaged,
            result.notices};
}

// --- one item of a comparison ---

bool sameKey(const DiffEntry& one, const DiffEntry& other) {
    return one.key_hash == other.key_hash && one.key == other.key;
}

bool valueLess(const DiffEntry& one, const DiffEntry& other) {
    return std::tie(one.value, one.value_hash) < std::tie(other.value, other.value_hash);
}

using Entries = std::vector<DiffEntry>;
using EntryRange = std::pair<Entries::const_iterator, Entries::const_iterator>;

// The entries from `begin` on that have its key.
EntryRange withKey(Entries::const_iterator begin, Entries::const_iterator end) {
    return {begin, std::find_if(begin, end,
                                [&](const DiffEntry& entry) { return !sameKey(*begin, entry); })};
}

// The entries of a key whose values the other side lacks. Both are sorted by their values.
Entries lackingIn(const EntryRange& other, const EntryRange& range) {
    Entries result;
    std::set_difference(range.first, range.second, other.first, other.second,
                        std::back_inserter(result), valueLess);
    return result;
}

Difference differenceOf(const std::string& item, const DiffEntry* before, const DiffEntry* after) {
    Difference difference;
    difference.item = item;
    difference.key = before == nullptr ? after->key : before->key;
    difference.change = before == nullptr  ? Change::ADDED
                        : after == nullptr ? Change::REMOVED
                                           : Change::CHANGED;
    if (before != nullptr) {
        difference.old_value = before->value;
        difference.old_line = before->line;
    }
    if (after != nullptr) {
        difference.new_value = after->value;
        difference.new_line = after->line;
    }
    return difference;
}

// Values of one key: those of both sides are paired, and what is left was added or removed.
void compareKey(const std::string& item, const EntryRange& before, const EntryRange& after,
                std::vector<Difference>& differences) {
    const Entries removed = lackingIn(after, before);
    const Entries added = lackingIn(before, after);
    for (std::size_t i = 0; i < std::max(removed.size(), added.size()); ++i) {
        differences.push_back(differenceOf(item, i < removed.size() ? &removed[i] : nullptr,
                                           i < added.size() ? &added[i] : nullptr));
    }
}

bool keyLess(const DiffEntry& one, const DiffEntry& other) {
    return std::tie(one.key, one.key_hash) < std::tie(other.key, other.key_hash);
}

void compareEntries(const std::string& item, const Entries& before, const Entries& after,
                    std::vector<Difference>& differences) {
    auto old_entry = before.begin();
    auto new_entry = after.begin();
    while (old_entry != before.end() || new_entry != after.end()) {
        EntryRange old_range{old_entry, old_entry};
        EntryRange new_range{new_entry, new_entry};
        const bool old_first = new_entry == after.end() ||
                               (old_entry != before.end() && !keyLess(*new_entry, *old_entry));
        const bool new_first = old_entry == before.end() ||
                               (new_entry != after.end() && !keyLess(*old_entry, *new_entry));
        if (old_first) {
            old_range = withKey(old_entry, before.end());
        }
        if (new_first) {
            new_range = withKey(new_entry, after.end());
        }
        compareKey(item, old_range, new_range, differences);
        old_entry = old_range.second;
        new_entry = new_range.second;
    }
}

// --- one comparison ---

/// Compares what both sides have for one definition.
class Comparer {
  public:
    Comparer(const Side& before, const Side& after, std::size_t number, Comparison& comparison)
        : old_(before), new_(after), number_(number), comparison_(comparison) {}

    void run() {
        const auto& old_items = old_.taken.items(number_);
        const auto& new_items = new_.taken.items(number_);
        std::set<std::string> names;
        for (const auto* items : {&old_items, &new_items}) {
            for (const auto& [name, item] : *items) {
                names.insert(name);
            }
        }
        for (const std::string& name : names) {
            const auto before = old_items.find(name);
            const auto after = new_items.find(name);
            compare(name, before == old_items.end() ? nullptr : &before->second,
                    after == new_items.end() ? nullptr : &after->second);
        }
    }

  private:
    void compare(const std::string& name, const DiffItem* before, const DiffItem* after) {
        if (isKnown(before) && isKnown(after) && (says(before) || says(after))) {
            ++comparison_.items;
            comparison_.entries += after->entries.size();
            compareEntries(name, before->entries, after->entries, comparison_.differences);
        } else if (isWholeFile(name, before, after)) {
            addWholeFile(name, before, after);
        } else if (says(before) || says(after)) {
            comparison_.not_compared.push_back(
                {name, reasonOf(old_, name, before), reasonOf(new_, name, after)});
        }
    }

    static bool isKnown(const DiffItem* item) {
        return item != nullptr && (item->reason.empty() || item->none);
    }

    static bool says(const DiffItem* item) { return item != nullptr && !item->silent; }

    // A file that is one of many, such as those of a directory, may be added and removed.
    static bool isWholeFile(const std::string& name, const Side& other, const DiffItem& item) {
        return !item.named && item.reason.empty() && !other.result.damaged &&
               !other.items.contains(name);
    }
    bool isWholeFile(const std::string& name, const DiffItem* before, const DiffItem* after) const {
        return before == nullptr ? isWholeFile(name, old_, *after)
                                 : after == nullptr && isWholeFile(name, new_, *before);
    }

    void addWholeFile(const std::string& name, const DiffItem* before, const DiffItem* after) {
        Difference difference;
        difference.change = before == nullptr ? Change::ADDED : Change::REMOVED;
        difference.item = name;
        difference.entries = (before == nullptr ? after : before)->entries.size();
        comparison_.differences.push_back(difference);
        ++comparison_.items;
    }

    static std::string reasonOf(const Side& side, const std::string& name, const DiffItem* item) {
        if (item != nullptr) {
            return item->reason;
        }
        const auto found = side.items.find(name);
        if (found != side.items.end() && found->second->kind == ItemKind::LINK) {
            return "it is a link that was not followed";
        }
        return found != side.items.end() ? "it could not be read" : "it is not in the archive";
    }

    const Side& old_;
    const Side& new_;
    std::size_t number_;
    Comparison& comparison_;
};

// --- all other files ---

// How many lines `one` has that `other` lacks; both are sorted.
std::size_t moreIn(const std::vector<std::uint64_t>& one, const std::vector<std::uint64_t>& other) {
    std::size_t more = 0;
    auto known = other.begin();
    for (const std::uint64_t hash : one) {
        while (known != other.end() && *known < hash) {
            ++known;
        }
        if (known != other.end() && *known == hash) {
            ++known;
        } else {
            ++more;
        }
    }
    return more;
}

/// Compares the files that no comparison reads, and finds the first lines that differ.
class FileComparer {
  public:
    FileComparer(const Side& before, const Side& after, Diff& diff)
        : old_(before), new_(after), diff_(diff) {}

    void run(const DiffSource& old_source, const DiffSource& new_source) {
        for (const auto& [name, before] : old_.taken.lines()) {
            const auto after = new_.taken.lines().find(name);
            if (after != new_.taken.lines().end()) {
                compare(name, before, after->second);
            }
        }
        std::map<std::string, WantedLines> removed;
        std::map<std::string, WantedLines> added;
        for (FileDifference& file : diff_.files) {
            if (file.reason.empty()) {
                const DiffLines& before = old_.taken.lines().at(file.item);
                const DiffLines& after = new_.taken.lines().at(file.item);
                removed[file.item] = {&after, &file.first_removed};
                added[file.item] = {&before, &file.first_added};
            }
        }
        pick(old_source, std::move(removed));
        pick(new_source, std::move(added));
        onlyIn(old_, new_, diff_.only_old);
        onlyIn(new_, old_, diff_.only_new);
    }

  private:
    void compare(const std::string& name, const DiffLines& before, const DiffLines& after) {
        FileDifference file;
        file.item = name;
        if (!before.reason.empty() || !after.reason.empty()) {
            file.reason = before.reason.empty() ? "NEW: " + after.reason : "OLD: " + before.reason;
        } else if (before.hash == after.hash && before.size == after.size) {
            return;
        } else if (before.binary || after.binary) {
            file.reason = "its content differs, but is no text";
        } else {
            file.removed = moreIn(before.hashes, after.hashes);
            file.added = moreIn(after.hashes, before.hashes);
            if (file.removed + file.added == 0) {
                file.reason = before.hash == after.hash ? "a line differs at its end"
                                                        : "its lines have another order";
            }
        }
        diff_.files.push_back(std::move(file));
    }

    // A second reading; what it cannot read again is left out.
    static void pick(const DiffSource& source, std::map<std::string, WantedLines> wanted) {
        LinePicker picker(std::move(wanted));
        const Definitions none;
        Result again;
        if (source.archive.rewind()) {
            scanArchive(source.archive, none, again, &picker);
        }
    }

    static void onlyIn(const Side& one, const Side& other, std::vector<std::string>& names) {
        for (const auto& [name, item] : one.items) {
            if (item->kind != ItemKind::DIRECTORY && !other.items.contains(name)) {
                names.push_back(name);
            }
        }
    }

    const Side& old_;
    const Side& new_;
    Diff& diff_;
};

// What has a name twice is compared only once: a program that unpacks it takes the last one.
void addRepeated(const char* label, const std::set<std::string>& names, Diff& diff) {
    std::size_t number = 0;
    for (const std::string& name : names) {
        if (++number > MOST_NAMED) {
            diff.warnings.push_back(label + std::to_string(names.size() - MOST_NAMED) +
                                    " more names are there twice.");
            return;
        }
        diff.warnings.push_back(label + name + " is there twice; the first one was compared.");
    }
}

void addWarnings(Diff& diff) {
    const DiffHead& before = diff.old_head;
    const DiffHead& after = diff.new_head;
    if (before.host != after.host) {
        diff.warnings.push_back("Two machines: " + before.host + " and " + after.host + ".");
    }
    if (!after.started.empty() && before.started > after.started) {
        diff.warnings.push_back("OLD is newer than NEW: " + before.started + " and " +
                                after.started + ".");
    }
    for (const DiffHead* head : {&before, &after}) {
        for (const std::string& notice : head->notices) {
            diff.warnings.push_back((head == &before ? "OLD: " : "NEW: ") + notice);
        }
    }
}

}  // namespace

bool compareArchives(const DiffSource& old_source, const DiffSource& new_source,
                     const Definitions& definitions, bool all, Diff& diff, std::string& why) {
    std::vector<const ComparisonDefinition*> comparisons;
    for (const ComparisonDefinition& definition : definitions.table().comparisons) {
        if (all || !definition.is_volatile) {
            comparisons.push_back(&definition);
        }
    }
    Side before(comparisons, all);
    Side after(comparisons, all);
    if (!readSide(old_source, before, why) || !readSide(new_source, after, why)) {
        return false;
    }
    diff.all = all;
    diff.old_head = headOf(before.result);
    diff.new_head = headOf(after.result);
    addWarnings(diff);
    addRepeated("OLD: ", before.repeated, diff);
    addRepeated("NEW: ", after.repeated, diff);
    for (std::size_t number = 0; number < comparisons.size(); ++number) {
        Comparison& comparison = diff.comparisons.emplace_back();
        comparison.name = comparisons[number]->name;
        comparison.title = comparisons[number]->title;
        comparison.is_volatile = comparisons[number]->is_volatile;
        Comparer(before, after, number, comparison).run();
    }
    if (all) {
        FileComparer(before, after, diff).run(old_source, new_source);
    }
    return true;
}
