#include "view/IGViewQuery.h"

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

Query query(const Strings& find) {
    Query query;
    query.items = {"item"};
    query.find = find;
    return query;
}

// Matches as "LINE name=value name=value".
Strings matchesOf(const std::vector<const Query*>& queries, const Strings& lines,
                  std::size_t wanted = 0) {
    ItemReader reader;
    Strings found;
    reader.begin(queries);
    for (const std::string& line : lines) {
        reader.line(line, [&](std::size_t position, const Match& match) {
            if (position != wanted) {
                return Want::CAPTURES;
            }
            std::string text = std::to_string(match.number);
            for (const auto& [name, value] : match.captures()) {
                text.append(" ").append(name).append("=").append(value);
            }
            found.push_back(text);
            return Want::CAPTURES;
        });
    }
    return found;
}

Strings matchesOf(const Query& query, const Strings& lines) {
    return matchesOf(std::vector<const Query*>{&query}, lines);
}

Answer answerOf(const Query& query, const Strings& lines, std::string* reason = nullptr) {
    ItemReader reader;
    const std::vector<const Query*> queries{&query};
    reader.begin(queries);
    for (const std::string& line : lines) {
        reader.line(line, [](std::size_t, const Match&) { return Want::CAPTURES; });
    }
    if (reason != nullptr) {
        *reason = reader.reason();
    }
    return reader.answer(0);
}

TEST(IGViewQuery, FindsLinesWithTheirCaptures) {
    EXPECT_THAT(matchesOf(query({"^(?P<name>\\w+)=(?P<value>\\d+)$"}), {"a=1", "b=x", "cc=23"}),
                ElementsAre("1 name=a value=1", "3 name=cc value=23"));
}

TEST(IGViewQuery, TakesTheFirstExpressionThatMatches) {
    EXPECT_THAT(matchesOf(query({"no (?P<a>.)", "yes (?P<b>.)", "y(?P<c>.)"}), {"yes 1", "no 2"}),
                ElementsAre("1 b=1", "2 a=2"));
}

TEST(IGViewQuery, DoesNotCountALineThatUnlessMatches) {
    Query wanted = query({"\\d+"});
    wanted.unless = {"^#", "never"};
    EXPECT_THAT(matchesOf(wanted, {"1", "# 2", "3 never", "4"}), ElementsAre("1", "4"));
}

TEST(IGViewQuery, NeedsTheLineBefore) {
    Query wanted = query({"(?P<value>\\d+)"});
    wanted.after = "^head";
    EXPECT_THAT(matchesOf(wanted, {"1", "head", "2", "3"}), ElementsAre("3 value=2"));
}

TEST(IGViewQuery, DoesNotTakeTheLastLineOfAnotherItemForTheLineBefore) {
    Query wanted = query({"^x"});
    wanted.after = "";
    wanted.after = "^h|^$";
    const std::vector<const Query*> queries{&wanted};
    ItemReader reader;
    Strings found;
    const auto take = [&](std::size_t, const Match& match) {
        found.emplace_back(match.line);
        return Want::CAPTURES;
    };
    reader.begin(queries);
    reader.line("h", take);
    reader.begin(queries);
    reader.line("x1", take);
    EXPECT_THAT(found, IsEmpty());
}

TEST(IGViewQuery, AddsTheCapturesOfTheLastContextLine) {
    Query wanted = query({"errors (?P<value>\\d+)"});
    wanted.context = "^(?P<name>\\w+):";
    EXPECT_THAT(matchesOf(wanted, {"errors 0", "a:", "errors 1", "b:", "c:", "errors 2"}),
                ElementsAre("1 value=0", "3 value=1 name=a", "6 value=2 name=c"));
}

TEST(IGViewQuery, LeavesOutWhatFollowsAContextLineThatUnlessMatches) {
    Query wanted = query({"errors (?P<value>\\d+)"});
    wanted.context = "^(?P<name>\\w+):";
    wanted.unless = {"^veth"};
    EXPECT_THAT(matchesOf(wanted, {"veth:", "errors 1", "eth:", "errors 2"}),
                ElementsAre("4 value=2 name=eth"));
}

TEST(IGViewQuery, DoesNotKeepTheContextOfAnotherItem) {
    Query wanted = query({"errors"});
    wanted.context = "^(?P<name>\\w+):";
    const std::vector<const Query*> queries{&wanted};
    ItemReader reader;
    Strings found;
    const auto take = [&](std::size_t, const Match& match) {
        found.emplace_back(match["name"]);
        return Want::CAPTURES;
    };
    reader.begin(queries);
    reader.line("a:", take);
    reader.begin(queries);
    reader.line("errors", take);
    EXPECT_THAT(found, ElementsAre(""));
}

TEST(IGViewQuery, FindsForManyQueriesAtOnce) {
    std::vector<Query> many;
    for (int i = 0; i < 40; ++i) {
        many.push_back(query({"word" + std::to_string(i) + "( (?P<value>\\d+))?$"}));
    }
    std::vector<const Query*> queries;
    for (const Query& one : many) {
        queries.push_back(&one);
    }
    EXPECT_THAT(matchesOf(queries, {"nothing", "word17 5", "word3", "word17", ""}, 17),
                ElementsAre("2 value=5", "4"));
    EXPECT_THAT(matchesOf(queries, {"nothing", "word17 5", "word3", "word17", ""}, 3),
                ElementsAre("3"));
}

TEST(IGViewQuery, FindsCapitalsAndWhatHasNoFixedTextAmongMany) {
    const std::vector<Query> many{query({"small"}), query({"Capital"}), query({"other"}),
                                  query({"^\\d+$"}), query({"more"})};
    std::vector<const Query*> queries;
    for (const Query& one : many) {
        queries.push_back(&one);
    }
    const Strings lines{"a Capital", "a capital", "12", "small"};
    EXPECT_THAT(matchesOf(queries, lines, 0), ElementsAre("4"));
    EXPECT_THAT(matchesOf(queries, lines, 1), ElementsAre("1"));
    EXPECT_THAT(matchesOf(queries, lines, 3), ElementsAre("3"));
}

TEST(IGViewQuery, HoldsManyCombinationsOfQueries) {
    std::vector<Query> many;
    for (int i = 0; i < 10; ++i) {
        many.push_back(query({"word" + std::to_string(i)}));
    }
    ItemReader reader;
    int found = 0;
    for (int round = 0; round < 3; ++round) {
        for (const Query& one : many) {
            const std::vector<const Query*> queries{&one};
            reader.begin(queries);
            reader.line(one.find[0], [&](std::size_t, const Match&) {
                ++found;
                return Want::CAPTURES;
            });
        }
    }
    EXPECT_EQ(found, 30);
}

TEST(IGViewQuery, TakesBytesThatAreNoText) {
    using namespace std::string_literals;
    const Query wanted = query({"^a(?P<value>..)z"});
    EXPECT_THAT(matchesOf(wanted, {"a\xff\xfez", "a\0\0z"s, "a\xc3\xa4z"}),
                ElementsAre("1 value=\xff\xfe", "2 value=\0\0"s, "3 value=\xc3\xa4"));
}

TEST(IGViewQuery, ReadsLongLines) {
    const std::string line = std::string(65000, 'x') + "end 7";
    EXPECT_THAT(matchesOf(query({"end (?P<value>\\d)$"}), {line}), ElementsAre("1 value=7"));
    EXPECT_THAT(matchesOf(query({"(x+x+)+y"}), {line}), IsEmpty());
}

TEST(IGViewQuery, TellsWhereInTheLineTheMatchBegins) {
    const Query wanted = query({"b+"});
    const std::vector<const Query*> queries{&wanted};
    ItemReader reader;
    std::size_t begin = 0;
    reader.begin(queries);
    reader.line("aabb", [&](std::size_t, const Match& match) {
        begin = match.begin;
        return Want::NOTHING;
    });
    EXPECT_EQ(begin, 2U);
}

TEST(IGViewQuery, GivesOnlyWhatIsStillWanted) {
    Query wanted = query({"x(?P<value>\\d)"});
    wanted.needs = "end";
    const std::vector<const Query*> queries{&wanted};
    ItemReader reader;
    for (const Want want : {Want::CAPTURES, Want::COUNT, Want::NOTHING}) {
        Strings found;
        reader.begin(queries);
        for (const char* line : {"x1", "x2", "x", "x3", "end"}) {
            reader.line(line, [&](std::size_t, const Match& match) {
                found.emplace_back(match["value"]);
                return want;
            });
        }
        EXPECT_EQ(found, want == Want::CAPTURES ? Strings({"1", "2", "3"})
                         : want == Want::COUNT  ? Strings({"1", "", ""})
                                                : Strings({"1"}));
        EXPECT_EQ(reader.answer(0), Answer::FULL);
    }
}

// --- whether an item has an answer ---

TEST(IGViewQuery, AnItemWithAnyOtherLineIsAnAnswer) {
    EXPECT_EQ(answerOf(query({"x"}), {"a line"}), Answer::FULL);
}

TEST(IGViewQuery, AnEmptyItemIsNoAnswer) {
    std::string reason = "?";
    EXPECT_EQ(answerOf(query({"x"}), {}, &reason), Answer::NOTHING);
    EXPECT_EQ(reason, "");
    EXPECT_EQ(answerOf(query({"x"}), {"", " ", "==> /etc/empty"}), Answer::NOTHING);
}

TEST(IGViewQuery, AnEmptyItemIsAnAnswerIfTheQuerySaysSo) {
    Query wanted = query({"x"});
    wanted.empty = true;
    EXPECT_EQ(answerOf(wanted, {}), Answer::FULL);
    EXPECT_EQ(answerOf(wanted, {"tool: not installed on this machine"}), Answer::NOTHING);
    EXPECT_EQ(answerOf(wanted, {"tool: stopped here by the time limit"}), Answer::NOTHING);
}

TEST(IGViewQuery, WhatToolsSayWithoutAnAnswerIsNone) {
    for (const char* line : {
             "smartctl: not installed on this machine",
             "/sys/block/*/device/state is not there",
             "==> /etc/crypttab is not there",
             "chronyc: not asked: there is no /run/chrony",
             "ps: forbidden on this machine: there is /etc/opt/x",
             "ls: nothing to show on this machine: there is no /boot",
             "certificates: there are none",
             "iptables-save: there are no rules",
             "btrfs: no mounted btrfs file system on this machine",
             "failed_logins: not in use on this machine: there is no /run/faillock",
             "lastb: there is no record of failed logins",
             "refusals: the audit service keeps no records here",
             "pvs: no device of this machine is known to hold volumes of LVM",
             "==> sda was not asked: sda sleeps",
             "==> /etc/key lies behind a link that a user made, and was not opened",
             "==> /etc/x is not a regular file",
             "(reading failed: Input/output error)",
             "df: stopped here by the time limit",
         }) {
        std::string reason;
        EXPECT_EQ(answerOf(query({"x"}), {line, line}, &reason), Answer::NOTHING) << line;
        EXPECT_EQ(reason, line);
    }
}

TEST(IGViewQuery, KeepsOnlyTheBeginningOfALongReason) {
    std::string reason;
    answerOf(query({"x"}), {std::string(60000, '/') + " is not there"}, &reason);
    EXPECT_EQ(reason.size(), 400U);
}

TEST(IGViewQuery, AnOutputThatWasStoppedIsHalfAnAnswer) {
    for (const char* line :
         {"df: stopped here by the time limit", "smartctl: stopped here after 20 seconds",
          "nft: the output was cut here, after 20 MiB"}) {
        EXPECT_EQ(answerOf(query({"x"}), {"a line", line}), Answer::STOPPED) << line;
    }
    EXPECT_EQ(answerOf(query({"x"}), {"it took 20 seconds"}), Answer::FULL);
}

TEST(IGViewQuery, AnItemWithoutTheNeededLineIsNoAnswer) {
    Query wanted = query({"x"});
    wanted.needs = "^Health: ";
    EXPECT_EQ(answerOf(wanted, {"Permission denied"}), Answer::LACKING);
    EXPECT_EQ(answerOf(wanted, {"begin", "Health: good", "end"}), Answer::FULL);
    EXPECT_EQ(answerOf(wanted, {"smartctl: not installed on this machine"}), Answer::NOTHING);
}

// --- which queries read an item ---

std::vector<std::string> usesOf(const std::vector<Strings>& wildcards, std::string_view item) {
    std::vector<Query> queries(wildcards.size());
    std::vector<const Query*> views;
    for (std::size_t i = 0; i < queries.size(); ++i) {
        queries[i].items = wildcards[i];
        views.push_back(&queries[i]);
    }
    QueryIndex index(views);
    std::vector<std::string> uses;
    for (const QueryIndex::Use& use : index.find(item)) {
        uses.push_back(std::to_string(use.query) + ":" + std::to_string(use.wildcard));
    }
    return uses;
}

TEST(IGViewQuery, ReadsItemsByNameAndByWildcard) {
    const std::vector<Strings> queries{{"storage/df.txt"}, {"x", "storage/d*.txt"}, {"storage/df"}};
    EXPECT_THAT(usesOf(queries, "storage/df.txt"), ElementsAre("0:0", "1:1"));
    EXPECT_THAT(usesOf(queries, "storage/dm.txt"), ElementsAre("1:1"));
    EXPECT_THAT(usesOf(queries, "other/df.txt"), IsEmpty());
    EXPECT_THAT(usesOf(queries, ""), IsEmpty());
}

TEST(IGViewQuery, ReadsAnItemOnceWithTheFirstWildcardThatMatches) {
    EXPECT_THAT(usesOf({{"no", "log/j*", "log/journal.txt"}}, "log/journal.txt"),
                ElementsAre("0:1"));
}

TEST(IGViewQuery, AWildcardMatchesAnyDepth) {
    EXPECT_THAT(usesOf({{"*/etc/*"}}, "network/etc/iproute2/rt_tables"), ElementsAre("0:0"));
    EXPECT_THAT(usesOf({{"*/etc/*"}}, "etc/passwd"), IsEmpty());
}

}  // namespace
