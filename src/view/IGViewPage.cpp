#include "view/IGViewPage.h"

#include <array>
#include <cinttypes>
#include <cstdio>

#include "view/IGViewGzip.h"
#include "view/IGViewHash.h"
#include "view/IGViewHead.h"
#include "view/IGViewHtml.h"
#include "view/IGViewSection.h"

extern const std::string_view PAGE_LOADER;
extern const std::string_view PAGE_LOADER_SHA256;
extern const std::string_view PAGE_SCRIPT;
extern const std::string_view PAGE_SCRIPT_SHA256;

namespace {

void writeHeader(HtmlWriter& out, const Result& result) {
    out << "<header><h1>"_html << hostOf(result) << "</h1>"_html;
    if (!result.run.started.empty()) {
        out << "<p>"_html << result.run.started << "</p>"_html;
    }
    out << "<nav aria-label=Sections><a href=#findings>Findings</a> <a href=#summary>Summary</a>"_html;
    out << (result.charts.empty() ? ""_html : " <a href=#charts>Charts</a>"_html);
    out << (result.run.tools.empty() ? ""_html : " <a href=#tools>Time line</a>"_html);
    out << (result.run.log == NONE ? ""_html : " <a href=#messages>Messages</a>"_html);
    out << " <a href=#items>Items</a></nav><form role=search hidden><input id=s type=search "
           "aria-label=\"Search items and contents\" placeholder=\"Search items and contents\" "
           "autocomplete=off></form></header>\n"_html;
}

void writeNotices(HtmlWriter& out, const Result& result) {
    out << "<div class=n role=alert id=w>"_html;
    for (const std::string& notice : result.notices) {
        out << "<p>"_html << notice;
    }
    out << "</div>\n<noscript><p class=n>The contents of the items and the search need "
           "JavaScript.</p>"
           "</noscript>\n"_html;
}

// What the script needs beside the contents: of each item the bytes in them, of a cut one its
// parts, and of each tool its line in the run log, counted from the tool before, and its item.
std::string dataText(const Result& result, const std::vector<ItemContent>& contents) {
    std::string text;
    const Sink sink = [&text](std::string_view piece) {
        text += piece;
        return true;
    };
    HtmlWriter out(sink);
    out << "{\"chunk\":"_html << CHUNK_BYTES << ",\"sizes\":["_html;
    for (std::size_t i = 0; i < contents.size(); ++i) {
        out << (i == 0 ? ""_html : ","_html);
        if (opens(result, static_cast<std::uint32_t>(i))) {
            out << contents[i].head + contents[i].tail;
        } else {
            out << -1;
        }
    }
    out << "],\"cut\":["_html;
    bool first = true;
    for (std::size_t i = 0; i < contents.size(); ++i) {
        if (contents[i].skipped > 0) {
            out << (first ? "["_html : ",["_html) << i << ","_html << contents[i].head << ","_html
                << contents[i].skipped << ","_html << contents[i].skipped_lines << "]"_html;
            first = false;
        }
    }
    out << "],\"log\":"_html;
    if (opens(result, result.run.log)) {
        out << result.run.log;
    } else {
        out << -1;
    }
    out << ",\"tools\":["_html;
    std::uint64_t line = 0;
    for (const ToolRun& tool : result.run.tools) {
        out << (&tool == result.run.tools.data() ? ""_html : ","_html)
            << static_cast<std::int64_t>(tool.line - line) << ","_html;
        if (opens(result, tool.item)) {
            out << tool.item;
        } else {
            out << -1;
        }
        line = tool.line;
    }
    out << "]}"_html;
    out.flush();
    return text;
}

// The viewer of items, which the script opens.
void writeViewer(HtmlWriter& out) {
    out << "<dialog id=v aria-labelledby=vt><header><h2 id=vt tabindex=-1></h2><p id=vd></p>"
           "<button id=vc>Close</button><div class=o><label>Find <input id=vf type=search "
           "autocomplete=off></label> "
           "<label>Line <input id=vl inputmode=numeric size=8></label> "
           "<label><input id=vw type=checkbox> Wrap</label> "
           "<button id=vp>Previous</button> <button id=vn>Next</button> "
           "<button id=vs>Save</button></div>"
           "<p id=vm role=status></p></header>"
           "<div id=vb tabindex=0 role=group aria-label=Content></div></dialog>\n"_html;
}

void writeFooter(HtmlWriter& out) {
    out << "<footer><p hidden class=o>Keys: <kbd>/</kbd> search, <kbd>j</kbd> <kbd>k</kbd> next "
           "and "
           "previous, <kbd>Esc</kbd> close. <label><input id=sk type=checkbox checked> Single-key "
           "shortcuts</label><p>Made by quendil-report "_html
        << QUENDIL_RELEASE << ". This page loads nothing.</footer>\n"_html;
}

// A block that the loader opens.
void writeBlock(HtmlWriter& out, Markup id, std::string_view bytes) {
    out << "<script type=application/gzip id="_html << id << ">"_html;
    out.embed(encodedBytes(bytes));
    out << "</script>\n"_html;
}

bool writeContents(HtmlWriter& out, const std::function<bool(const Sink&)>& write_contents) {
    std::size_t number = 0;
    return write_contents([&out, &number](std::string_view chunk) {
        out << "<script type=application/gzip id=c"_html << number++ << ">"_html;
        out.embed(encodedBytes(chunk));
        out << "</script>\n"_html;
        return out.flush();
    });
}

// A number for what was read. It need not be secret: who can write another archive to the place of
// this one can do without the page of the first.
std::string markOf(const Result& result) {
    constexpr HashKey KEY{};
    std::string text = std::to_string(static_cast<int>(result.form)) + " " +
                       std::to_string(result.bytes) + " " + std::to_string(result.omitted) + " " +
                       result.name;
    std::uint64_t hash = sipHash(KEY, text);
    for (const Item& item : result.items) {
        text = std::to_string(hash) + " " + std::to_string(static_cast<int>(item.kind)) + " " +
               std::to_string(item.size) + " " + std::to_string(item.modified) + " " + item.name +
               '\0' + item.link_target;
        hash = sipHash(KEY, text);
    }
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016" PRIx64, hash);
    return digits.data();
}

}  // namespace

std::string pageBeginning(const Result& result) {
    return headBeginning(markOf(result));
}

bool writePage(const Result& result, std::vector<ItemContent>& contents,
               const std::function<bool(const Sink&)>& write_contents, const Sink& sink) {
    HtmlWriter out(sink);
    writeHead(out, hostOf(result), {PAGE_LOADER_SHA256, PAGE_SCRIPT_SHA256}, {}, markOf(result));
    writeHeader(out, result);
    out << "<main>\n"_html;
    writeNotices(out, result);
    writeFindings(out, result);
    writeSummary(out, result);
    writeCharts(out, result);
    writeTimeLine(out, result);
    writeMessages(out, result);
    writeItems(out, result);
    out << "<section id=hits hidden><h2>Contents</h2><p id=hs role=status></p><div "
           "id=hl></div></section>\n</main>\n"_html;
    writeFooter(out);
    writeViewer(out);
    if (!writeContents(out, write_contents)) {
        return false;
    }
    Compressor compressor(BEST_COMPRESSION);
    writeBlock(out, "d"_html, compressor.compressed(dataText(result, contents)));
    writeBlock(out, "p"_html, compressor.compressed(PAGE_SCRIPT));
    out << "<script>"_html;
    out.embed(PAGE_LOADER);
    out << "</script>\n</body>\n</html>\n"_html;
    return out.flush();
}
