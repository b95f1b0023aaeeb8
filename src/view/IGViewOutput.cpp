#include "view/IGViewOutput.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "companion/IGJson.h"
#include "companion/IGText.h"

using nlohmann::ordered_json;

namespace {

constexpr std::size_t PLACES_AS_TEXT = 3;  // of one finding

const char* nameOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::FOUND:
            return "found";
        case Verdict::CLEAR:
            return "clear";
        default:
            return "not judged";
    }
}

const char* nameOf(ItemKind kind) {
    switch (kind) {
        case ItemKind::REGULAR:
            return "file";
        case ItemKind::DIRECTORY:
            return "directory";
        case ItemKind::LINK:
            return "link";
        default:
            return "other";
    }
}

const char* nameOf(ResultForm form) {
    switch (form) {
        case ResultForm::COMPRESSED:
            return "tar.gz";
        case ResultForm::TAR:
            return "tar";
        default:
            return "directory";
    }
}

std::string itemName(const Result& result, std::uint32_t item) {
    return item < result.items.size() ? result.items[item].name : "";
}

// "storage/df.txt:3"
std::string placeName(const Result& result, const Place& place) {
    const std::string line = place.line == 0 ? "" : ":" + std::to_string(place.line);
    return itemName(result, place.item) + line;
}

void printLine(const std::string& label, const std::string& value) {
    if (!value.empty()) {
        std::printf("  %-16s %s\n", shown(label).c_str(), shown(value).c_str());
    }
}

void printFinding(const Result& result, const Finding& finding) {
    std::printf("%s: %s [%s]\n", nameOf(finding.weight), shown(finding.title).c_str(),
                shown(finding.rule).c_str());
    std::printf("    %s\n", shown(finding.text).c_str());
    std::size_t number = 0;
    for (const Place& place : finding.places) {
        if (number++ == PLACES_AS_TEXT) {
            std::printf("    and %zu more\n", finding.found - PLACES_AS_TEXT);
            break;
        }
        const std::string text = place.line == 0 ? "" : ": " + place.text;
        std::printf("    %s\n", shown(placeName(result, place) + text).c_str());
    }
    std::printf("    -> %s\n", shown(finding.remedy).c_str());
}

std::size_t countOf(const Result& result, Verdict verdict) {
    return static_cast<std::size_t>(
        std::count_if(result.findings.begin(), result.findings.end(),
                      [&](const Finding& finding) { return finding.verdict == verdict; }));
}

void printFindings(const Result& result) {
    std::printf("Findings\n");
    for (const Finding& finding : result.findings) {
        if (finding.verdict == Verdict::FOUND) {
            printFinding(result, finding);
        }
    }
    std::printf("%s found something, %s found nothing, %zu could not be judged:\n",
                counted(countOf(result, Verdict::FOUND), "rule").c_str(),
                counted(countOf(result, Verdict::CLEAR), "rule").c_str(),
                countOf(result, Verdict::NOT_JUDGED));
    for (const Finding& finding : result.findings) {
        if (finding.verdict == Verdict::NOT_JUDGED) {
            printLine(finding.rule, finding.text);
        }
    }
}

void printFacts(const Result& result) {
    std::string group;
    for (const Fact& fact : result.facts) {
        if (fact.group != group) {
            group = fact.group;
            std::printf("\n%s\n", shown(group).c_str());
        }
        printLine(fact.label, fact.value);
    }
}

void printRun(const Result& result) {
    const RunLog& run = result.run;
    std::printf("\nRun\n");
    printLine("Command", run.log == NONE ? "" : "quendil " + run.arguments);
    printLine("Started", run.started);
    printLine("Duration", run.log == NONE ? "" : std::to_string(run.seconds) + " s");
    printLine("Result", endOf(result.form));
    printLine("Files", std::to_string(std::count_if(
                           result.items.begin(), result.items.end(),
                           [](const Item& item) { return item.kind == ItemKind::REGULAR; })));
    printLine("Content", std::to_string(result.content_bytes) + " bytes");
    for (const MessageCount& count : run.counts) {
        printLine(count.id, counted(count.number, "message"));
    }
}

ordered_json placeOf(const Result& result, const Place& place) {
    ordered_json value{{"item", itemName(result, place.item)}};
    if (place.line != 0) {
        value["line"] = place.line;
        value["text"] = place.text;
    }
    return value;
}

ordered_json findingOf(const Result& result, const Finding& finding) {
    ordered_json value{{"rule", finding.rule},
                       {"title", finding.title},
                       {"weight", ::nameOf(finding.weight)},
                       {"verdict", nameOf(finding.verdict)},
                       {"text", finding.text}};
    if (finding.verdict == Verdict::FOUND) {
        value["remedy"] = finding.remedy;
        value["found"] = finding.found;
        value["places"] = ordered_json::array();
        for (const Place& place : finding.places) {
            value["places"].push_back(placeOf(result, place));
        }
    }
    return value;
}

ordered_json factOf(const Result& result, const Fact& fact) {
    ordered_json value{{"group", fact.group}, {"label", fact.label}, {"value", fact.value}};
    if (fact.place.known()) {
        value["place"] = placeOf(result, fact.place);
    }
    return value;
}

ordered_json chartOf(const Chart& chart) {
    ordered_json value{{"name", chart.name},
                       {"title", chart.title},
                       {"unit", chart.unit},
                       {"kind", chart.kind == ChartKind::BARS ? "bars" : "lines"},
                       {"rows", ordered_json::array()}};
    for (const ChartRow& row : chart.rows) {
        ordered_json entry{{"label", row.label}, {"value", row.value}};
        if (!row.when.empty()) {
            entry["when"] = row.when;
        }
        if (!row.note.empty()) {
            entry["note"] = row.note;
        }
        value["rows"].push_back(entry);
    }
    return value;
}

ordered_json toolOf(const Result& result, const ToolRun& tool) {
    ordered_json value{{"command", tool.command},
                       {"start", tool.start},
                       {"end", tool.end},
                       {"timeout", tool.timeout},
                       {"ended", tool.ended},
                       {"timed_out", tool.timed_out},
                       {"exit_code", tool.exit_code},
                       {"wait_status", tool.wait_status}};
    if (tool.item != NONE) {
        value["item"] = itemName(result, tool.item);
    }
    return value;
}

ordered_json itemOf(const Result& result, const Item& item) {
    ordered_json value{{"name", item.name}, {"kind", nameOf(item.kind)}};
    if (item.kind == ItemKind::REGULAR) {
        value["bytes"] = item.size;
        value["lines"] = item.lines;
    }
    if (!item.link_target.empty()) {
        value["target"] = item.link_target;
    }
    if (item.cut) {
        value["cut"] = true;
    }
    if (item.record != NONE) {
        value["description"] = result.records[item.record].description;
        value["type"] = result.records[item.record].type;
    }
    return value;
}

ordered_json runOf(const RunLog& run) {
    return {{"version", run.version}, {"arguments", run.arguments},
            {"started", run.started}, {"last", run.last},
            {"seconds", run.seconds}, {"groups", run.groups},
            {"targets", run.targets}, {"configuration", run.configuration},
            {"output", run.output},   {"bytes", run.bytes}};
}

}  // namespace

const char* endOf(ResultForm form) {
    switch (form) {
        case ResultForm::COMPRESSED:
            return "complete: a compressed archive (exit status 0)";
        case ResultForm::TAR:
            return "not compressed: a tar archive (exit status 10)";
        default:
            return "not packed: a directory (exit status 20)";
    }
}

const char* nameOf(Weight weight) {
    switch (weight) {
        case Weight::CRITICAL:
            return "critical";
        case Weight::WARNING:
            return "warning";
        default:
            return "notice";
    }
}

void printText(const Result& result) {
    std::printf("%s\n", shown(result.path).c_str());
    for (const std::string& notice : result.notices) {
        std::printf("! %s\n", shown(notice).c_str());
    }
    std::printf("\n");
    printFindings(result);
    printFacts(result);
    printRun(result);
}

void printJson(const Result& result) {
    const ordered_json head{{"version", 1},
                            {"path", result.path},
                            {"name", result.name},
                            {"form", nameOf(result.form)},
                            {"damaged", result.damaged},
                            {"notices", result.notices},
                            {"run", runOf(result.run)}};
    printBeginning(head);
    printList("findings", result.findings,
              [&](const Finding& finding) { return findingOf(result, finding); });
    printList("facts", result.facts, [&](const Fact& fact) { return factOf(result, fact); });
    printList("charts", result.charts, [](const Chart& chart) { return chartOf(chart); });
    printList("tools", result.run.tools, [&](const ToolRun& tool) { return toolOf(result, tool); });
    printList("messages", result.run.messages, [](const LogMessage& message) {
        return ordered_json{{"id", message.id}, {"text", message.text}, {"line", message.line}};
    });
    printList("items", result.items, [&](const Item& item) { return itemOf(result, item); });
    std::printf("}\n");
}
