#include "check/IGCheckSource.h"

#include <sys/stat.h>

#include <array>
#include <string>

#include "../../support/file_fixture.h"

namespace {

class IGCheckSource : public FileTest {
  protected:
    void open(const std::string& text) {
        writeText(path("file"), text);
        ASSERT_TRUE(source_.open(path("file").c_str())) << source_.error();
    }

    SourceText source_;
};

TEST_F(IGCheckSource, FindsLinesInAnyOrder) {
    open("one\n\nthree\nfour");
    EXPECT_EQ(source_.offsetOf(3), 5);
    EXPECT_EQ(source_.line(4, 0, 100), "four");
    EXPECT_EQ(source_.line(1, 0, 100), "one");
    EXPECT_EQ(source_.line(2, 0, 100), "");
    EXPECT_EQ(source_.line(3, 1, 2), "hr");
    EXPECT_EQ(source_.offsetOf(9), 15);
    EXPECT_EQ(source_.line(9, 0, 100), "");
    EXPECT_EQ(source_.lastLine(), 4);
    EXPECT_EQ(source_.unfinishedLine(), "four");
}

TEST_F(IGCheckSource, FindsLinesBeyondABlock) {
    const std::string longer(100000, 'x');
    open(longer + "\nb\n" + longer + "\nd\n");
    EXPECT_EQ(source_.line(4, 0, 9), "d");
    EXPECT_EQ(source_.line(2, 0, 9), "b");
    EXPECT_EQ(source_.line(3, 99999, 9), "x");
    EXPECT_EQ(source_.unfinishedLine(), "");
    EXPECT_EQ(source_.lastLine(), 5);
}

TEST_F(IGCheckSource, ReadsFromAnOffset) {
    open("one\ntwo\n");
    std::array<char, 10> text{};
    for (const off_t offset : {4, 0}) {
        std::FILE* stream = source_.streamFrom(offset);
        ASSERT_NE(stream, nullptr);
        ASSERT_NE(std::fgets(text.data(), text.size(), stream), nullptr);
        EXPECT_STREQ(text.data(), offset == 0 ? "one\n" : "two\n");
        std::fclose(stream);
    }
}

TEST_F(IGCheckSource, OpensRegularFilesOnly) {
    EXPECT_FALSE(source_.open(path("none").c_str()));
    EXPECT_EQ(source_.error(), "No such file or directory");
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(source_.open(path("fifo").c_str()));
    EXPECT_EQ(source_.error(), "not a regular file");
    EXPECT_FALSE(source_.open("/dev/null"));
}

}  // namespace
