#include "view/IGViewJudge.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "../../support/judge_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// A rule that reads a.txt, with more keys.
std::string rule(const std::string& more, const std::string& name = "r",
                 const std::string& weight = "warning") {
    return R"j({"name": ")j" + name + R"j(", "weight": ")j" + weight +
           R"j(", "title": "T", "remedy": "R", )j" + more + "}";
}
std::string rules(const std::string& list) {
    return R"j({"version": 1, "rules": [)j" + list + "]}";
}
const std::string WORD = R"j("items": "a.txt", "find": "bad (?P<who>\\w+)")j";

Finding found(const std::string& more, const std::vector<TestItem>& items,
              std::int64_t start = START) {
    return judgedBy(rules(rule(more)), items, start).findings.at(0);
}

// --- what was found, and what was not ---

TEST(IGViewJudge, FindsWithPlaceTextAndRemedy) {
    const Result result = judgedBy(
        rules(rule(R"j("text": "{count thing|things}: {each who}, first {who} in {file}", )j" +
                   WORD)),
        {{"b.txt", "bad no\n"}, {"a.txt", "good\nbad one\nbad two\nbad one"}});
    const Finding& finding = result.findings.at(0);
    EXPECT_EQ(finding.verdict, Verdict::FOUND);
    EXPECT_EQ(finding.rule, "r");
    EXPECT_EQ(finding.title, "T");
    EXPECT_EQ(finding.remedy, "R");
    EXPECT_EQ(finding.weight, Weight::WARNING);
    EXPECT_EQ(finding.text, "3 things: one, two, first one in a.txt");
    EXPECT_EQ(finding.found, 3U);
    EXPECT_THAT(placesOf(finding, result),
                ElementsAre("a.txt:2 bad one", "a.txt:3 bad two", "a.txt:4 bad one"));
}

TEST(IGViewJudge, IsClearOnlyIfAnItemAnswers) {
    const std::string wanted = R"j("text": "t", )j" + WORD;
    EXPECT_EQ(found(wanted, {{"a.txt", "good\n"}}).verdict, Verdict::CLEAR);
    const Finding missing = found(wanted, {{"b.txt", "good\n"}});
    EXPECT_EQ(missing.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(missing.text, "a.txt is not in the archive");
    const Finding empty = found(wanted, {{"a.txt", ""}});
    EXPECT_EQ(empty.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(empty.text, "a.txt is empty");
    const Finding absent = found(wanted, {{"a.txt", "smartctl: not installed on this machine\n"}});
    EXPECT_EQ(absent.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(absent.text, "a.txt: smartctl: not installed on this machine");
    const Finding lacking = found(R"j("needs": "^=", )j" + wanted, {{"a.txt", "good\n"}});
    EXPECT_EQ(lacking.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(lacking.text, "a.txt has no line that could tell");
    const Finding stopped =
        found(wanted, {{"a.txt", "good\ndf: stopped here by the time limit\n"}});
    EXPECT_EQ(stopped.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(stopped.text, "a.txt is not complete: its tool was stopped, or its output was cut");
    const Finding cut = found(wanted, {{"a.txt", "good\n", true}});
    EXPECT_EQ(cut.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(cut.text, "a.txt is cut");
}

TEST(IGViewJudge, WhatIsFoundInHalfAnItemCounts) {
    const std::string wanted = R"j("text": "t", )j" + WORD;
    EXPECT_EQ(found(wanted, {{"a.txt", "bad x\n", true}}).verdict, Verdict::FOUND);
    EXPECT_EQ(found(wanted, {{"a.txt", "bad x\ndf: stopped here by the time limit"}}).verdict,
              Verdict::FOUND);
}

TEST(IGViewJudge, OneItemOfSeveralIsEnough) {
    const std::string wanted = R"j("text": "t", "find": "bad", "items": ["a", "b", "c", "d"])j";
    EXPECT_EQ(found(wanted, {{"a", ""}, {"c", "good"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(wanted, {}).text, "a, b, c and others are not in the archive");
    EXPECT_EQ(found(R"j("text": "t", "find": "bad", "items": ["a", "b"])j", {}).text,
              "a and b are not in the archive");
}

// What was cut off may be what the rule looks for, unless another item tells the same.
TEST(IGViewJudge, IsNotClearIfOneOfSeveralItemsWasCutOff) {
    const std::string wanted = R"j("text": "t", "find": "bad", "items": ["a", "b"])j";
    const TestItem whole{"a", "good"};
    TestItem of_stopped_tool{"b", "good"};
    of_stopped_tool.stopped = true;
    for (const auto& [other, why] :
         {std::pair{TestItem{"b", "good", true}, "b is cut"},
          {of_stopped_tool, "b is not complete: its tool was stopped"},
          {TestItem{"b", "good\nopenssl: stopped here by the time limit"},
           "b is not complete: its tool was stopped, or its output was cut"}}) {
        const Finding finding = found(wanted, {whole, other});
        EXPECT_EQ(finding.verdict, Verdict::NOT_JUDGED) << why;
        EXPECT_EQ(finding.text, why);
        EXPECT_EQ(found(R"j("same": true, )j" + wanted, {whole, other}).verdict, Verdict::CLEAR);
        EXPECT_EQ(found(R"j("same": true, )j" + wanted, {other}).verdict, Verdict::NOT_JUDGED);
    }
}

TEST(IGViewJudge, OfItemsThatTellTheSameOnlyTheFirstCounts) {
    const std::string wanted =
        R"j("text": "{count}", "find": "bad", "items": ["dmesg", "journal"])j";
    const std::vector<TestItem> items{{"journal", "bad 1\nbad 2\nbad 3"},
                                      {"dmesg", "bad 1\nbad 2"}};
    EXPECT_EQ(found(R"j("same": true, )j" + wanted, items).text, "2");
    EXPECT_EQ(found(wanted, items).text, "5");
    EXPECT_EQ(found(R"j("same": true, )j" + wanted, {items[0], {"dmesg", "good"}}).text, "3");
}

TEST(IGViewJudge, PlacesAreInTheOrderOfTheArchive) {
    const Result result =
        judgedBy(rules(rule(R"j("text": "t", "find": "bad", "items": ["b", "a"])j")),
                 {{"a", "bad 1"}, {"b", "bad 2"}});
    EXPECT_THAT(placesOf(result.findings[0], result), ElementsAre("a:1 bad 1", "b:1 bad 2"));
}

TEST(IGViewJudge, NeedsAsManyLinesAsTheRuleSays) {
    const std::string wanted = R"j("text": "{count}", "at_least": 3, )j" + WORD;
    EXPECT_EQ(found(wanted, {{"a.txt", "bad a\nbad b"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(wanted, {{"a.txt", "bad a\nbad b\nbad c"}}).verdict, Verdict::FOUND);
}

TEST(IGViewJudge, TheHeaviestFindingIsFirstThenWhatIsNotJudged) {
    const auto one = [](const char* name, const char* weight, const char* item) {
        return rule(R"j("text": "t", "find": "bad", "items": ")j" + std::string(item) + '"', name,
                    weight);
    };
    const Result result =
        judgedBy(rules(one("clear", "critical", "good") + "," + one("absent", "critical", "none") +
                       "," + one("light", "notice", "bad") + "," + one("heavy", "critical", "bad") +
                       "," + one("middle", "warning", "bad")),
                 {{"good", "good"}, {"bad", "bad"}});
    std::vector<std::string> names;
    for (const Finding& finding : result.findings) {
        names.push_back(finding.rule);
    }
    EXPECT_THAT(names, ElementsAre("heavy", "middle", "light", "absent", "clear"));
}

// --- numbers ---

const std::string USE =
    R"j("items": "a.txt", "find": "^(?P<name>\\S+) (?P<value>\\S+)$", "text": "{name} {value}")j";

TEST(IGViewJudge, ComparesNumbers) {
    EXPECT_EQ(found(R"j("above": 90, )j" + USE, {{"a.txt", "x 90%\n"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(R"j("above": 90, )j" + USE, {{"a.txt", "x 91%\n"}}).text, "x 91%");
    EXPECT_EQ(found(R"j("below": 5, )j" + USE, {{"a.txt", "x 5\n"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(R"j("below": 5, )j" + USE, {{"a.txt", "x 4.5\n"}}).text, "x 4.5");
    EXPECT_EQ(found(R"j("above": 1048576, )j" + USE, {{"a.txt", "x 1.5M\n"}}).text, "x 1.5M");
    EXPECT_EQ(found(R"j("above": 0, )j" + USE, {{"a.txt", "x many\n"}}).verdict, Verdict::CLEAR);
}

TEST(IGViewJudge, BothLimitsTogetherAreARange) {
    const std::string range = R"j("above": 80, "below": 95, )j" + USE;
    EXPECT_EQ(found(range, {{"a.txt", "x 96\n"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(range, {{"a.txt", "x 79\n"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(range, {{"a.txt", "x 90\n"}}).verdict, Verdict::FOUND);
}

TEST(IGViewJudge, TheTextHasTheWorstNumber) {
    std::string many;
    for (int i = 0; i < 50; ++i) {
        many += "n" + std::to_string(i) + " " + std::to_string(100 + (i == 37 ? 500 : i)) + "\n";
    }
    const Finding highest = found(R"j("above": 90, )j" + USE, {{"a.txt", many}});
    EXPECT_EQ(highest.text, "n37 600");
    EXPECT_EQ(highest.found, 50U);
    EXPECT_THAT(highest.places, SizeIs(20));
    EXPECT_EQ(found(R"j("below": 900, )j" + USE, {{"a.txt", many}}).text, "n0 100");
}

TEST(IGViewJudge, ComparesWithAnotherNumberOfTheLine) {
    const std::string share = R"j("items": "a.txt", "find": "(?P<value>\\d+) of (?P<of>\\d+)",
        "text": "{value} %", "above": 50)j";
    EXPECT_EQ(found(share, {{"a.txt", "60 of 200"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(share, {{"a.txt", "150 of 200"}}).text, "75 %");
    EXPECT_EQ(found(share, {{"a.txt", "5 of 0"}}).verdict, Verdict::CLEAR);
}

const std::string LOAD = R"j("items": "load", "find": "load (?P<value>\\S+)", "text": "{value} %",
    "above": 200, "of": {"items": "cpu", "find": "CPUs: (?P<value>\\d+)"})j";

TEST(IGViewJudge, ComparesWithANumberOfAnotherItem) {
    const std::vector<TestItem> busy{{"load", "load 10.5\n"}, {"cpu", "CPUs: 2\nCPUs: 64"}};
    EXPECT_EQ(found(LOAD, busy).text, "525 %");
    EXPECT_EQ(found(LOAD, {busy[1], busy[0]}).text, "525 %");
    EXPECT_EQ(found(LOAD, {{"load", "load 1.5\n"}, busy[1]}).verdict, Verdict::CLEAR);
}

TEST(IGViewJudge, IsNotJudgedWithoutTheOtherNumber) {
    const Finding finding = found(LOAD, {{"load", "load 10.5\n"}});
    EXPECT_EQ(finding.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(finding.text, "cpu is not in the archive");
    EXPECT_EQ(
        found(LOAD, {{"load", "load 9"}, {"cpu", "lscpu: not installed on this machine"}}).text,
        "cpu: lscpu: not installed on this machine");
    for (const char* number : {"CPUs: 0", "CPUs: none"}) {
        const Finding none = found(LOAD, {{"load", "load 9"}, {"cpu", number}});
        EXPECT_EQ(none.verdict, Verdict::NOT_JUDGED) << number;
        EXPECT_EQ(none.text, "cpu has no number above 0 to compare with");
    }
}

const std::string EXPIRED = R"j("items": "a.txt", "find": "notAfter=(?P<date>(?P<value>.*)) GMT",
    "date": "%b %e %H:%M:%S %Y", "below": 30, "text": "{value} days, on {date}")j";

TEST(IGViewJudge, ComparesDatesWithTheStartOfTheRun) {
    EXPECT_EQ(found(EXPIRED, {{"a.txt", "notAfter=Dec  3 16:25:38 2026 GMT"}}).text,
              "10 days, on Dec  3 16:25:38 2026");
    EXPECT_EQ(found(EXPIRED, {{"a.txt",
                               "notAfter=Nov 22 16:25:38 2026 GMT\n"
                               "notAfter=Nov 20 16:25:38 2026 GMT"}})
                  .text,
              "-3 days, on Nov 20 16:25:38 2026");
    EXPECT_EQ(found(EXPIRED, {{"a.txt", "notAfter=Dec 25 00:00:00 2026 GMT"}}).verdict,
              Verdict::CLEAR);
    EXPECT_EQ(found(EXPIRED, {{"a.txt", "notAfter=one day GMT"}}).verdict, Verdict::CLEAR);
}

TEST(IGViewJudge, IsNotJudgedWithoutTheStartOfTheRun) {
    const Finding finding = found(EXPIRED, {{"a.txt", "notAfter=Nov 20 16:25:38 2026 GMT"}}, 0);
    EXPECT_EQ(finding.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(finding.text, "the run log does not say when the run began");
}

TEST(IGViewJudge, ComparesBits) {
    const std::string bits = R"j("bits": 48, )j" + USE;
    EXPECT_EQ(found(bits, {{"a.txt", "x 4111\n"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(bits, {{"a.txt", "x 4128\n"}}).text, "x 4128");
    EXPECT_EQ(found(bits, {{"a.txt", "x -16\n"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(bits, {{"a.txt", "x 99999999999999999999\n"}}).verdict, Verdict::CLEAR);
}

TEST(IGViewJudge, NamesTheBitsThatAreSet) {
    const std::string named =
        R"j("items": "a.txt", "find": "x (?P<value>\\d+)", "text": "{value}: {bits}",
            "bits": {"32": "bad page", "16": "check", "128": "oops"})j";
    EXPECT_EQ(found(named, {{"a.txt", "x 4111\n"}}).verdict, Verdict::CLEAR);
    EXPECT_EQ(found(named, {{"a.txt", "x 4144\n"}}).text, "4144: check, bad page");
}

TEST(IGViewJudge, ReadsADateByTheFirstFormatThatFits) {
    const std::string dates = R"j("items": "a.txt", "find": "(?P<value>\\S+)", "below": 30,
        "date": ["%m/%d/%y", "%m/%d/%Y"], "text": "{value}")j";
    EXPECT_EQ(found(dates, {{"a.txt", "11/20/26"}}).text, "-3.7");
    EXPECT_EQ(found(dates, {{"a.txt", "11/20/2026"}}).text, "-3.7");
    EXPECT_EQ(found(dates, {{"a.txt", "11.20.2026"}}).verdict, Verdict::CLEAR);
}

TEST(IGViewJudge, TellsTheOtherNumberOfAPercentage) {
    const std::string of =
        R"j("items": "a.txt", "find": "x (?P<value>\\d+)", "above": 1, "text": "{value} % of {of}",
            "of": {"items": "b.txt", "find": "y (?P<value>\\d+)"})j";
    EXPECT_EQ(found(of, {{"a.txt", "x 5\n"}, {"b.txt", "y 20\n"}}).text, "25 % of 20");
}

// --- a text for each expression ---

const std::string TEXTS =
    R"j("items": "a.txt", "find": ["bad (?P<who>\\w+)", "(?P<who>\\w+) worse"],
    "text": ["{count thing is|things are} bad: {each who}.", "{count} worse, {who} first."])j";

TEST(IGViewJudge, HasATextForEachExpressionThatFoundSomething) {
    EXPECT_EQ(found(TEXTS, {{"a.txt", "a worse\nbad b\nbad c\nd worse\n"}}).text,
              "2 things are bad: b, c. 2 worse, a first.");
    EXPECT_EQ(found(TEXTS, {{"a.txt", "bad b\n"}}).text, "1 thing is bad: b.");
    EXPECT_EQ(found(TEXTS, {{"a.txt", "b worse\n"}}).text, "1 worse, b first.");
}

TEST(IGViewJudge, CountsForEachTextMoreThanItKeeps) {
    std::string text;
    for (int i = 0; i < 30; ++i) {
        text += "bad a\nb worse\n";
    }
    const Finding finding = found(TEXTS, {{"a.txt", text}});
    EXPECT_EQ(finding.text, "30 things are bad: a. 30 worse, b first.");
    EXPECT_EQ(finding.found, 60U);
    EXPECT_THAT(finding.places, SizeIs(20));
}

TEST(IGViewJudge, TellsTheWorstNumberOfEachExpression) {
    const std::string numbers = R"j("items": "a.txt", "above": 10,
        "find": ["in (?P<value>\\d+)", "out (?P<value>\\d+)"], "text": ["in {value}", "out {value}"])j";
    EXPECT_EQ(found(numbers, {{"a.txt", "in 11\nout 90\nin 50\nout 12\nin 9\n"}}).text,
              "in 50 out 90");
}

// --- what is missing ---

const std::string PEER = R"j("items": ["a.txt", "b.txt"], "find": "^\\*", "needs": "^==",
    "absent": true, "text": "no peer")j";

TEST(IGViewJudge, FindsThatNoLineMatches) {
    const Result result = judgedBy(rules(rule(PEER)), {{"a.txt", "==\n+x\n"}});
    const Finding& finding = result.findings.at(0);
    EXPECT_EQ(finding.verdict, Verdict::FOUND);
    EXPECT_EQ(finding.text, "no peer");
    EXPECT_EQ(finding.found, 1U);
    EXPECT_THAT(placesOf(finding, result), ElementsAre("a.txt:0 "));
    EXPECT_EQ(found(PEER, {{"a.txt", "==\n*x\n"}}).verdict, Verdict::CLEAR);
}

TEST(IGViewJudge, DoesNotSayThatALineIsMissingInAnItemThatIsNotJudged) {
    EXPECT_EQ(found(PEER, {}).verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(found(PEER, {{"a.txt", "506 Cannot talk to daemon\n"}}).verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(found(PEER, {{"a.txt", "==\n", true}}).verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(found(PEER, {{"a.txt", "==\nchronyc: stopped here by the time limit"}}).verdict,
              Verdict::NOT_JUDGED);
}

// --- bounds ---

TEST(IGViewJudge, KeepsFewPlacesAndCountsAll) {
    std::string many;
    for (int i = 0; i < 100000; ++i) {
        many += "bad x\n";
    }
    const Finding finding = found(R"j("text": "{count}", )j" + WORD, {{"a.txt", many}});
    EXPECT_EQ(finding.text, "100000");
    EXPECT_EQ(finding.found, 100000U);
    EXPECT_THAT(finding.places, SizeIs(20));
}

TEST(IGViewJudge, KeepsFewMatchesThatMustWait) {
    std::string many;
    for (int i = 0; i < 1000; ++i) {
        many += "load 10\n";
    }
    const Finding finding = found(LOAD, {{"load", many}, {"cpu", "CPUs: 2"}});
    EXPECT_EQ(finding.verdict, Verdict::FOUND);
    EXPECT_EQ(finding.found, 200U);
    EXPECT_THAT(finding.places, SizeIs(20));
}

// The first matches may be the harmless ones: of old crashes, or of certificates that are valid.
TEST(IGViewJudge, KeepsTheWorstOfTheMatchesThatMustWait) {
    std::string valid;
    std::string low;
    for (int i = 0; i < 300; ++i) {
        valid += "notAfter=Dec  3 16:25:38 2036 GMT\n";
        low += "load 1\n";
    }
    const Finding expired =
        found(EXPIRED, {{"a.txt", valid + "notAfter=Nov 20 16:25:38 2026 GMT"}});
    EXPECT_EQ(expired.text, "-3 days, on Nov 20 16:25:38 2026");
    EXPECT_EQ(found(EXPIRED, {{"a.txt", valid}}).verdict, Verdict::CLEAR);
    const TestItem cpu{"cpu", "CPUs: 2"};
    const Finding high = found(LOAD, {{"load", low + "load 10\nload 20\n" + low}, cpu});
    EXPECT_EQ(high.text, "1000 %");
    EXPECT_EQ(high.found, 2U);
    EXPECT_EQ(high.places.at(0).line, 301U);
    EXPECT_EQ(found(LOAD, {{"load", low}, cpu}).verdict, Verdict::CLEAR);
}

TEST(IGViewJudge, IsNotClearOfARangeIfMatchesWereLeftOut) {
    const std::string range = R"j("above": 0, )j" + EXPIRED;
    std::string many;
    for (int i = 0; i < 200; ++i) {
        many += "notAfter=Dec  3 16:25:38 2036 GMT\n";
    }
    EXPECT_EQ(found(range, {{"a.txt", many}}).verdict, Verdict::CLEAR);
    const Finding finding = found(range, {{"a.txt", many + "notAfter=Dec  3 16:25:38 2026 GMT\n"}});
    EXPECT_EQ(finding.verdict, Verdict::NOT_JUDGED);
    EXPECT_EQ(finding.text, "there are too many entries to compare");
}

TEST(IGViewJudge, KeepsTheMatchOfALongLine) {
    const std::string line = std::string(30000, '-') + "bad " + std::string(30000, 'x');
    const Finding finding = found(R"j("text": "{who}", )j" + WORD, {{"a.txt", line}});
    ASSERT_THAT(finding.places, SizeIs(1));
    EXPECT_EQ(finding.places[0].text.size(), LONGEST_EXCERPT);
    EXPECT_NE(finding.places[0].text.find("bad x"), std::string::npos);
    EXPECT_EQ(finding.text, std::string(200, 'x'));
}

TEST(IGViewJudge, TakesAnyBytes) {
    using namespace std::string_literals;
    const std::string wanted = R"j("items": "a.txt", "find": "bad (?P<who>.+)", "text": "{who}")j";
    EXPECT_EQ(found(wanted, {{"a.txt", "\0\xff\nbad \xfe\0\x1b[31m\n"s}}).text, "\xfe\0\x1b[31m"s);
}

TEST(IGViewJudge, ReadsOnlyWhatADefinitionReads) {
    Definitions definitions;
    std::string why;
    ASSERT_TRUE(definitions.add(rules(rule(R"j("text": "t", )j" + WORD)), why)) << why;
    Judge judge(definitions);
    EXPECT_TRUE(judge.begin(0, "a.txt"));
    EXPECT_FALSE(judge.begin(1, "b.txt"));
    EXPECT_FALSE(judge.begin(2, ""));
}

// --- facts ---

std::string fact(const std::string& name, const std::string& more) {
    return R"j({"name": ")j" + name + R"j(", "group": "Machine", "label": "Memory", )j" + more +
           "}";
}
std::vector<std::string> factsOf(const std::string& list, const std::vector<TestItem>& items) {
    std::vector<std::string> texts;
    for (const Fact& one : judgedBy(R"j({"version": 1, "facts": [)j" + list + "]}", items).facts) {
        texts.push_back(one.group + "/" + one.label + "/" + one.value + "/" +
                        std::to_string(one.place.line));
    }
    return texts;
}

TEST(IGViewJudge, TakesTheFirstMatchOfTheFirstItemAsAFact) {
    const std::string wanted =
        fact("m", R"j("items": ["a", "b"], "find": "M (?P<v>\\d+)", "value": "{v KiB} {v}")j");
    EXPECT_THAT(factsOf(wanted, {{"b", "M 1"}, {"a", "no\nM 24684084\nM 3"}}),
                ElementsAre("Machine/Memory/23.5 GiB 24684084/2"));
    EXPECT_THAT(factsOf(wanted, {{"b", "M 1"}}), ElementsAre("Machine/Memory/1 KiB 1/1"));
    EXPECT_THAT(factsOf(wanted, {{"b", "M"}}), IsEmpty());
}

TEST(IGViewJudge, AFactOfALaterDefinitionIsASubstitute) {
    const std::string list = fact("one", R"j("items": "a", "find": "x", "value": "first")j") + "," +
                             fact("two", R"j("items": "b", "find": "x", "value": "second")j");
    EXPECT_THAT(factsOf(list, {{"b", "x"}, {"a", "x"}}), ElementsAre("Machine/Memory/first/1"));
    EXPECT_THAT(factsOf(list, {{"b", "x"}}), ElementsAre("Machine/Memory/second/1"));
}

TEST(IGViewJudge, AFactMayHaveManyMatches) {
    std::string many;
    for (int i = 0; i < 50; ++i) {
        many += "d" + std::to_string(i) + "\n";
    }
    const auto facts =
        factsOf(fact("d", R"j("items": "a", "find": "(?P<v>d.*)", "value": "{v}", "all": true)j"),
                {{"a", many}});
    ASSERT_THAT(facts, SizeIs(20));
    EXPECT_EQ(facts[19], "Machine/Memory/d19/20");
}

// --- charts ---

std::vector<Chart> chartsOf(const std::string& more, const std::vector<TestItem>& items) {
    return judgedBy(R"j({"version": 1, "charts": [{"name": "c", "title": "T", "unit": "%", )j" +
                        more + "}]}",
                    items)
        .charts;
}
std::vector<std::string> rowsOf(const std::vector<Chart>& charts) {
    std::vector<std::string> texts;
    for (const ChartRow& row : charts.at(0).rows) {
        texts.push_back(row.label + " " + row.when + " " + std::to_string(row.value).substr(0, 4) +
                        " " + row.note);
    }
    return texts;
}

TEST(IGViewJudge, DrawsBars) {
    const auto charts = chartsOf(R"j("kind": "bars", "most": 100, "items": "df", "label": "{m}",
        "note": "{u bytes}", "find": "(?P<u>\\d+) (?P<value>\\d+)% (?P<m>\\S+)")j",
                                 {{"df", "Use\n2048 29% /\n10 5% /boot\n"}});
    EXPECT_THAT(rowsOf(charts), ElementsAre("/  29.0 2 KiB", "/boot  5.00 10 B"));
    EXPECT_EQ(charts[0].name, "c");
    EXPECT_EQ(charts[0].title, "T");
    EXPECT_EQ(charts[0].most, 100);
    EXPECT_EQ(charts[0].kind, ChartKind::BARS);
    EXPECT_EQ(charts[0].rows[1].place.line, 3U);
}

TEST(IGViewJudge, DrawsTheLargestBarFirstWhereADefinitionWantsIt) {
    const std::string bars = R"j("kind": "bars", "items": "df", "label": "{m}",
        "find": "(?P<value>\\d+)% (?P<m>\\S+)")j";
    const std::string text = "5% /a\n90% /b\n5% /c\n";
    EXPECT_THAT(rowsOf(chartsOf(bars, {{"df", text}})),
                ElementsAre("/a  5.00 ", "/b  90.0 ", "/c  5.00 "));
    EXPECT_THAT(rowsOf(chartsOf(R"j("sorted": true, )j" + bars, {{"df", text}})),
                ElementsAre("/b  90.0 ", "/a  5.00 ", "/c  5.00 "));
}

TEST(IGViewJudge, DrawsPercentagesOfAnotherNumber) {
    const std::string of = R"j("kind": "bars", "items": "m", "label": "{n}",
        "find": "(?P<n>[A-C]): (?P<value>\\d+)", "of": {"items": "m", "find": "Total: (?P<value>\\d+)"})j";
    EXPECT_THAT(rowsOf(chartsOf(of, {{"m", "A: 5\nTotal: 20\nB: 10\nC: x"}})),
                ElementsAre("A  25.0 ", "B  50.0 "));
    EXPECT_THAT(rowsOf(chartsOf(R"j("rest": true, )j" + of, {{"m", "A: 5\nTotal: 20"}})),
                ElementsAre("A  75.0 "));
    EXPECT_THAT(chartsOf(of, {{"m", "A: 5\nTotal: 0"}}), IsEmpty());
    EXPECT_THAT(chartsOf(of, {{"m", "A: 5"}}), IsEmpty());
    EXPECT_THAT(chartsOf(of, {}), IsEmpty());
}

TEST(IGViewJudge, DrawsLinesOneAfterTheOther) {
    const auto charts = chartsOf(R"j("kind": "lines", "items": "sar",
        "values": {"u": "user", "s": "system"}, "find": "(?P<when>\\S+) (?P<u>\\S+) (?P<s>\\S+)")j",
                                 {{"sar", "00:10 1 2\n00:20 3 4\n"}});
    EXPECT_THAT(rowsOf(charts), ElementsAre("system 00:10 2.00 ", "system 00:20 4.00 ",
                                            "user 00:10 1.00 ", "user 00:20 3.00 "));
}

// As long as it takes to read them: each label was once looked for among all of them.
TEST(IGViewJudge, DrawsVeryManyLines) {
    std::string many;
    for (int i = 0; i < 100000; ++i) {
        many += std::to_string(i) + "\n";
    }
    const std::string lines = R"j("rows": 100000, "kind": "lines", "items": "a",
        "label": "{value}", "find": "(?P<when>)(?P<value>\\d+)")j";
    EXPECT_THAT(chartsOf(lines, {{"a", many}})[0].rows, SizeIs(100000));
}

TEST(IGViewJudge, DrawsOnlySoManyRows) {
    std::string many;
    for (int i = 0; i < 1000; ++i) {
        many += std::to_string(i) + "\n";
    }
    const std::string bars =
        R"j("kind": "bars", "items": "a", "label": "{value}", "find": "(?P<value>\\d+)")j";
    EXPECT_THAT(chartsOf(bars, {{"a", many}})[0].rows, SizeIs(64));
    EXPECT_THAT(chartsOf(R"j("rows": 5, )j" + bars, {{"a", many}})[0].rows, SizeIs(5));
}

}  // namespace
