#include "view/IGViewOverview.h"

#include <dlfcn.h>
#include <fts.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "../../support/archive_text.h"
#include "../../support/file_fixture.h"
#include "view/IGViewOverviewPage.h"

namespace {

int fts_error = 0;  // with which fts_read ends

}  // namespace

// In the place of the function of the C library.
extern "C" FTSENT* fts_read(FTS* tree) {
    // The name that _FILE_OFFSET_BITS gives it.
    static const auto original =
        reinterpret_cast<decltype(&fts_read)>(::dlsym(RTLD_NEXT, "fts64_read"));
    FTSENT* entry = original(tree);
    if (entry == nullptr && fts_error != 0) {
        errno = std::exchange(fts_error, 0);
    }
    return entry;
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class IGViewOverview : public FileTest {
  protected:
    void archive(const std::string& name, const std::string& file, const std::string& text) {
        writeText(path(name), ArchiveText().file("vm_261123162538/" + file, text).end());
    }

    // Names below the directory of the test.
    std::vector<std::string> found() {
        std::vector<std::string> names;
        for (const std::string& one : findResults(path(""), problems_)) {
            names.push_back(std::filesystem::path(one).lexically_relative(path("")).string());
        }
        return names;
    }

    std::vector<std::string> problems_;
};

TEST_F(IGViewOverview, FindsArchivesAndDirectoriesOfRunsInOrder) {
    std::filesystem::create_directories(path("b/run/sub"));
    writeText(path("b/run/quendil_index"), "");
    writeText(path("b/run/sub/x.tar"), "");
    writeText(path("c.tar.gz"), "");
    writeText(path("a.tar"), "");
    writeText(path("a.zip"), "");
    std::filesystem::create_symlink(path("a.tar"), path("link.tar"));
    EXPECT_THAT(found(), ElementsAre("a.tar", "b/run", "c.tar.gz"));
    EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(IGViewOverview, NamesADirectoryThatIsNotThere) {
    EXPECT_THAT(findResults(path("absent"), problems_), IsEmpty());
    EXPECT_THAT(problems_, ElementsAre(HasSubstr("absent")));
}

TEST_F(IGViewOverview, SaysThatTheSearchHasEndedEarly) {
    writeText(path("a.tar"), "");
    fts_error = EIO;
    EXPECT_THAT(found(), ElementsAre("a.tar"));
    EXPECT_THAT(problems_, ElementsAre(HasSubstr("the search ended early: Input/output error")));
}

// What is between the search and the reading may be anyone's work.
TEST_F(IGViewOverview, FollowsNoLinkThatHasComeInTheMeantime) {
    std::filesystem::create_directories(path("in/sub"));
    std::filesystem::create_directories(path("out"));
    archive("in/one.tar", "quendil.log", "");
    archive("in/sub/two.tar", "quendil.log", "");
    archive("out/two.tar", "quendil.log", "");
    const Definitions definitions;
    Overview overview(definitions, path("in"), path("index.html"), 1024, false);
    const std::vector<std::string> results = findResults(path("in"), problems_);
    ASSERT_THAT(results, ElementsAre(path("in/one.tar"), path("in/sub/two.tar")));
    std::filesystem::remove(path("in/one.tar"));
    std::filesystem::create_symlink(path("out/two.tar"), path("in/one.tar"));
    std::filesystem::rename(path("in/sub"), path("in/before"));
    std::filesystem::create_symlink(path("out"), path("in/sub"));
    for (const std::string& result : results) {
        EXPECT_EQ(overview.add(result).state, OverviewState::UNREADABLE);
    }
    EXPECT_EQ(overview.rows()[0].reason, "Too many levels of symbolic links");
    EXPECT_TRUE(overview.damaged());
    EXPECT_FALSE(std::filesystem::exists(path("out/two.html")));
    EXPECT_FALSE(std::filesystem::exists(path("in/one.html")));
}

TEST_F(IGViewOverview, FollowsTheLinksOfItsOwnDirectory) {
    std::filesystem::create_directories(path("real"));
    archive("real/one.tar", "quendil.log", "");
    std::filesystem::create_symlink("real", path("link"));
    const Definitions definitions;
    Overview overview(definitions, path("link"), path("index.html"), 1024, false);
    const std::string page = overview.add(path("link/one.tar")).page;
    EXPECT_EQ(page, path("link/one.html"));
    EXPECT_TRUE(std::filesystem::exists(path("real/one.html")));
}

TEST_F(IGViewOverview, NamesADirectoryThatCannotBeRead) {
    std::filesystem::create_directories(path("closed"));
    writeText(path("a.tar"), "");
    ASSERT_EQ(::chmod(path("closed").c_str(), 0), 0);
    ASSERT_EQ(::chmod(path().c_str(), 0755), 0);
    ASSERT_EQ(::seteuid(65534), 0);
    const std::vector<std::string> names = found();
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_THAT(names, ElementsAre("a.tar"));
    EXPECT_THAT(problems_, ElementsAre(testing::EndsWith("closed: Permission denied")));
}

TEST_F(IGViewOverview, NamesTheFirstCriticalFindingsOnly) {
    std::string list;
    for (int number = 0; number < 12; ++number) {
        list += std::string(number == 0 ? "" : ",") + R"({"name": "r)" +
                static_cast<char>('a' + number) +
                R"(", "weight": "critical", "title": "T", "text": "t", "remedy": "r",
                   "items": "quendil_index", "find": "bad"})";
    }
    Definitions definitions;
    std::string why;
    ASSERT_TRUE(definitions.add(R"({"version": 1, "rules": [)" + list + "]}", why)) << why;
    archive("1.tar", "quendil_index", "bad");
    Overview overview(definitions, path(""), path("index.html"), 1024, false);
    overview.add(path("1.tar"));
    EXPECT_EQ(overview.rows()[0].found[0], 12U);
    EXPECT_EQ(overview.rows()[0].critical.size(), MOST_TITLES);
}

TEST_F(IGViewOverview, SortsByWeightAndPutsWhatIsNoResultLast) {
    Definitions definitions;
    std::string why;
    ASSERT_TRUE(definitions.add(R"({"version": 1, "rules": [
        {"name": "one", "weight": "warning", "title": "One", "text": "t", "remedy": "r",
         "items": "x", "find": "warn"},
        {"name": "two", "weight": "critical", "title": "Two", "text": "t", "remedy": "r",
         "items": "x", "find": "bad"}]})",
                                why))
        << why;
    writeText(path("1.tar"), ArchiveText().file("vm/y", "").end());
    archive("2.tar", "quendil.log", "");
    writeText(path("3.tar"), ArchiveText().file("v/quendil_index", "").file("v/x", "warn").end());
    writeText(path("4.tar"),
              ArchiveText().file("v/quendil_index", "").file("v/x", "warn\nbad").end());
    Overview overview(definitions, path(""), path("index.html"), 1024, false);
    for (const char* name : {"1.tar", "2.tar", "3.tar", "4.tar"}) {
        overview.add(path(name));
    }
    overview.sort();
    std::vector<std::string> names;
    for (const OverviewRow& row : overview.rows()) {
        names.push_back(std::filesystem::path(row.path).filename());
    }
    EXPECT_THAT(names, ElementsAre("4.tar", "3.tar", "2.tar", "1.tar"));
    EXPECT_THAT(overview.rows()[0].found, ElementsAre(1U, 1U, 0U));
    EXPECT_THAT(overview.rows()[0].critical, ElementsAre("Two"));
    EXPECT_EQ(overview.rows()[2].not_judged, 2U);
    EXPECT_EQ(overview.rows()[3].state, OverviewState::NO_RESULT);
    EXPECT_EQ(overview.rows()[3].page, "");
    EXPECT_FALSE(overview.damaged());
    EXPECT_TRUE(std::filesystem::exists(path("4.html")));
    EXPECT_FALSE(std::filesystem::exists(path("1.html")));
}

TEST_F(IGViewOverview, IsDamagedWithOneArchiveThatCannotBeReadCompletely) {
    const std::string whole =
        ArchiveText().file("v/quendil_index", "").file("v/x", std::string(2000, 'x')).end();
    writeText(path("whole.tar"), whole);
    writeText(path("cut.tar"), whole.substr(0, 512 * 3));
    writeText(path("text.tar"), "no archive");
    const Definitions definitions;
    for (const auto& [name, state] : {std::pair{"whole.tar", OverviewState::READ},
                                      {"cut.tar", OverviewState::DAMAGED},
                                      {"text.tar", OverviewState::UNREADABLE}}) {
        Overview overview(definitions, path(""), path("index.html"), 1024, false);
        overview.add(path(name));
        EXPECT_EQ(overview.rows()[0].state, state) << name;
        EXPECT_EQ(overview.damaged(), state != OverviewState::READ) << name;
        EXPECT_EQ(overview.rows()[0].reason.empty(), state == OverviewState::READ) << name;
    }
}

TEST_F(IGViewOverview, DoesNotLinkToAPageThatIsALink) {
    archive("1.tar", "quendil_index", "");
    writeText(path("other"), "of another place");
    std::filesystem::create_symlink("other", path("1.html"));
    const Definitions definitions;
    Overview overview(definitions, path(""), path("index.html"), 1024, false);
    overview.add(path("1.tar"));
    EXPECT_EQ(overview.rows()[0].page, "");
    EXPECT_EQ(overview.rows()[0].no_page, "1.html is a link");
    EXPECT_EQ(readText(path("other")), "of another place");
}

TEST_F(IGViewOverview, LinksAreRelativeAndEncoded) {
    std::filesystem::create_directories(path("a b"));
    EXPECT_EQ(linkTo(path("x.html"), path("index.html")), "x.html");
    EXPECT_EQ(linkTo(path("a b/x.html"), path("index.html")), "a%20b/x.html");
    EXPECT_EQ(linkTo(path("x.html"), path("a b/index.html")), "../x.html");
    EXPECT_EQ(linkTo(path("js:<\"'&#?%\xff.html"), path("index.html")),
              "js%3A%3C%22%27%26%23%3F%25%FF.html");
}

}  // namespace
