#include "check/IGCheckOutput.h"

#include <gmock/gmock.h>

#include <string>

namespace {

TEST(IGCheckOutput, KnowsWhatAPathCollects) {
    struct Case {
        const char* path;
        const char* file;
        bool collects;
    };
    for (const Case& c : {
             Case{"/a/b", "/a/b", true},
             Case{"/a", "/a/b/c", true},
             Case{"/", "/a", true},
             Case{"/a/b", "/a/bc", false},
             Case{"/a/b/c", "/a/b", false},
             Case{"/a/*", "/a/b", true},
             Case{"/a/*", "/a/b/c", true},
             Case{"/a/*c", "/a/b/c", false},
             Case{"/a/b?", "/a/bc", true},
             Case{"/*/b", "/a/b", false},
             Case{"/a/.*", "/a/b", false},
             Case{"/a/*", "/a/.b", true},
             Case{"/a/x[1]", "/a/x[1]", true},
             Case{"/a/x[1]", "/a/x1", true},
             Case{"%d%/*", "%d%/a", true},
             Case{"%d%", "%d%/a/b", true},
             Case{"%d%/a", "/a", false},
         }) {
        EXPECT_EQ(collects(c.path, c.file), c.collects) << c.path << " and " << c.file;
        DataPaths paths;
        paths.add(c.path, 2);
        const bool listed = c.collects && std::string(c.path) != "/";
        EXPECT_EQ(paths.collectAfter(c.file, 1), listed) << c.path << " and " << c.file;
        EXPECT_FALSE(paths.collectAfter(c.file, 2)) << c.path << " and " << c.file;
    }
}

TEST(IGCheckOutput, FindsTheOtherToolOfAFile) {
    Outputs outputs;
    const std::size_t first = outputs.directoryOf("a\n");
    const std::size_t second = outputs.directoryOf("b\n");
    EXPECT_NE(first, second);
    EXPECT_EQ(outputs.directoryOf("a\n"), first);
    EXPECT_EQ(outputs.add(first, "%d%/x", "one:1"), nullptr);
    EXPECT_EQ(outputs.add(second, "%d%/x", "two:1"), nullptr);
    EXPECT_EQ(outputs.add(first, "%d%/x", "one:1"), nullptr);  // the same tool
    const std::string* other = outputs.add(first, "%d%/x", "three:1");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(*other, "one:1");
}

}  // namespace
