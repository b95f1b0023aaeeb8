#include <algorithm>
#include <string>

#include "view/IGViewManual.h"
#include "view/IGViewSection.h"

namespace {

constexpr std::size_t MOST_OF_ONE = 100;  // lines that the page lists of one message

std::string_view firstSentence(std::string_view text) {
    const std::size_t end = text.find(". ");
    return text.substr(0,
                       std::min(text.find("\n\n"), end == std::string_view::npos ? end : end + 1));
}

// The paragraphs of a manual entry.
void writeHelp(HtmlWriter& out, std::string_view rest) {
    while (!rest.empty()) {
        const std::size_t end = rest.find("\n\n");
        std::string paragraph(rest.substr(0, end));
        std::replace(paragraph.begin(), paragraph.end(), '\n', ' ');
        out << "<p>"_html << paragraph;
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 2);
    }
}

void writeLines(HtmlWriter& out, const Result& result, const MessageCount& count) {
    out << "<ul>"_html;
    std::size_t written = 0;
    for (const LogMessage& message : result.run.messages) {
        if (message.id == count.id && written < MOST_OF_ONE) {
            out << "<li>"_html;
            writeLink(out, result, result.run.log, message.line, std::to_string(message.line));
            out << " "_html << message.text;
            ++written;
        }
    }
    if (written < count.number) {
        out << "<li>and "_html << groupedNumber(count.number - written)
            << " more in the run log"_html;
    }
    out << "</ul>"_html;
}

}  // namespace

void writeMessages(HtmlWriter& out, const Result& result) {
    if (result.run.log == NONE) {
        return;
    }
    out << "<section id=messages><h2>Messages</h2>"_html;
    if (result.run.counts.empty()) {
        out << "<p>The run has reported neither a warning nor an error.\n"_html;
    }
    for (const MessageCount& count : result.run.counts) {
        const std::string help = messageHelp(count.id);
        out << "<details class="_html << (count.id.ends_with('E') ? "w0"_html : "w1"_html)
            << "><summary><b>"_html << count.id << "</b> "_html << countText(count.number, "time")
            << " <small>"_html << firstSentence(help) << "</small></summary>"_html;
        writeHelp(out, help);
        writeLines(out, result, count);
        out << "</details>\n"_html;
    }
    out << "</section>\n"_html;
}
