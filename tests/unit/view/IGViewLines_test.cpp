#include "view/IGViewLines.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The lines of a text that comes in pieces of one size.
std::vector<std::string> linesOf(const std::string& text, std::size_t size, std::uint64_t& count) {
    std::vector<std::string> lines;
    const auto take = [&](std::string_view line) { lines.emplace_back(line); };
    LineSplitter splitter;
    for (std::size_t at = 0; at < text.size(); at += size) {
        splitter.add(std::string_view(text).substr(at, size), take);
    }
    splitter.finish(take);
    count = splitter.lines();
    return lines;
}

TEST(IGViewLines, AreTheSameWhateverThePieces) {
    std::uint64_t count = 0;
    for (const std::size_t size : {1U, 2U, 3U, 100U}) {
        EXPECT_THAT(linesOf("one\n\ntwo\n\n\nthree", size, count),
                    ElementsAre("one", "", "two", "", "", "three"))
            << size;
        EXPECT_EQ(count, 6U);
        EXPECT_THAT(linesOf("one\n", size, count), ElementsAre("one"));
        EXPECT_EQ(count, 1U);
        EXPECT_THAT(linesOf("", size, count), IsEmpty());
        EXPECT_EQ(count, 0U);
    }
}

TEST(IGViewLines, LoseTheirRestWhenTheyAreTooLong) {
    const std::string text =
        std::string(LONGEST_LINE + 10, 'a') + "\nb\n" + std::string(LONGEST_LINE, 'c') + "d";
    std::uint64_t count = 0;
    for (const std::size_t size : {std::size_t{1000}, text.size()}) {
        EXPECT_THAT(linesOf(text, size, count), ElementsAre(std::string(LONGEST_LINE, 'a'), "b",
                                                            std::string(LONGEST_LINE, 'c')));
        EXPECT_EQ(count, 3U);
    }
}

}  // namespace
