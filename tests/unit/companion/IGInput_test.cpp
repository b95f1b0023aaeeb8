#include "companion/IGInput.h"

#include <sys/stat.h>

#include <string>

#include "../../support/file_fixture.h"

namespace {

class IGInput : public FileTest {
  protected:
    std::string why(const std::string& name, std::size_t most = 100) {
        std::string text;
        std::string reason;
        EXPECT_FALSE(readInput(name, most, text, reason));
        return reason;
    }
};

TEST_F(IGInput, ReadsAFileUpToItsLimit) {
    const std::string content = std::string("a\0b", 3) + std::string(200000, 'x');
    writeText(path("file"), content);
    std::string text = "before";
    std::string reason;
    EXPECT_TRUE(readInput(path("file"), content.size(), text, reason)) << reason;
    EXPECT_EQ(text, content);
    EXPECT_EQ(why(path("file"), content.size() - 1), "it is too large: more than 200002 bytes");
}

TEST_F(IGInput, SaysWhyAFileCannotBeRead) {
    EXPECT_EQ(why(path("absent")), "it cannot be read: No such file or directory");
    EXPECT_EQ(why(path("")), "it cannot be read: Is a directory");
    EXPECT_EQ(why("/dev/zero"), "it cannot be read: it is no file");
}

TEST_F(IGInput, DoesNotWaitForAWriter) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    std::string text;
    std::string reason;
    EXPECT_TRUE(readInput(path("fifo"), 100, text, reason));
    EXPECT_EQ(text, "");
}

}  // namespace
