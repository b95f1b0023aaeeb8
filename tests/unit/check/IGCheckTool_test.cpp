#include "check/IGCheckTool.h"

#include <string>
#include <vector>

#include "../../support/run_fixture.h"
#include "common/base/IGGuards.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"

namespace {

constexpr std::int64_t MIB = std::int64_t{1} << 20U;

class IGCheckTool : public RunTest {
  protected:
    IGCheckTool() { EXPECT_EQ(IgCmnSpecialStrInit(&root_, pool_.get()), 0); }

    ToolUse use(const std::string& arguments) {
        return toolOf(("/opt/norvale/quendil/tool/" + arguments).c_str(), root_);
    }

    LocalPool pool_;
    root_tbl root_{};
};

TEST_F(IGCheckTool, ReadsTheOptionsOfRun) {
    const ToolUse plain = use("run df -h");
    EXPECT_EQ(plain.name, "df");
    EXPECT_EQ(plain.most_bytes, 20 * MIB);
    EXPECT_FALSE(plain.own);
    const ToolUse many =
        use("run -0mp -l 3 -e /a* -e/b -n /no -t 5 -u 1:2 -c -s sshd each disk df -l 9");
    EXPECT_EQ(many.name, "each");
    EXPECT_TRUE(many.own);
    EXPECT_EQ(many.most_bytes, 3 * MIB);
    EXPECT_EQ(many.forbidden, "/no");
    EXPECT_THAT(many.needed,
                ::testing::ElementsAre("/a*", "/b", "/sys/fs/cgroup/system.slice/sshd.service",
                                       "/sys/fs/cgroup/systemd/system.slice/sshd.service"));
    EXPECT_EQ(use("run -ml4 df").most_bytes, 4 * MIB);
    EXPECT_EQ(use("run -- df").name, "df");
    EXPECT_EQ(use("run -m -l").name, "");
    EXPECT_TRUE(use("run -m df").masked);
    EXPECT_FALSE(use("run -l 3 df").masked);
    EXPECT_TRUE(use("show /x").masked);
    EXPECT_EQ(use("run -l 3 df -h").arguments, 4U);
    EXPECT_EQ(use("run").name, "");
    EXPECT_EQ(use("run - df").name, "-");
    EXPECT_EQ(use("run -m \"a b\" c").name, "a b");
}

TEST_F(IGCheckTool, KnowsTheBoundsOfTools) {
    EXPECT_EQ(use("show /etc/hosts").most_bytes, 20 * MIB);
    EXPECT_EQ(use("show -v -l 2 /etc/hosts").most_bytes, 8 * MIB);
    EXPECT_EQ(use("run -l 999999999999999999 df").most_bytes, -1);
    EXPECT_EQ(use("run -l x df").most_bytes, -1);
    EXPECT_EQ(use("sql postgresql x").most_bytes, -1);
    EXPECT_EQ(toolOf("/bin/df", root_).most_bytes, -1);
    EXPECT_TRUE(toolOf("", root_).words.empty());
    EXPECT_TRUE(toolOf("  ", root_).words.empty());
}

TEST_F(IGCheckTool, KeepsTheDirectoryOfThePatternInAPath) {
    EXPECT_EQ(expanded("%d%/a%%b", root_), "%d%/a%b");
    EXPECT_EQ(expanded("/%HOST%", root_), std::string("/") + root_.HOST);
    struct Case {
        const char* path;
        const char* normal;
        bool inside;
    };
    for (const Case& c :
         {Case{"%d%/a", "%d%/a", true}, Case{"%d%//./a/", "%d%/a", true}, Case{"%d%", "%d%", true},
          Case{"%d%/../a", "%d%/../a", false}, Case{"%d%/a/../../../b", "%d%/a/../../../b", false},
          Case{"%d%/a/../b", "%d%/b", true}, Case{"%d%/..", "%d%/..", false},
          Case{"/a/../b//c/", "/b/c", false}, Case{"/%d%/a", "/%d%/a", false},
          Case{"%d%x/a", "%d%x/a", false}, Case{"/", "/", false}}) {
        EXPECT_EQ(normalPath(c.path), c.normal) << c.path;
        EXPECT_EQ(isInPatternDirectory(normalPath(c.path)), c.inside) << c.path;
    }
    EXPECT_EQ(parentOf("/a/b"), "/a");
    EXPECT_EQ(parentOf("/a"), "/");
    EXPECT_EQ(parentOf("/"), "/");
}

}  // namespace
