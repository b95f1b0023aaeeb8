#include "view/IGViewDiffPage.h"

#include <algorithm>

#include "view/IGViewDiffOutput.h"
#include "view/IGViewHead.h"
#include "view/IGViewHtml.h"
#include "view/IGViewOutput.h"

namespace {

void writeRun(HtmlWriter& out, Markup label, const DiffHead& head) {
    out << "<tr><th scope=row>"_html << label << "</th><td data-l=Machine>"_html << head.host
        << "</td><td data-l=Run>"_html << (head.started.empty() ? "unknown" : head.started)
        << "</td><td data-l=Result>"_html << endOf(head.form) << (head.damaged ? "; damaged" : "")
        << "</td><td data-l=File>"_html << head.path << "</td></tr>\n"_html;
}

void writeRuns(HtmlWriter& out, const Diff& diff) {
    out << "<section id=runs><h2>Compared</h2><table class=rows><thead><tr><th scope=col>Side</th>"
           "<th scope=col>Machine</th><th scope=col>Start of the run</th>"
           "<th scope=col>Result</th><th scope=col>File</th></tr></thead><tbody>\n"_html;
    writeRun(out, "OLD"_html, diff.old_head);
    writeRun(out, "NEW"_html, diff.new_head);
    out << "</tbody></table></section>\n"_html;
}

Markup rowOf(Change change) {
    switch (change) {
        case Change::CHANGED:
            return "<tr class=w2><td>changed</td>"_html;
        case Change::ADDED:
            return "<tr class=w3><td>added</td>"_html;
        default:
            return "<tr class=w0><td>removed</td>"_html;
    }
}

void writeValue(HtmlWriter& out, Markup cell, const std::string& value) {
    out << cell;
    if (!value.empty()) {
        out << "<code>"_html << value << "</code>"_html;
    }
    out << "</td>"_html;
}

void writeLine(HtmlWriter& out, Markup label, std::uint64_t line) {
    if (line > 0) {
        out << label << line;
    }
}

// A key without values is often a whole line of a file: it has their columns too.
void writeKey(HtmlWriter& out, const Difference& difference) {
    const bool plain = difference.old_value.empty() && difference.new_value.empty();
    out << (plain ? "<th scope=row colspan=3>"_html : "<th scope=row>"_html);
    if (difference.old_line == 0 && difference.new_line == 0) {
        out << "the file, "_html << entriesOf(difference.entries);
    } else {
        out << "<code>"_html << difference.key << "</code>"_html;
    }
    out << "</th>"_html;
    if (!plain) {
        writeValue(out, "<td data-l=OLD>"_html, difference.old_value);
        writeValue(out, "<td data-l=NEW>"_html, difference.new_value);
    }
}

void writeDifference(HtmlWriter& out, const Difference& difference) {
    out << rowOf(difference.change);
    writeKey(out, difference);
    out << "<td><small>"_html << difference.item;
    writeLine(out, ", OLD line "_html, difference.old_line);
    writeLine(out, ", NEW line "_html, difference.new_line);
    out << "</small></td></tr>\n"_html;
}

void writeComparison(HtmlWriter& out, const Comparison& comparison) {
    out << R"(<table class="rows diff"><caption>)"_html << comparison.title << " <small>"_html
        << changesOf(comparison)
        << "</small></caption><thead><tr><th scope=col>Change</th><th scope=col>What</th>"
           "<th scope=col>OLD</th><th scope=col>NEW</th><th scope=col>Where</th></tr></thead>"
           "<tbody>\n"_html;
    const std::size_t shown = std::min(comparison.differences.size(), MOST_SHOWN_DIFFERENCES);
    for (std::size_t i = 0; i < shown; ++i) {
        writeDifference(out, comparison.differences[i]);
    }
    out << "</tbody></table>\n"_html;
    if (shown < comparison.differences.size()) {
        out << "<p>and "_html << groupedNumber(comparison.differences.size() - shown)
            << " more: quendil-report --diff --text prints them.\n"_html;
    }
}

bool has(const Diff& diff, ComparisonState state) {
    return std::any_of(diff.comparisons.begin(), diff.comparisons.end(),
                       [&](const Comparison& one) { return one.state() == state; });
}

void writeDifferences(HtmlWriter& out, const Diff& diff) {
    out << "<section id=differences><h2>Differences</h2>\n"_html;
    if (!has(diff, ComparisonState::DIFFERENT)) {
        out << "<p>No difference\n"_html;
    }
    for (const Comparison& comparison : diff.comparisons) {
        if (comparison.state() == ComparisonState::DIFFERENT) {
            writeComparison(out, comparison);
        }
    }
    out << "</section>\n"_html;
}

void writeNotCompared(HtmlWriter& out, const Diff& diff) {
    const bool any = std::any_of(diff.comparisons.begin(), diff.comparisons.end(),
                                 [](const Comparison& one) { return !one.not_compared.empty(); });
    if (!any) {
        return;
    }
    out << "<section id=unknown><h2>Not compared</h2><ul class=l>\n"_html;
    for (const Comparison& comparison : diff.comparisons) {
        for (const NotCompared& item : comparison.not_compared) {
            out << "<li>"_html << comparison.title << " <small>"_html << item.item << ": "_html
                << reasonOf(item) << "</small>\n"_html;
        }
    }
    out << "</ul></section>\n"_html;
}

void writeTitles(HtmlWriter& out, const Diff& diff, ComparisonState state, Markup label) {
    if (!has(diff, state)) {
        return;
    }
    out << "<details><summary>"_html << label << "</summary><ul class=l>\n"_html;
    for (const Comparison& comparison : diff.comparisons) {
        if (comparison.state() == state) {
            out << "<li>"_html << comparison.title;
            if (state == ComparisonState::EQUAL) {
                out << " <small>"_html << entriesOf(comparison.entries) << "</small>"_html;
            }
        }
    }
    out << "</ul></details>\n"_html;
}

void writeLines(HtmlWriter& out, const std::vector<OnlyLine>& lines, std::size_t all, Markup begin,
                Markup end) {
    for (const OnlyLine& line : lines) {
        out << begin << line.line << "  "_html << line.text << end;
    }
    if (all > lines.size()) {
        out << begin << "and "_html << groupedNumber(all - lines.size()) << " more"_html << end;
    }
}

void writeFile(HtmlWriter& out, const FileDifference& file) {
    out << "<details><summary>"_html << file.item << " <small>"_html << changesOf(file)
        << "</small></summary><pre>"_html;
    writeLines(out, file.first_removed, file.removed, "<del class=w0>- "_html, "</del>"_html);
    writeLines(out, file.first_added, file.added, "<ins class=w3>+ "_html, "</ins>"_html);
    out << "</pre></details>\n"_html;
}

void writeNames(HtmlWriter& out, const std::vector<std::string>& names, Markup label) {
    if (names.empty()) {
        return;
    }
    out << "<details><summary>"_html << label << " <small>"_html << countText(names.size(), "item")
        << "</small></summary><ul class=l>\n"_html;
    for (const std::string& name : names) {
        out << "<li>"_html << name;
    }
    out << "</ul></details>\n"_html;
}

void writeFiles(HtmlWriter& out, const Diff& diff) {
    if (!diff.all) {
        return;
    }
    out << "<section id=files><h2>Other files, line by line</h2>\n"_html;
    if (diff.files.empty() && diff.only_old.empty() && diff.only_new.empty()) {
        out << "<p>No difference\n"_html;
    }
    for (const FileDifference& file : diff.files) {
        writeFile(out, file);
    }
    writeNames(out, diff.only_old, "Only in OLD"_html);
    writeNames(out, diff.only_new, "Only in NEW"_html);
    out << "</section>\n"_html;
}

}  // namespace

bool writeDiffPage(const Diff& diff, const Sink& sink) {
    HtmlWriter out(sink);
    const std::string host = diff.old_head.host == diff.new_head.host
                                 ? diff.new_head.host
                                 : diff.old_head.host + " and " + diff.new_head.host;
    writeHead(out, host + ": differences", {}, {tableStyle()});
    out << "<header><h1>"_html << host
        << "</h1><p>what differs between two runs</header>\n"
           "<main>\n"_html;
    writeWarnings(out, diff.warnings);
    writeRuns(out, diff);
    writeDifferences(out, diff);
    writeNotCompared(out, diff);
    out << "<section id=rest><h2>The rest</h2>\n"_html;
    writeTitles(out, diff, ComparisonState::EQUAL, "Equal"_html);
    writeTitles(out, diff, ComparisonState::NO_DATA, "Neither archive has data for"_html);
    out << "</section>\n"_html;
    writeFiles(out, diff);
    out << "</main>\n"_html;
    writeFoot(out);
    return out.flush();
}
