#include "view/IGViewPage.h"

#include <string>

#include "view/IGViewSection.h"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string written(void (*write)(HtmlWriter&, const Result&), const Result& result) {
    std::string page;
    const Sink sink = [&page](std::string_view piece) {
        page += piece;
        return true;
    };
    HtmlWriter out(sink);
    write(out, result);
    EXPECT_TRUE(out.flush());
    return page;
}

Item itemOf(const std::string& name, std::uint64_t size = 0) {
    Item item;
    item.name = name;
    item.size = size;
    return item;
}

Result smallResult() {
    Result result;
    result.name = "host_1_261123162538";
    result.items = {itemOf(""), itemOf("kernel"), itemOf("kernel/dmesg.txt", 1536),
                    itemOf("quendil.log", 20)};
    result.items[0].kind = result.items[1].kind = ItemKind::DIRECTORY;
    result.run.log = 3;
    return result;
}

Finding findingOf(Verdict verdict, Weight weight, const std::string& title) {
    Finding finding;
    finding.verdict = verdict;
    finding.weight = weight;
    finding.title = title;
    return finding;
}

TEST(IGViewSection, TakesTheTimeOffTheNameOfTheResult) {
    Result result;
    for (const auto& [name, host] : {std::pair{"a_261123162538", "a"},
                                     {"a_b_261123162538", "a_b"},
                                     {"a_26112316253x", "a_26112316253x"},
                                     {"a-261123162538", "a-261123162538"},
                                     {"_261123162538", "_261123162538"},
                                     {"", ""}}) {
        result.name = name;
        EXPECT_EQ(hostOf(result), host);
    }
}

TEST(IGViewFinding, CountsWhatTheRulesSay) {
    Result result = smallResult();
    result.findings = {findingOf(Verdict::FOUND, Weight::CRITICAL, "a"),
                       findingOf(Verdict::FOUND, Weight::CRITICAL, "b"),
                       findingOf(Verdict::FOUND, Weight::WARNING, "c"),
                       findingOf(Verdict::NOT_JUDGED, Weight::WARNING, "d"),
                       findingOf(Verdict::CLEAR, Weight::WARNING, "e")};
    const std::string page = written(writeFindings, result);
    EXPECT_THAT(page, HasSubstr("<li class=w0><b>2</b> critical"
                                "<li class=w1><b>1</b> warning"
                                "<li class=w3><b>1</b> rule clear"
                                "<li class=w4><b>1</b> not judged"));
    EXPECT_THAT(page, Not(HasSubstr("No rule has found")));
}

TEST(IGViewFinding, CitesThePlacesAndSaysHowManyThereAre) {
    Result result = smallResult();
    Finding finding = findingOf(Verdict::FOUND, Weight::NOTICE, "A <title>");
    finding.text = "What & where";
    finding.remedy = "Do it.";
    finding.places = {{2, 34, "an <excerpt>"}, {1, 0, ""}, {NONE, 1, "nowhere"}};
    finding.found = 40;
    result.findings = {finding};
    const std::string page = written(writeFindings, result);
    EXPECT_THAT(page, HasSubstr("<article class=w2><h3><span>notice</span> A &lt;title&gt;</h3>"));
    EXPECT_THAT(page, HasSubstr("<li><a href=#i2L34>kernel/dmesg.txt:34</a> "
                                "<code>an &lt;excerpt&gt;</code>"));
    EXPECT_THAT(page, HasSubstr("<li>kernel<li>")) << "a directory does not open";
    EXPECT_THAT(page, HasSubstr("and 37 more"));
    EXPECT_THAT(page, HasSubstr("<b>Remedy</b> Do it."));
}

TEST(IGViewFinding, LinksTheItemsOfARemedyAndShowsItsCommands) {
    Result result = smallResult();
    Finding finding = findingOf(Verdict::FOUND, Weight::NOTICE, "A title");
    finding.remedy = "Read kernel/dmesg.txt (kernel/dmesg.txt), not kernel: `ls <kernel/dmesg.txt`";
    result.findings = {finding};
    EXPECT_THAT(written(writeFindings, result),
                HasSubstr("Read <a href=#i2>kernel/dmesg.txt</a> (<a "
                          "href=#i2>kernel/dmesg.txt</a>), not kernel: "
                          "<code>ls &lt;kernel/dmesg.txt</code>"));
}

TEST(IGViewFinding, FoldsAllButTheFirstPlaces) {
    Result result = smallResult();
    Finding finding = findingOf(Verdict::FOUND, Weight::NOTICE, "A title");
    for (std::uint64_t line = 1; line <= 5; ++line) {
        finding.places.push_back({2, line, ""});
    }
    finding.found = 9;
    result.findings = {finding};
    const std::string page = written(writeFindings, result);
    EXPECT_THAT(page, HasSubstr("dmesg.txt:3</a></ul><details><summary>6 more</summary><ul>"
                                "<li><a href=#i2L4>"));
    EXPECT_THAT(page, HasSubstr("<li>and 4 more</ul></details>"));
    result.findings[0].places.resize(3);
    result.findings[0].found = 3;
    EXPECT_THAT(written(writeFindings, result), Not(HasSubstr("more")));
}

TEST(IGViewFinding, DoesNotCallGoodWhatWasNotJudged) {
    Result result = smallResult();
    result.findings = {findingOf(Verdict::NOT_JUDGED, Weight::CRITICAL, "Title")};
    result.findings[0].text = "The item is missing.";
    std::string page = written(writeFindings, result);
    EXPECT_THAT(page, HasSubstr("<p>Nothing was judged."));
    EXPECT_THAT(page, HasSubstr("Not judged: 1 rule</summary><ul class=l><li>Title "
                                "<small>The item is missing.</small>"));
    result.findings.push_back(findingOf(Verdict::CLEAR, Weight::CRITICAL, "Other"));
    page = written(writeFindings, result);
    EXPECT_THAT(page, HasSubstr("<p>No rule has found anything."));
    EXPECT_THAT(page,
                HasSubstr("Looked at, nothing found: 1 rule</summary><ul class=l><li>Other</ul>"));
}

TEST(IGViewSummary, GroupsTheFactsInTheirOrder) {
    Result result = smallResult();
    result.facts = {{"Machine", "Host", "<h>", {2, 3, ""}},
                    {"Storage", "Disks", "vda", {}},
                    {"Machine", "Kernel", "6.1", {}}};
    EXPECT_THAT(written(writeSummary, result),
                HasSubstr("<div><h3>Machine</h3><dl><dt>Host<dd><a href=#i2L3>&lt;h&gt;</a>"
                          "<dt>Kernel<dd>6.1</dl></div>\n"
                          "<div><h3>Storage</h3><dl><dt>Disks<dd>vda</dl></div>"));
}

TEST(IGViewSummary, SaysHowTheRunEnded) {
    Result result = smallResult();
    result.run.started = "2026/11/23 16:25:38";
    result.run.arguments = "-g linux";
    result.run.seconds = 1234;
    EXPECT_THAT(written(writeSummary, result), HasSubstr("<dt>Ended<dd>without an error"));
    EXPECT_THAT(written(writeSummary, result),
                HasSubstr("<dt>Took<dd>1,234 s<dt>Command<dd>quendil -g linux"));
    result.run.tools.resize(2);
    result.run.tools[0].ended = true;
    result.run.tools[0].exit_code = 1;
    result.run.tools[0].timed_out = true;
    result.run.counts = {{"ZEPA126-W", 7}, {"ZEPA113-E", 2}};
    EXPECT_THAT(written(writeSummary, result),
                HasSubstr("<dt>Ended<dd>while a tool ran, with 2 errors"));
    EXPECT_THAT(written(writeSummary, result),
                HasSubstr("2 tools, 1 time-out, 1 with an exit code other than 0"));
    EXPECT_THAT(written(writeSummary, result), HasSubstr("<dt>Warnings<dd>7"));
    result.run = {};
    EXPECT_THAT(written(writeSummary, result), HasSubstr("unknown: there is no run log"));
}

TEST(IGViewSummary, SaysWhatTheResultIs) {
    Result result = smallResult();
    result.bytes = 2048;
    result.content_bytes = 10240;
    EXPECT_THAT(written(writeSummary, result),
                HasSubstr("<dt>Result<dd>.tar.gz of 2 KiB<dt>Content<dd>4 members, 10 KiB"));
    result.form = ResultForm::TAR;
    result.omitted = 3000;
    EXPECT_THAT(written(writeSummary, result),
                HasSubstr(".tar of 2 KiB, not compressed<dt>Content<dd>3,004 members, 10 KiB; "
                          "3,000 of them are left out"));
    result.form = ResultForm::DIRECTORY;
    EXPECT_THAT(written(writeSummary, result), HasSubstr("<dd>directory, not packed"));
}

TEST(IGViewChart, DrawsBarsByTheScale) {
    Result result = smallResult();
    Chart chart;
    chart.title = "Use & more";
    chart.unit = "%";
    chart.most = 200;
    chart.rows = {{"/", "", 50, "28G of 252G", {2, 4, ""}}, {"/x", "", 900, "", {}}};
    result.charts = {chart};
    const std::string page = written(writeCharts, result);
    EXPECT_THAT(page, HasSubstr("<caption>Use &amp; more</caption>"));
    EXPECT_THAT(page, HasSubstr("<a href=#i2L4>/</a>"));
    EXPECT_THAT(page, HasSubstr("d=\"M0 0h25v1H0\"/></svg><td>50% <small>28G of 252G</small>"));
    EXPECT_THAT(page, HasSubstr("d=\"M0 0h100v1H0\"/></svg><td>900%</td>"));
}

TEST(IGViewChart, DrawsALineForEachLabel) {
    Result result = smallResult();
    Chart chart;
    chart.title = "Load";
    chart.kind = ChartKind::LINES;
    chart.unit = "s";
    chart.rows = {{"a", "10:00", 0, "", {}},
                  {"a", "10:10", 4, "", {}},
                  {"a", "10:20", 2, "", {}},
                  {"b", "10:00", 1, "", {}},
                  {"b", "10:20", 1, "", {}}};
    result.charts = {chart};
    const std::string page = written(writeCharts, result);
    EXPECT_THAT(page, HasSubstr("<polyline class=c0 points=\"0,150 300,0 600,75\"/>"));
    EXPECT_THAT(page, HasSubstr("<polyline class=c1 points=\"0,112.5 600,112.5\"/>"));
    EXPECT_THAT(page, HasSubstr("<span>10:00</span><span>10:20</span>"));
    EXPECT_THAT(page, HasSubstr("<th scope=row class=c0>a<td>0 s<td>4 s<td>2 s</td>"));
}

TEST(IGViewChart, DrawsNumbersThatAreNone) {
    Result result = smallResult();
    Chart chart;
    chart.rows = {{"a", "", std::numeric_limits<double>::quiet_NaN(), "", {}},
                  {"b", "", -std::numeric_limits<double>::infinity(), "", {}},
                  {"c", "", -5, "", {}}};
    for (const ChartKind kind : {ChartKind::BARS, ChartKind::LINES}) {
        chart.kind = kind;
        result.charts = {chart};
        const std::string page = written(writeCharts, result);
        EXPECT_THAT(page, Not(HasSubstr("nan")));
        EXPECT_THAT(page, Not(HasSubstr("inf")));
    }
    result.charts = {Chart{}};
    EXPECT_EQ(written(writeCharts, result), "") << "no rows, no chart";
}

ToolRun toolOf(const std::string& command, std::int64_t start, std::int64_t end) {
    ToolRun tool;
    tool.command = command;
    tool.start = start;
    tool.end = end;
    tool.ended = true;
    return tool;
}

TEST(IGViewTimeLine, GroupsOnlyToolsOfWhichThereIsNothingToSay) {
    RunLog run;
    run.tools = {toolOf("a", 0, 0), toolOf("b", 0, 0), toolOf("c", 0, 1), toolOf("d", 1, 1)};
    for (const auto& change : std::vector<void (*)(ToolRun&)>{
             [](ToolRun& tool) { tool.ended = false; }, [](ToolRun& tool) { tool.exit_code = 1; },
             [](ToolRun& tool) { tool.timed_out = true; },
             [](ToolRun& tool) { tool.wait_status = 9; },
             [](ToolRun& tool) { tool.messages = {0}; }}) {
        run.tools.push_back(toolOf("e", 1, 1));
        change(run.tools.back());
    }
    const std::vector<ToolRow> rows = toolRows(run);
    ASSERT_EQ(rows.size(), 8U);
    EXPECT_EQ(rows[0].last, 2U);
    EXPECT_TRUE(rows[0].quick);
    for (const std::size_t row : {1U, 3U, 4U, 5U, 6U, 7U}) {
        EXPECT_FALSE(rows[row].quick) << row;
        EXPECT_EQ(rows[row].last, rows[row].first + 1) << row;
    }
    EXPECT_TRUE(rows[2].quick);
}

TEST(IGViewTimeLine, ShowsStartDurationExitAndMessages) {
    Result result = smallResult();
    ToolRun tool = toolOf("/opt/norvale/quendil/tool/run <x>", 3, 13);
    tool.item = 2;
    tool.timed_out = true;
    tool.timeout = 10;
    tool.exit_code = 15;
    tool.messages = {0};
    result.run.seconds = 20;
    result.run.tools = {tool};
    result.run.messages = {{"ZEPA126-W", "A time-out & more", 77}};
    const std::string page = written(writeTimeLine, result);
    EXPECT_THAT(page, HasSubstr("<tr class=e><td>3 s<td>10 s<td>15<td>"));
    EXPECT_THAT(page, HasSubstr("viewBox=\"0 0 20 1\""));
    EXPECT_THAT(page, HasSubstr("d=\"M3 0h10v1h-10z\""));
    EXPECT_THAT(page, HasSubstr("<a href=#i2>run &lt;x&gt;</a> <b>time-out after 10 s</b>"));
    EXPECT_THAT(page, HasSubstr("<a href=#i3L77>ZEPA126-W</a> A time-out &amp; more"));
}

TEST(IGViewTimeLine, SaysThatAToolHasNotEnded) {
    Result result = smallResult();
    result.run.tools = {toolOf("run", 3, 13), toolOf("other", 13, 14)};
    result.run.tools[0].ended = false;
    const std::string page = written(writeTimeLine, result);
    EXPECT_THAT(page, HasSubstr("<tr class=e><td>3 s<td>10 s<td>-<td>"));
    EXPECT_THAT(page, HasSubstr("run <b>has not ended</b></td>"));
    EXPECT_THAT(page, HasSubstr("other</td>"));
}

TEST(IGViewTimeLine, IsNotThereWithoutTools) {
    EXPECT_EQ(written(writeTimeLine, smallResult()), "");
}

TEST(IGViewMessage, ListsTheLinesOfAMessageWithItsEntryInTheManual) {
    Result result = smallResult();
    result.run.counts = {{"ZEPA129-W", 3}};
    result.run.messages = {{"ZEPA129-W", "A system information(<x>) is not found.", 41},
                           {"ZEPA130-W", "Another", 42}};
    const std::string page = written(writeMessages, result);
    EXPECT_THAT(page, HasSubstr("<summary><b>ZEPA129-W</b> 3 times <small>"));
    EXPECT_THAT(page, HasSubstr("<p>Action: "));
    EXPECT_THAT(page, HasSubstr("<li><a href=#i3L41>41</a> A system information(&lt;x&gt;) is not "
                                "found.<li>and 2 more in the run log</ul>"));
    EXPECT_THAT(page, Not(HasSubstr("Another")));
}

TEST(IGViewMessage, SaysThatThereIsNone) {
    EXPECT_THAT(written(writeMessages, smallResult()), HasSubstr("neither a warning nor an error"));
}

TEST(IGViewItem, ListsItemsByTargetWithSizeAndDescription) {
    Result result = smallResult();
    result.records = {{"Messages of <b>", "", ""}};
    result.items[2].record = 0;
    const std::string page = written(writeItems, result);
    EXPECT_THAT(page, HasSubstr("<h3>/</h3> <small>1 item, 20 B</small></summary><ul>\n"
                                "<li id=i3>quendil.log\n(20 B)\n\n</ul>"));
    EXPECT_THAT(page, HasSubstr("<h3>kernel</h3> <small>1 item, 1.5 KiB</small></summary><ul>\n"
                                "<li id=i2>dmesg.txt\n(1.5 KiB)\nMessages of &lt;b&gt;\n</ul>"));
    EXPECT_THAT(page, Not(HasSubstr("directory"))) << "it is in the names of its items";
}

TEST(IGViewItem, NamesWhatDoesNotOpen) {
    Result result;
    result.items = {itemOf("a/empty"), itemOf("a/link"), itemOf("a/fifo"), itemOf("a/cut", 7)};
    result.items[0].kind = ItemKind::DIRECTORY;
    result.items[1].kind = ItemKind::LINK;
    result.items[1].link_target = "/etc/\n";
    result.items[2].kind = ItemKind::OTHER;
    result.items[3].cut = true;
    const std::string page = written(writeItems, result);
    EXPECT_THAT(page, HasSubstr(">empty\n(directory)\n\n"));
    EXPECT_THAT(page, HasSubstr(">link\n(link)\nto /etc/\\x0a\n"));
    EXPECT_THAT(page, HasSubstr(">fifo\n(special file)\n"));
    EXPECT_THAT(page, HasSubstr(">cut\n(7 B, cut)\n"));
}

// The page with chunks that are no contents.
bool writeWhole(const Result& result, std::string& page, std::size_t most = SIZE_MAX) {
    std::vector<ItemContent> contents(result.items.size());
    for (std::size_t i = 0; i < contents.size(); ++i) {
        contents[i].head = result.items[i].size;
    }
    const auto chunks = [](const Sink& chunk) { return chunk("one") && chunk("two"); };
    return writePage(result, contents, chunks, [&page, most](std::string_view piece) {
        page += piece;
        return page.size() <= most;
    });
}

TEST(IGViewPage, HasEverySectionInItsOrder) {
    std::string page;
    Result result = smallResult();
    result.notices = {"The archive is <cut>."};
    ASSERT_TRUE(writeWhole(result, page));
    std::size_t at = 0;
    for (const char* part :
         {"<!doctype html>", "Content-Security-Policy", "<title>host_1 - quendil report</title>",
          "<style>", "<h1>host_1</h1>", "role=alert", "The archive is &lt;cut&gt;.", "<noscript>",
          "id=findings", "id=summary", "id=messages", "id=items", "<dialog", "id=c0", "id=c1",
          "id=d>", "id=p>", "<script>", "</html>"}) {
        const std::size_t found = page.find(part, at);
        ASSERT_NE(found, std::string::npos) << part;
        at = found;
    }
}

TEST(IGViewPage, AllowsItsOwnScriptsAndStyleOnly) {
    std::string page;
    ASSERT_TRUE(writeWhole(smallResult(), page));
    EXPECT_THAT(page,
                testing::ContainsRegex(
                    "default-src 'none'; script-src 'sha256-[A-Za-z0-9+/]{43}=' "
                    "'sha256-[A-Za-z0-9+/]{43}='; "
                    "style-src 'sha256-[A-Za-z0-9+/]{43}='; base-uri 'none'; form-action 'none'"));
}

TEST(IGViewPage, EndsIfItCannotBeWritten) {
    std::string whole;
    ASSERT_TRUE(writeWhole(smallResult(), whole));
    for (const std::size_t most : {std::size_t{0}, whole.size() / 2, whole.size() - 1}) {
        std::string page;
        EXPECT_FALSE(writeWhole(smallResult(), page, most)) << most;
    }
}

TEST(IGViewPage, EndsIfTheContentsEnd) {
    const Result result = smallResult();
    std::vector<ItemContent> contents(result.items.size());
    EXPECT_FALSE(writePage(
        result, contents, [](const Sink&) { return false; },
        [](std::string_view) { return true; }));
}

}  // namespace
