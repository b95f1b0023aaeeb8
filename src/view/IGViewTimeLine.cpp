#include <algorithm>

#include "view/IGViewSection.h"

namespace {

// Where the commands of the tools that are installed with the program begin.
constexpr std::string_view TOOL_DIRECTORY = "/opt/norvale/quendil/tool/";

std::int64_t durationOf(const ToolRun& tool) {
    return std::max<std::int64_t>(tool.end - tool.start, 0);
}

bool isQuick(const ToolRun& tool) {
    return tool.ended && !tool.timed_out && tool.exit_code == 0 && tool.wait_status == 0 &&
           tool.messages.empty() && durationOf(tool) == 0;
}

std::string_view commandOf(const ToolRun& tool) {
    std::string_view command = tool.command;
    if (command.starts_with(TOOL_DIRECTORY)) {
        command.remove_prefix(TOOL_DIRECTORY.size());
    }
    return command;
}

void writeBar(HtmlWriter& out, const RunLog& run, std::int64_t start, std::int64_t end,
              bool quick) {
    out << "<td><svg viewBox=\"0 0 "_html << std::max<std::int64_t>(run.seconds, 1)
        << " 1\" preserveAspectRatio=none aria-hidden=true><path "_html
        << (quick ? "class=q "_html : ""_html) << "d=\"M"_html << start << " 0h"_html
        << std::max<std::int64_t>(end - start, 0) << "v1h-"_html
        << std::max<std::int64_t>(end - start, 0) << "z\"/></svg>"_html;
}

void writeQuick(HtmlWriter& out, const RunLog& run, const ToolRow& row) {
    const std::int64_t start = run.tools[row.first].start;
    const std::int64_t end = run.tools[row.last - 1].end;
    out << "<tr class=q data-t=\""_html << row.first << " "_html << row.last << "\"><td>"_html
        << start << " s<td>"_html << std::max<std::int64_t>(end - start, 0) << " s<td>0"_html;
    writeBar(out, run, start, end, true);
    out << "<td>"_html << countText(row.last - row.first, "tool")
        << (row.last - row.first == 1 ? " that took less than a second</td></tr>\n"_html
                                      : " that took less than a second each</td></tr>\n"_html);
}

void writeExit(HtmlWriter& out, const ToolRun& tool) {
    if (!tool.ended) {
        out << "-"_html;
        return;
    }
    out << tool.exit_code;
    if (tool.wait_status != 0 && tool.exit_code == 0) {
        out << " <small>status "_html << tool.wait_status << "</small>"_html;
    }
}

void writeTool(HtmlWriter& out, const Result& result, const ToolRun& tool) {
    const RunLog& run = result.run;
    const bool bad = !tool.ended || tool.timed_out || tool.exit_code != 0 || tool.wait_status != 0;
    out << "<tr"_html << (bad ? " class=e"_html : ""_html) << "><td>"_html << tool.start
        << " s<td>"_html << durationOf(tool) << " s<td>"_html;
    writeExit(out, tool);
    writeBar(out, run, tool.start, std::max(tool.end, tool.start), false);
    out << "<td>"_html;
    writeLink(out, result, tool.item, 0, commandOf(tool));
    if (tool.timed_out) {
        out << " <b>time-out"_html;
        if (tool.timeout > 0) {
            out << " after "_html << tool.timeout << " s"_html;
        }
        out << "</b>"_html;
    }
    if (!tool.ended) {
        out << " <b>has not ended</b>"_html;
    }
    for (const std::size_t number : tool.messages) {
        if (number < run.messages.size()) {
            const LogMessage& message = run.messages[number];
            out << "<br>"_html;
            writeLink(out, result, run.log, message.line, message.id);
            out << " "_html << message.text;
        }
    }
    out << "</td></tr>\n"_html;
}

}  // namespace

std::vector<ToolRow> toolRows(const RunLog& run) {
    std::vector<ToolRow> rows;
    for (std::size_t i = 0; i < run.tools.size(); ++i) {
        const bool quick = isQuick(run.tools[i]);
        if (quick && !rows.empty() && rows.back().quick) {
            rows.back().last = i + 1;
        } else {
            rows.push_back({i, i + 1, quick});
        }
    }
    return rows;
}

void writeTimeLine(HtmlWriter& out, const Result& result) {
    const RunLog& run = result.run;
    if (run.tools.empty()) {
        return;
    }
    out << "<section id=tools><h2>Time line</h2><p>"_html << countText(run.tools.size(), "tool")
        << " in "_html
        << groupedNumber(static_cast<std::uint64_t>(std::max<std::int64_t>(run.seconds, 0)))
        << " s, from the start of the run. Commands without a directory are in <code>"_html
        << TOOL_DIRECTORY
        << "</code>.\n<p class=o hidden><button id=ts aria-pressed=false>Slowest "
           "first</button> <button id=ta aria-pressed=false>All tools</button>\n"_html
        << "<table class=t><thead><tr><th scope=col>Start<th scope=col>Duration<th scope=col>Exit"
           "<th scope=col>Time line<th scope=col>Tool</th></tr></thead><tbody>\n"_html;
    for (const ToolRow& row : toolRows(run)) {
        if (row.quick) {
            writeQuick(out, run, row);
        } else {
            writeTool(out, result, run.tools[row.first]);
        }
    }
    out << "</tbody></table></section>\n"_html;
}
