#include "view/IGViewTemplate.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

std::string filled(const std::string& text, std::size_t count = 2,
                   const std::vector<std::string>& values = {"a", "b"}) {
    return Template(text).filled({.one =
                                      [&](std::string_view name) {
                                          return name == "n" ? "2048"
                                                             : "<" + std::string(name) + ">";
                                      },
                                  .all = [&](std::string_view) { return values; },
                                  .count = count});
}

TEST(IGViewTemplate, FillsItsPlaces) {
    EXPECT_EQ(filled("plain"), "plain");
    EXPECT_EQ(filled("{x} and {y_2}."), "<x> and <y_2>.");
    EXPECT_EQ(filled("{{x} {x}"), "{x} <x>");
    EXPECT_EQ(filled(""), "");
}

TEST(IGViewTemplate, ShowsSizes) {
    EXPECT_EQ(filled("{n bytes} {n KiB} {n MiB}"), "2 KiB 2 MiB 2 GiB");
    EXPECT_EQ(filled("{x KiB}"), "<x>");
}

TEST(IGViewTemplate, Counts) {
    EXPECT_EQ(filled("{count}", 7), "7");
    EXPECT_EQ(filled("{count disk|disks}", 1), "1 disk");
    EXPECT_EQ(filled("{count disk|disks}", 0), "0 disks");
    EXPECT_EQ(filled("{count sheep}", 3), "3 sheep");
}

TEST(IGViewTemplate, ListsTheFirstValuesThatDiffer) {
    EXPECT_EQ(filled("{each x}"), "a, b");
    EXPECT_EQ(filled("{each x}", 2, {"a", "a", "", "b", "a"}), "a, b");
    EXPECT_EQ(filled("{each x}", 2, {"1", "2", "3", "4", "5", "6"}), "1, 2, 3, 4, 5, ...");
    EXPECT_EQ(filled("{each x}", 2, {}), "");
}

TEST(IGViewTemplate, ListsTextsOfSeveralCaptures) {
    const Template form("{each [who] ([size KiB] of [all])}");
    const auto filledWith = [&](const std::vector<std::vector<std::string>>& columns) {
        return form.filled({.one = [](std::string_view) { return std::string(); },
                            .all =
                                [&](std::string_view name) {
                                    return columns[name == "who" ? 0 : name == "size" ? 1 : 2];
                                },
                            .count = 2});
    };
    EXPECT_EQ(filledWith({{"a", "b"}, {"2048", "x"}, {"3", "4"}}), "a (2 MiB of 3), b (x of 4)");
    EXPECT_EQ(filledWith({{"a", "a", ""}, {"1", "1", ""}, {"3", "3", ""}}), "a (1 KiB of 3)");
    EXPECT_THAT(form.names(), ElementsAre("who", "size", "all"));
    EXPECT_TRUE(form.needsAll());
}

TEST(IGViewTemplate, LeavesOutTheTextBeforeAnEmptyCapture) {
    const auto filledWith = [](const std::string& who, const std::string& where) {
        return Template("{each [who] in [where]!}")
            .filled({.one = [](std::string_view) { return std::string(); },
                     .all =
                         [&](std::string_view name) {
                             return std::vector<std::string>{name == "who" ? who : where};
                         },
                     .count = 1});
    };
    EXPECT_EQ(filledWith("a", "b"), "a in b!");
    EXPECT_EQ(filledWith("a", ""), "a!");
    EXPECT_EQ(filledWith("", ""), "");
}

TEST(IGViewTemplate, DoesNotFillWhatAValueContains) {
    EXPECT_EQ(filled("{each x}", 1, {"{count}"}), "{count}");
    EXPECT_EQ(filled("{each [x] y}", 1, {"[x]"}), "[x] y");
}

TEST(IGViewTemplate, TellsTheCapturesThatItNeeds) {
    const Template form("{a} {each b} {c KiB} {count x|y}");
    EXPECT_THAT(form.names(), ElementsAre("a", "b", "c"));
    EXPECT_TRUE(form.needsAll());
    EXPECT_TRUE(Template("{count}").needsAll());
    EXPECT_FALSE(Template("{a} {c KiB}").needsAll());
}

TEST(IGViewTemplate, TellsAMistake) {
    for (const char* text : {"{", "a {b", "{}", "{ a}", "{a b}", "{a-b}", "{each}x{", "{a KiB x}",
                             "{each a b}", "{each [a}", "{each [a b]}", "{each []}"}) {
        std::string mistake;
        const Template form(text, &mistake);
        EXPECT_NE(mistake, "") << text;
    }
}

}  // namespace
