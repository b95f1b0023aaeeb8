#include "view/IGViewDiffOutput.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "companion/IGJson.h"
#include "companion/IGText.h"
#include "view/IGViewOutput.h"

using nlohmann::ordered_json;

namespace {

// --- text ---

void printHead(const char* label, const DiffHead& head) {
    const std::string started = head.started.empty() ? "at an unknown time" : head.started;
    std::printf("%s  %s  (%s, %s)\n", label, shown(head.path).c_str(), shown(head.host).c_str(),
                shown(started).c_str());
}

const char* signOf(Change change) {
    return change == Change::CHANGED ? "~" : change == Change::ADDED ? "+" : "-";
}

std::string valuesOf(const Difference& difference) {
    switch (difference.change) {
        case Change::CHANGED:
            return ": " + difference.old_value + " -> " + difference.new_value;
        case Change::ADDED:
            return difference.new_value.empty() ? "" : ": " + difference.new_value;
        default:
            return difference.old_value.empty() ? "" : ": " + difference.old_value;
    }
}

// "network/ip_route.txt:3 -> 4"
std::string placeOf(const Difference& difference) {
    const std::string old_line = std::to_string(difference.old_line);
    const std::string new_line = std::to_string(difference.new_line);
    switch (difference.change) {
        case Change::CHANGED:
            return difference.item + ":" + old_line + " -> " + new_line;
        case Change::ADDED:
            return difference.item + ":" + new_line;
        default:
            return "OLD " + difference.item + ":" + old_line;
    }
}

void print(const Difference& difference) {
    const bool whole = difference.old_line == 0 && difference.new_line == 0;
    const std::string text = whole
                                 ? difference.item + ": the file, " + entriesOf(difference.entries)
                                 : difference.key + valuesOf(difference);
    const std::string place = whole ? "" : "  (" + placeOf(difference) + ")";
    std::printf("  %s %s%s\n", signOf(difference.change), shown(text).c_str(),
                shown(place).c_str());
}

void printDifferences(const Diff& diff) {
    bool any = false;
    for (const Comparison& comparison : diff.comparisons) {
        if (comparison.state() == ComparisonState::DIFFERENT) {
            std::printf("\n%s: %s\n", shown(comparison.title).c_str(),
                        changesOf(comparison).c_str());
            for (const Difference& difference : comparison.differences) {
                print(difference);
            }
            any = true;
        }
    }
    if (!any) {
        std::printf("\nNo difference\n");
    }
}

void printNotCompared(const Diff& diff) {
    bool any = false;
    for (const Comparison& comparison : diff.comparisons) {
        for (const NotCompared& item : comparison.not_compared) {
            std::printf("%s  %s: %s: %s\n", any ? "" : "\nNot compared\n",
                        shown(comparison.title).c_str(), shown(item.item).c_str(),
                        shown(reasonOf(item)).c_str());
            any = true;
        }
    }
}

void printTitles(const Diff& diff, const char* label, ComparisonState state) {
    std::string text;
    for (const Comparison& comparison : diff.comparisons) {
        if (comparison.state() == state) {
            text += (text.empty() ? "" : ", ") + comparison.title;
        }
    }
    if (!text.empty()) {
        std::printf("\n%s: %s\n", label, shown(text).c_str());
    }
}

void printNames(const char* label, const std::vector<std::string>& names) {
    if (names.empty()) {
        return;
    }
    std::printf("\n%s\n", label);
    for (const std::string& name : names) {
        std::printf("  %s\n", shown(name).c_str());
    }
}

void printLines(char sign, const std::vector<OnlyLine>& lines, std::size_t all) {
    for (const OnlyLine& line : lines) {
        std::printf("    %c %6llu  %s\n", sign, static_cast<unsigned long long>(line.line),
                    shown(line.text).c_str());
    }
    if (all > lines.size()) {
        std::printf("    %c    and %zu more\n", sign, all - lines.size());
    }
}

void printFiles(const Diff& diff) {
    if (!diff.files.empty()) {
        std::printf("\nOther files, line by line\n");
    }
    for (const FileDifference& file : diff.files) {
        std::printf("  %s: %s\n", shown(file.item).c_str(), shown(changesOf(file)).c_str());
        printLines('-', file.first_removed, file.removed);
        printLines('+', file.first_added, file.added);
    }
    printNames("Only in OLD", diff.only_old);
    printNames("Only in NEW", diff.only_new);
}

// --- JSON ---

const char* nameOf(ComparisonState state) {
    switch (state) {
        case ComparisonState::DIFFERENT:
            return "different";
        case ComparisonState::NOT_COMPARED:
            return "not compared";
        case ComparisonState::EQUAL:
            return "equal";
        default:
            return "no data";
    }
}

ordered_json headOf(const DiffHead& head) {
    return {{"path", head.path},       {"name", head.name},       {"host", head.host},
            {"started", head.started}, {"damaged", head.damaged}, {"notices", head.notices}};
}

ordered_json differenceOf(const Difference& difference) {
    ordered_json value{{"change", ::nameOf(difference.change)}, {"item", difference.item}};
    if (difference.old_line == 0 && difference.new_line == 0) {
        value["file_entries"] = difference.entries;
        return value;
    }
    value["key"] = difference.key;
    if (difference.change != Change::ADDED) {
        value["old"] = {{"value", difference.old_value}, {"line", difference.old_line}};
    }
    if (difference.change != Change::REMOVED) {
        value["new"] = {{"value", difference.new_value}, {"line", difference.new_line}};
    }
    return value;
}

ordered_json notComparedOf(const NotCompared& item) {
    ordered_json value{{"item", item.item}};
    if (!item.old_reason.empty()) {
        value["old"] = item.old_reason;
    }
    if (!item.new_reason.empty()) {
        value["new"] = item.new_reason;
    }
    return value;
}

ordered_json linesOf(const std::vector<OnlyLine>& lines) {
    ordered_json list = ordered_json::array();
    for (const OnlyLine& line : lines) {
        list.push_back({{"line", line.line}, {"text", line.text}});
    }
    return list;
}

ordered_json fileOf(const FileDifference& file) {
    ordered_json value{{"item", file.item}};
    if (!file.reason.empty()) {
        value["reason"] = file.reason;
    } else {
        value["added"] = file.added;
        value["removed"] = file.removed;
        value["first_added"] = linesOf(file.first_added);
        value["first_removed"] = linesOf(file.first_removed);
    }
    return value;
}

void printJson(const Comparison& comparison) {
    const ordered_json head{{"name", comparison.name},
                            {"title", comparison.title},
                            {"volatile", comparison.is_volatile},
                            {"state", nameOf(comparison.state())},
                            {"items", comparison.items},
                            {"entries", comparison.entries}};
    printBeginning(head);
    printList("differences", comparison.differences, differenceOf);
    printList("not_compared", comparison.not_compared, notComparedOf);
    std::printf("}");
}

}  // namespace

const char* nameOf(Change change) {
    switch (change) {
        case Change::CHANGED:
            return "changed";
        case Change::ADDED:
            return "added";
        default:
            return "removed";
    }
}

std::string entriesOf(std::size_t number) {
    return number == 1 ? "1 entry" : std::to_string(number) + " entries";
}

std::string changesOf(const Comparison& comparison) {
    std::string text;
    for (const Change change : {Change::CHANGED, Change::ADDED, Change::REMOVED}) {
        const auto number =
            std::count_if(comparison.differences.begin(), comparison.differences.end(),
                          [&](const Difference& one) { return one.change == change; });
        if (number > 0) {
            text += (text.empty() ? "" : ", ") + std::to_string(number) + " " + nameOf(change);
        }
    }
    return text;
}

std::string reasonOf(const NotCompared& item) {
    const std::string before = item.old_reason.empty() ? "" : "OLD: " + item.old_reason;
    const std::string after = item.new_reason.empty() ? "" : "NEW: " + item.new_reason;
    return before + (before.empty() || after.empty() ? "" : "; ") + after;
}

std::string changesOf(const FileDifference& file) {
    if (!file.reason.empty()) {
        return file.reason;
    }
    return std::to_string(file.removed) + " removed, " + std::to_string(file.added) + " added";
}

void printDiffText(const Diff& diff) {
    printHead("OLD", diff.old_head);
    printHead("NEW", diff.new_head);
    for (const std::string& warning : diff.warnings) {
        std::printf("! %s\n", shown(warning).c_str());
    }
    printDifferences(diff);
    printNotCompared(diff);
    printTitles(diff, "Equal", ComparisonState::EQUAL);
    printTitles(diff, "Neither archive has data for", ComparisonState::NO_DATA);
    printFiles(diff);
}

void printDiffJson(const Diff& diff) {
    const ordered_json head{{"version", 1},
                            {"old", headOf(diff.old_head)},
                            {"new", headOf(diff.new_head)},
                            {"warnings", diff.warnings},
                            {"all", diff.all}};
    printBeginning(head);
    std::printf(",\n\"comparisons\": [");
    for (const Comparison& comparison : diff.comparisons) {
        std::printf("%s\n", &comparison == diff.comparisons.data() ? "" : ",");
        printJson(comparison);
    }
    std::printf("\n]");
    const auto same = [](const std::string& name) { return ordered_json(name); };
    if (diff.all) {
        printList("files", diff.files, fileOf);
        printList("only_old", diff.only_old, same);
        printList("only_new", diff.only_new, same);
    }
    std::printf("}\n");
}
