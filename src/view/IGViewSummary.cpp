#include <algorithm>
#include <vector>

#include "view/IGViewSection.h"

namespace {

// The groups in the order of their first facts.
std::vector<std::string_view> groupsOf(const std::vector<Fact>& facts) {
    std::vector<std::string_view> groups;
    for (const Fact& fact : facts) {
        if (std::find(groups.begin(), groups.end(), fact.group) == groups.end()) {
            groups.emplace_back(fact.group);
        }
    }
    return groups;
}

void writeGroup(HtmlWriter& out, const Result& result, std::string_view group) {
    out << "<div><h3>"_html << group << "</h3><dl>"_html;
    for (const Fact& fact : result.facts) {
        if (fact.group == group) {
            out << "<dt>"_html << fact.label << "<dd>"_html;
            writeLink(out, result, fact.place.item, fact.place.line, fact.value);
        }
    }
    out << "</dl></div>\n"_html;
}

void writeRow(HtmlWriter& out, Markup label, std::string_view value) {
    if (!value.empty()) {
        out << "<dt>"_html << label << "<dd>"_html << value;
    }
}

std::string formText(const Result& result) {
    switch (result.form) {
        case ResultForm::COMPRESSED:
            return ".tar.gz of " + sizeText(result.bytes);
        case ResultForm::TAR:
            return ".tar of " + sizeText(result.bytes) + ", not compressed";
        default:
            return "directory, not packed";
    }
}

std::string itemsText(const Result& result) {
    const std::string text = countText(result.items.size() + result.omitted, "member") + ", " +
                             sizeText(result.content_bytes);
    return result.omitted == 0
               ? text
               : text + "; " + groupedNumber(result.omitted) + " of them are left out";
}

// Messages end with the letter of their kind.
std::size_t messagesOf(const RunLog& run, char kind) {
    std::size_t number = 0;
    for (const MessageCount& count : run.counts) {
        number += !count.id.empty() && count.id.back() == kind ? count.number : 0;
    }
    return number;
}

// How the run ended, as far as its log tells: the log is packed before the archive is complete.
std::string endText(const Result& result) {
    if (result.run.log == NONE) {
        return "unknown: there is no run log";
    }
    const auto running = std::count_if(result.run.tools.begin(), result.run.tools.end(),
                                       [](const ToolRun& tool) { return !tool.ended; });
    std::string text = running > 0 ? "while a tool ran" : "";
    if (const std::size_t errors = messagesOf(result.run, 'E'); errors > 0) {
        text += (text.empty() ? "with " : ", with ") + countText(errors, "error");
    }
    return text.empty() ? "without an error" : text;
}

std::string toolsText(const RunLog& run) {
    const auto numberOf = [&run](auto test) {
        return static_cast<std::size_t>(std::count_if(run.tools.begin(), run.tools.end(), test));
    };
    std::string text = countText(run.tools.size(), "tool");
    const std::size_t late = numberOf([](const ToolRun& tool) { return tool.timed_out; });
    const std::size_t failed =
        numberOf([](const ToolRun& tool) { return tool.ended && tool.exit_code != 0; });
    text += late > 0 ? ", " + countText(late, "time-out") : "";
    text += failed > 0 ? ", " + groupedNumber(failed) + " with an exit code other than 0" : "";
    return text;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

void writeRun(HtmlWriter& out, const Result& result) {
    const RunLog& run = result.run;
    out << "<div><h3>Run</h3><dl>"_html;
    writeRow(out, "Started"_html, run.started);
    if (!run.started.empty()) {
        writeRow(out, "Took"_html,
                 groupedNumber(static_cast<std::uint64_t>(std::max<std::int64_t>(run.seconds, 0))) +
                     " s");
        writeRow(out, "Command"_html, "quendil " + run.arguments);
    }
    writeRow(out, "Ended"_html, endText(result));
    writeRow(out, "Version"_html, run.version);
    writeRow(out, "Groups"_html, joined(run.groups));
    writeRow(out, "Targets"_html, joined(run.targets));
    writeRow(out, "Tools"_html, run.tools.empty() ? "" : toolsText(run));
    if (run.bytes >= 0) {
        writeRow(out, "Collected"_html, sizeText(static_cast<std::uint64_t>(run.bytes)));
    }
    writeRow(out, "Size limit"_html, run.limit);
    writeRow(out, "Warnings"_html, run.log == NONE ? "" : groupedNumber(messagesOf(run, 'W')));
    writeRow(out, "Result"_html, formText(result));
    writeRow(out, "Content"_html, itemsText(result));
    out << "</dl></div>\n"_html;
}

}  // namespace

void writeSummary(HtmlWriter& out, const Result& result) {
    out << "<section id=summary><h2>Summary</h2><div class=g>\n"_html;
    for (const std::string_view group : groupsOf(result.facts)) {
        writeGroup(out, result, group);
    }
    writeRun(out, result);
    out << "</div></section>\n"_html;
}
