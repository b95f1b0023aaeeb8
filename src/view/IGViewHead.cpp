#include "view/IGViewHead.h"

extern const std::string_view PAGE_STYLE;
extern const std::string_view PAGE_STYLE_SHA256;
extern const std::string_view TABLE_STYLE;
extern const std::string_view TABLE_STYLE_SHA256;

namespace {

void writeHash(HtmlWriter& out, std::string_view sha256) {
    out << " 'sha256-"_html;
    out.embed(policyHash(sha256));
    out << "'"_html;
}

void writeStyle(HtmlWriter& out, std::string_view text) {
    out << "<style>"_html;
    out.embed(text);
    out << "</style>\n"_html;
}

}  // namespace

PageStyle tableStyle() {
    return {TABLE_STYLE, TABLE_STYLE_SHA256};
}

std::string headBeginning(std::string_view mark) {
    std::string text = "<!doctype html>\n<html lang=en";
    if (!mark.empty()) {
        (text += " data-result=") += mark;
    }
    return text += ">\n";
}

void writeHead(HtmlWriter& out, std::string_view title,
               std::initializer_list<std::string_view> scripts,
               std::initializer_list<PageStyle> styles, std::string_view mark) {
    out.embed(headBeginning(mark));
    out << "<head>\n<meta charset=utf-8>\n"
           "<meta http-equiv=Content-Security-Policy content=\"default-src 'none'; "_html;
    if (scripts.size() > 0) {
        out << "script-src"_html;
        for (const std::string_view script : scripts) {
            writeHash(out, script);
        }
        out << "; "_html;
    }
    out << "style-src"_html;
    writeHash(out, PAGE_STYLE_SHA256);
    for (const PageStyle& style : styles) {
        writeHash(out, style.sha256);
    }
    out << "; base-uri 'none'; form-action 'none'\">\n"
           "<meta name=viewport content=\"width=device-width,initial-scale=1\">\n"
           "<meta name=color-scheme content=\"light dark\">\n<title>"_html
        << title << " - quendil report</title>\n"_html;
    writeStyle(out, PAGE_STYLE);
    for (const PageStyle& style : styles) {
        writeStyle(out, style.text);
    }
    out << "</head>\n<body>\n"_html;
}

void writeWarnings(HtmlWriter& out, const std::vector<std::string>& warnings) {
    if (warnings.empty()) {
        return;
    }
    out << "<div class=n role=alert>"_html;
    for (const std::string& warning : warnings) {
        out << "<p>"_html << warning;
    }
    out << "</div>\n"_html;
}

void writeFoot(HtmlWriter& out) {
    out << "<footer><p>Made by quendil-report "_html << QUENDIL_RELEASE
        << ". This page loads nothing.</footer>\n</body>\n</html>\n"_html;
}
