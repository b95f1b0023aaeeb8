#include <algorithm>
#include <cmath>
#include <vector>

#include "view/IGViewSection.h"

namespace {

// The drawing of a chart of lines, in units of its own; the page scales it.
constexpr double WIDTH = 600;
constexpr double HEIGHT = 150;
constexpr std::size_t COLOURS = 8;  // of the style sheet

double usable(double value) {
    return std::isfinite(value) ? value : 0;
}

// The value at the end of the scale, never 0.
double scaleOf(const Chart& chart) {
    double most = usable(chart.most);
    if (most <= 0) {
        for (const ChartRow& row : chart.rows) {
            most = std::max(most, usable(row.value));
        }
    }
    return most > 0 ? most : 1;
}

std::string valueText(const Chart& chart, double value) {
    const std::string space = chart.unit.empty() || chart.unit == "%" ? "" : " ";
    return decimalText(usable(value), std::abs(value) < 10 ? 2 : 1) + space + chart.unit;
}

// A table with a bar in each row.
void writeBars(HtmlWriter& out, const Result& result, const Chart& chart) {
    const double scale = scaleOf(chart);
    out << "<figure><table class=b><caption>"_html << chart.title << "</caption>\n"_html;
    for (const ChartRow& row : chart.rows) {
        const double share = std::clamp(usable(row.value) / scale * 100, 0.0, 100.0);
        out << "<tr><th scope=row>"_html;
        writeLink(out, result, row.place.item, row.place.line, row.label);
        out << "<td><svg viewBox=\"0 0 100 1\" preserveAspectRatio=none aria-hidden=true><path "
               "d=\"M0 0h"_html
            << decimalText(share, 1) << "v1H0\"/></svg><td>"_html << valueText(chart, row.value);
        if (!row.note.empty()) {
            out << " <small>"_html << row.note << "</small>"_html;
        }
        out << "</td></tr>\n"_html;
    }
    out << "</table></figure>\n"_html;
}

using Rows = std::vector<ChartRow>::const_iterator;

struct Line {
    Rows first;
    Rows last;
};

std::vector<Line> linesOf(const Chart& chart) {
    std::vector<Line> lines;
    for (auto row = chart.rows.begin(); row != chart.rows.end();) {
        const auto end = std::find_if(row, chart.rows.end(), [row](const ChartRow& next) {
            return next.label != row->label;
        });
        lines.push_back({row, end});
        row = end;
    }
    return lines;
}

void writePoints(HtmlWriter& out, const Line& line, double scale) {
    const auto steps = static_cast<double>(std::max<std::ptrdiff_t>(line.last - line.first - 1, 1));
    const bool is_single = line.last - line.first == 1;  // drawn as a line too
    for (auto row = line.first; row != line.last; ++row) {
        const double x = static_cast<double>(row - line.first) / steps * WIDTH;
        const double y = HEIGHT - std::clamp(usable(row->value) / scale, 0.0, 1.0) * HEIGHT;
        out << (row == line.first ? ""_html : " "_html) << decimalText(x, 1) << ","_html
            << decimalText(y, 1);
        if (is_single) {
            out << " "_html << decimalText(WIDTH, 0) << ","_html << decimalText(y, 1);
        }
    }
}

void writeLegend(HtmlWriter& out, const Result& result, const Chart& chart,
                 const std::vector<Line>& lines) {
    out << "<table class=k><tr><th scope=col>Line<th scope=col>Least<th scope=col>Most<th "
           "scope=col>Last</th></tr>\n"_html;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto [least, most] = std::minmax_element(
            lines[i].first, lines[i].last, [](const ChartRow& one, const ChartRow& other) {
                return usable(one.value) < usable(other.value);
            });
        const ChartRow& last = *(lines[i].last - 1);
        out << "<tr><th scope=row class=c"_html << i % COLOURS << ">"_html;
        writeLink(out, result, last.place.item, last.place.line, last.label);
        out << "<td>"_html << valueText(chart, least->value) << "<td>"_html
            << valueText(chart, most->value) << "<td>"_html << valueText(chart, last.value)
            << "</td></tr>\n"_html;
    }
    out << "</table>"_html;
}

void writeLines(HtmlWriter& out, const Result& result, const Chart& chart) {
    const std::vector<Line> lines = linesOf(chart);
    const double scale = scaleOf(chart);
    out << "<figure><figcaption>"_html << chart.title << "<small>up to "_html
        << valueText(chart, scale)
        << "</small></figcaption><svg class=p role=img viewBox=\"0 -2 "_html
        << decimalText(WIDTH, 0) << " "_html << decimalText(HEIGHT + 4, 0)
        << "\" preserveAspectRatio=none><title>"_html << chart.title
        << ": lines over time, with their values in the table below</title><path class=a "
           "d=\"M0 0H600M0 37.5H600M0 75H600M0 112.5H600M0 150H600\"/>"_html;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        out << "<polyline class=c"_html << i % COLOURS << " points=\""_html;
        writePoints(out, lines[i], scale);
        out << "\"/>"_html;
    }
    out << "</svg><p class=x><span>"_html << chart.rows.front().when << "</span><span>"_html
        << chart.rows.back().when << "</span>"_html;
    writeLegend(out, result, chart, lines);
    out << "</figure>\n"_html;
}

}  // namespace

void writeCharts(HtmlWriter& out, const Result& result) {
    const bool any = std::any_of(result.charts.begin(), result.charts.end(),
                                 [](const Chart& chart) { return !chart.rows.empty(); });
    if (!any) {
        return;
    }
    out << "<section id=charts><h2>Charts</h2><div class=g>\n"_html;
    for (const Chart& chart : result.charts) {
        if (chart.rows.empty()) {
            continue;
        }
        if (chart.kind == ChartKind::BARS) {
            writeBars(out, result, chart);
        } else {
            writeLines(out, result, chart);
        }
    }
    out << "</div></section>\n"_html;
}
