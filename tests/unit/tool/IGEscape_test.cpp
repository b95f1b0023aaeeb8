#include "tool/IGEscape.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

// The text that `write` writes to a pipe, which has room for each text of these tests.
template <typename Write>
std::string written(Write write) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
    ToolOutput out{.fd = ends[1]};
    write(out);
    EXPECT_EQ(toolFlush(out), 0);
    std::string text(60000, '\0');
    const ssize_t length = read(ends[0], text.data(), text.size());
    text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    close(ends[0]);
    close(ends[1]);
    return text;
}

std::string escaped(std::string_view text, LineEnd ends = LineEnd::FEED) {
    return written([&](ToolOutput& out) {
        Escape escape{.ends = ends, .out = &out};
        escapeText(escape, text);
        escapeEnd(escape);
    });
}

std::string escapedByteForByte(std::string_view text, LineEnd ends = LineEnd::FEED) {
    return written([&](ToolOutput& out) {
        Escape escape{.ends = ends, .out = &out};
        for (const char& character : text) {
            escapeText(escape, {&character, 1});
        }
        escapeEnd(escape);
    });
}

struct Case {
    std::string_view given;
    std::string_view shown;
};

void expectShown(LineEnd ends, std::initializer_list<Case> cases) {
    for (const auto& [given, shown] : cases) {
        EXPECT_EQ(escaped(given, ends), shown);
        EXPECT_EQ(escapedByteForByte(given, ends), shown);
    }
}

TEST(IGEscape, ControlCharactersExceptTabAndLineFeedAreShownAsOctal) {
    expectShown(LineEnd::FEED, {
                                   {"", ""},
                                   {"a\tb\nc", "a\tb\nc"},
                                   {"a\033[7mb\r\n", "a\\033[7mb\\015\n"},
                                   {"\0\001\037 ~\177"sv, "\\000\\001\\037 ~\\177"},
                               });
}

TEST(IGEscape, BytesOutsideOfUtf8AreShownWhereATerminalTakesThemForControlCharacters) {
    expectShown(LineEnd::FEED,
                {
                    {"\x9b[7m", "\\233[7m"},
                    {"\x7f\x80\x9f\xa0\xff", "\\177\\200\\237\xa0\xff"},
                    {"\xe2\x9b", "\xe2\\233"},      // the text ends inside of a UTF-8 sequence
                    {"\xe2\x9b\n", "\xe2\\233\n"},  // the line does
                    {"\xe2\x9b\x9b\x9b", "\xe2\x9b\x9b\\233"},
                    {"\xe2\xe2\x9b\x9b", "\xe2\xe2\x9b\x9b"},
                    {"\xc2\033", "\xc2\\033"},
                    {"\xc0\x9b \xc1\x9b", "\xc0\\233 \xc1\\233"},  // overlong
                    {"\xe0\x9b\x9b", "\xe0\\233\\233"},
                    {"\xf0\x8f\x9b\x9b", "\xf0\\217\\233\\233"},
                    {"\xed\xa0\x9b", "\xed\xa0\\233"},            // a surrogate
                    {"\xf4\x90\x9b\x9b", "\xf4\\220\\233\\233"},  // beyond U+10FFFF
                    {"\xf5\x9b\x9b\x9b", "\xf5\\233\\233\\233"},
                });
}

TEST(IGEscape, Utf8IsKeptExceptItsControlCharacters) {
    expectShown(LineEnd::FEED, {
                                   {"\xc3\xa4 \xc3\x9b \xe2\x9b\x84 \xf0\x9f\x98\x80 \xef\xbf\xbd",
                                    "\xc3\xa4 \xc3\x9b \xe2\x9b\x84 \xf0\x9f\x98\x80 \xef\xbf\xbd"},
                                   {"\xc2\x9b[7m \xc2\xa0", "\\302\\233[7m \xc2\xa0"},
                               });
}

TEST(IGEscape, ANulEndsALineInTheOutputOfFindPrint0) {
    expectShown(LineEnd::NUL, {{"a\nFORGED\0b\0"sv, "a\\012FORGED\nb\n"}, {"a\n", "a\\012"}});
}

TEST(IGEscape, AShortLineIsTheRestOfAProcessName) {
    expectShown(
        LineEnd::LONG_LINES,
        {
            {"first\nsecond line is long\n", "first\nsecond line is long\n"},
            {"1.00     0  a\nFORGED\n\n1.00     1  program\n",
             "1.00     0  a\\012FORGED\n\n1.00     1  program\n"},
            {"1.00     0  a\n\nFORG\nED\n1.00     1  program\n",
             "1.00     0  a\\012\\012FORG\\012ED\n1.00     1  program\n"},
            {"1.00     0  a\nFORGED", "1.00     0  a\\012FORGED"},
            {"1.00     0  a\n\n", "1.00     0  a\n\n"},
            {"a\n123456789012345\n1234567890123456\n", "a\\012123456789012345\n1234567890123456\n"},
        });
}

TEST(IGEscape, ALineFeedInTheNameOfASocketsUserEndsNoLine) {
    expectShown(LineEnd::SOCKET_USERS,
                {
                    {"x  users:((\"a\nFORGED\",pid=1,fd=2)) ino:3\ny\n",
                     "x  users:((\"a\\012FORGED\",pid=1,fd=2)) ino:3\ny\n"},
                    {"x  users:((\"a\",pid=1,fd=2),(\"b\n\n\",pid=1,fd=2))\ny\n",
                     "x  users:((\"a\",pid=1,fd=2),(\"b\\012\\012\",pid=1,fd=2))\ny\n"},
                    // Addresses of sockets have no blanks.
                    {"/tmp/users:((\"a 0\ny\n", "/tmp/users:((\"a 0\ny\n"},
                    {"x  users:((\"a\",pid=1,fd=2)) x,(\"\ny\n",
                     "x  users:((\"a\",pid=1,fd=2)) x,(\"\ny\n"},
                });
}

TEST(IGEscape, ANameHasNeitherTabNorLineFeed) {
    EXPECT_EQ(
        written([](ToolOutput& out) { escapeName(out, "/tmp/a\tb\n\xc3\xa4\xe2\t\x9b\xe2"); }),
        "/tmp/a\\011b\\012\xc3\xa4\xe2\\011\\233\xe2");
}

TEST(IGEscape, ALongTextIsWrittenWhole) {
    std::string text;
    while (text.size() < 200'000) {
        text += "a line " + std::to_string(text.size()) + "\n";
    }
    const std::string path = testing::TempDir() + "IGEscape_test." + std::to_string(getpid());
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    unlink(path.c_str());
    ToolOutput out{.fd = fd};
    Escape escape{.ends = LineEnd::FEED, .out = &out};
    escapeText(escape, text);
    escapeEnd(escape);
    EXPECT_EQ(toolFlush(out), 0);
    std::string read_back(text.size() + 1, '\0');
    EXPECT_EQ(pread(fd, read_back.data(), read_back.size(), 0), static_cast<ssize_t>(text.size()));
    read_back.pop_back();
    EXPECT_EQ(read_back, text);
    close(fd);
}

TEST(IGEscape, ALineIsHeldBackUntilItIsWhole) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    ASSERT_GE(fcntl(ends[1], F_SETPIPE_SZ, 200000), 200000);
    std::array<char, 100000> piece;
    const auto arrived = [&] {
        const ssize_t length = read(ends[0], piece.data(), piece.size());
        return length > 0 ? std::string(piece.data(), static_cast<std::size_t>(length)) : "";
    };
    ToolOutput out{.fd = ends[1]};
    toolWrite(out, "a");
    EXPECT_EQ(toolFlushLines(out), 0);
    EXPECT_EQ(arrived(), "");
    toolWrite(out, "b\nc\nd");
    EXPECT_EQ(toolFlushLines(out), 0);
    EXPECT_EQ(arrived(), "ab\nc\n");
    const std::string large(out.bytes.size() - 4, 'x');
    toolWrite(out, large + "\ny");
    EXPECT_EQ(toolFlushLines(out), 0);
    EXPECT_EQ(arrived(), "d" + large + "\n");
    // A line that is longer than the buffer.
    toolWrite(out, std::string(out.bytes.size() - 1, 'z') + "\n");
    EXPECT_EQ(toolFlushLines(out), 0);
    EXPECT_EQ(arrived(), "y" + std::string(out.bytes.size() - 1, 'z') + "\n");
    toolWrite(out, "the rest");
    EXPECT_EQ(toolFlush(out), 0);
    EXPECT_EQ(arrived(), "the rest");
    close(ends[0]);
    close(ends[1]);
}

TEST(IGEscape, AFailedWriteIsReportedAndNothingIsWrittenAfterIt) {
    const int full = open("/dev/full", O_WRONLY);
    ToolOutput out{.fd = full};
    toolWrite(out, "text");
    EXPECT_EQ(toolFlush(out), -1);
    toolWrite(out, "more");
    EXPECT_EQ(toolFlush(out), -1);
    close(full);
}

}  // namespace
