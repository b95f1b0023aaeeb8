#include "view/IGViewOverviewPage.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "view/IGViewHead.h"
#include "view/IGViewHtml.h"

namespace {

// An absolute path without links, of a file that may not be there yet.
std::filesystem::path resolved(const std::string& path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    const std::filesystem::path directory =
        std::filesystem::weakly_canonical(absolute.parent_path(), error);
    return error ? absolute : directory / absolute.filename();
}

std::string encoded(const std::string& path) {
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    constexpr std::string_view PLAIN =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    std::string result;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (PLAIN.find(c) != std::string_view::npos) {
            result += c;
        } else {
            result += {'%', DIGITS[byte / 16U], DIGITS[byte % 16U]};
        }
    }
    return result;
}

std::string statusOf(const OverviewRow& row) {
    switch (row.state) {
        case OverviewState::READ:
            return row.form == ResultForm::COMPRESSED ? "complete"
                   : row.form == ResultForm::TAR      ? "not compressed"
                                                      : "not packed";
        case OverviewState::DAMAGED:
            return "damaged";
        case OverviewState::NO_RESULT:
            return "no result of quendil";
        default:
            return "unreadable";
    }
}

void writeCount(HtmlWriter& out, Markup begin, std::size_t number, std::string_view what) {
    if (number > 0) {
        out << begin << number << " "_html << what << "</span> "_html;
    }
}

void writeFindings(HtmlWriter& out, const OverviewRow& row) {
    const bool none = row.found == std::array<std::size_t, 3>{};
    writeCount(out, R"(<span class="count w0">)"_html, row.found[0], "critical");
    writeCount(out, R"(<span class="count w1">)"_html, row.found[1],
               row.found[1] == 1 ? "warning" : "warnings");
    writeCount(out, R"(<span class="count w2">)"_html, row.found[2],
               row.found[2] == 1 ? "notice" : "notices");
    out << (none ? "none"_html : ""_html);
    if (row.critical.empty()) {
        return;
    }
    out << "<ul>"_html;
    for (const std::string& title : row.critical) {
        out << "<li>"_html << title;
    }
    if (row.found[0] > row.critical.size()) {
        out << "<li>and "_html << row.found[0] - row.critical.size() << " more"_html;
    }
    out << "</ul>"_html;
}

bool isKnown(const OverviewRow& row) {
    return row.state == OverviewState::READ || row.state == OverviewState::DAMAGED;
}

void writeMachine(HtmlWriter& out, const OverviewRow& row, const std::string& index) {
    const std::string name = row.host.empty() ? "unknown" : row.host;
    if (row.page.empty()) {
        out << name;
    } else {
        out << R"(<a href=")"_html;
        out.embed(linkTo(row.page, index));
        out << R"(">)"_html << name << "</a>"_html;
    }
}

void writeRow(HtmlWriter& out, const OverviewRow& row, const std::string& index) {
    out << "<tr><th scope=row>"_html;
    writeMachine(out, row, index);
    out << "</th><td data-l=Run>"_html << row.started;
    if (!row.arguments.empty()) {
        out << " <small>"_html << row.arguments << "</small>"_html;
    }
    out << "</td><td data-l=Status>"_html << statusOf(row);
    if (!row.reason.empty()) {
        out << " <small>"_html << row.reason << "</small>"_html;
    }
    if (!row.no_page.empty()) {
        out << " <small>No page: "_html << row.no_page << "</small>"_html;
    }
    out << "</td><td data-l=Findings>"_html;
    if (isKnown(row)) {
        writeFindings(out, row);
        out << R"(</td><td data-l="Not judged">)"_html << row.not_judged;
    } else {
        out << "</td><td>"_html;
    }
    out << "</td><td data-l=Size>"_html << sizeText(row.bytes)
        << "</td><td data-l=File><small>"_html << row.path << "</small></td></tr>\n"_html;
}

void writeTally(HtmlWriter& out, const std::vector<OverviewRow>& rows) {
    const auto critical = std::count_if(rows.begin(), rows.end(),
                                        [](const OverviewRow& row) { return row.found[0] > 0; });
    const auto broken = std::count_if(rows.begin(), rows.end(), [](const OverviewRow& row) {
        return row.state != OverviewState::READ;
    });
    out << "<ul class=y><li class=w4><b>"_html << rows.size() << "</b> "_html
        << (rows.size() == 1 ? "result" : "results") << "<li class=w0><b>"_html << critical
        << "</b> with critical findings<li class=w1><b>"_html << broken
        << "</b> damaged or no result</ul>\n"_html;
}

}  // namespace

std::string linkTo(const std::string& path, const std::string& from) {
    const std::filesystem::path relative =
        resolved(path).lexically_relative(resolved(from).parent_path());
    return encoded(relative.string());
}

bool writeOverviewPage(const std::vector<OverviewRow>& rows, const std::string& directory,
                       const std::string& index, const std::vector<std::string>& problems,
                       const Sink& sink) {
    HtmlWriter out(sink);
    writeHead(out, "Overview of " + directory, {}, {tableStyle()});
    out << "<header><h1>Overview</h1><p>"_html << directory << "</header>\n<main>\n"_html;
    writeWarnings(out, problems);
    out << "<section id=results><h2>Results, the worst first</h2>\n"_html;
    writeTally(out, rows);
    out << "<table class='rows runs'><thead><tr><th scope=col>Machine</th><th scope=col>Run</th>"
           "<th scope=col>Status</th><th scope=col>Findings</th><th scope=col>Rules not judged</th>"
           "<th scope=col>Size</th><th scope=col>File</th></tr></thead><tbody>\n"_html;
    for (const OverviewRow& row : rows) {
        writeRow(out, row, index);
    }
    out << "</tbody></table></section>\n</main>\n"_html;
    writeFoot(out);
    return out.flush();
}
