#include "collect/IGIndex.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <utility>

#include "../../support/collect_fixture.h"
#include "common/base/IGCmnList.h"
#include "common/file/IGCmnTree.h"

namespace {

class IGIndex : public CollectTest {
  protected:
    IndexRecord record(const std::vector<std::string>& files) {
        IndexRecord record{};
        std::string("250102030405").copy(record.date.data(), 12);
        EntryList entries(pool());
        for (const std::string& file : files) {
            FileEntry* entry = entries.make(nullptr, file.c_str());
            entry->collected = true;
            entries.append(entry);
        }
        record.entries = entries.first();
        return record;
    }

    int append(const std::vector<IndexRecord>& records) {
        IgCmnListHeader* list = nullptr;
        for (const IndexRecord& one : records) {
            auto* copy = newFromPool<IndexRecord>(pool());
            *copy = one;
            IgCmnListAppend(pool(), &list, copy);
        }
        return indexAppend(pool(), *root_, data_dir_.c_str(), list);
    }

    std::string text() const { return readText(output_ + "/quendil_index"); }
};

TEST_F(IGIndex, IsInTheOutputDirectory) {
    EXPECT_EQ(indexPath(pool(), *root_), output_ + "/quendil_index");
}

TEST_F(IGIndex, HoldsOneRecordAfterAnother) {
    IndexRecord described = record({"a", "b c"});
    IgCmnListHeader* description = nullptr;
    IgIniCollectList("system log", &description, pool());
    IgIniCollectList("", &description, pool());
    described.description = description;
    described.type = FILE_BINARY;
    EXPECT_EQ(append({described, record({"d"})}), 0);
    EXPECT_EQ(append({record({})}), 0);
    EXPECT_EQ(text(),
              "\nFILE:a\nFILE:b c\nDESC:system log\nDESC:\nDATE:250102030405\nTYPE:binary\n"
              "\nFILE:d\nDESC:\nDATE:250102030405\nTYPE:text\n"
              "\nFILE:\nDESC:\nDATE:250102030405\nTYPE:text\n");
}

TEST_F(IGIndex, DistinguishesAbsentListsFromEmptyOnes) {
    IgCmnListHeader empty{};
    IndexRecord bare = record({});
    bare.description = &empty;
    bare.date = {};
    EXPECT_EQ(append({bare}), 0);
    EXPECT_EQ(text(), "\nFILE:\nDATE:\nTYPE:text\n");
}

TEST_F(IGIndex, NamesEveryType) {
    const std::vector<std::pair<std::int32_t, std::string>> types = {{FILE_TEXT, "text"},
                                                                     {FILE_BINARY, "binary"},
                                                                     {FILE_ARCHIVE, "archive"},
                                                                     {FILE_DIRECTORY, "directory"},
                                                                     {FILE_OTHER, "core dump"}};
    std::string expected;
    std::vector<IndexRecord> records;
    for (const auto& [type, name] : types) {
        records.push_back(record({"f"}));
        records.back().type = type;
        std::string("core dump").copy(records.back().type_word.data(), INDEX_TYPE_LENGTH);
        expected += "\nFILE:f\nDESC:\nDATE:250102030405\nTYPE:" + name + "\n";
    }
    records.push_back(record({"f"}));
    records.back().type = FILE_OTHER;
    expected += "\nFILE:f\nDESC:\nDATE:250102030405\nTYPE:\n";
    EXPECT_EQ(append(records), 0);
    EXPECT_EQ(text(), expected);
}

TEST_F(IGIndex, PrefixesTheLastComponentOfAnotherDataDirectory) {
    useSubdirectory("target");
    EXPECT_EQ(append({record({"var/log/messages", "x"}), record({})}), 0);
    EXPECT_EQ(text(),
              "\nFILE:target/var/log/messages\nFILE:target/x\nDESC:\nDATE:250102030405\nTYPE:text\n"
              "\nFILE:\nDESC:\nDATE:250102030405\nTYPE:text\n");
}

TEST_F(IGIndex, IsReadableByItsOwnerAlone) {
    const mode_t mask = ::umask(0);
    EXPECT_EQ(append({record({"a"})}), 0);
    EXPECT_EQ(::umask(mask), 0U);
    struct stat st = {};
    ASSERT_EQ(::stat((output_ + "/quendil_index").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600U);
}

TEST_F(IGIndex, IsNeverOpenedThroughALink) {
    writeText(path("victim"), "mine\n");
    std::filesystem::create_symlink(path("victim"), output_ + "/quendil_index");
    Capture errors(stderr);
    EXPECT_EQ(append({record({"a"})}), -1);
    EXPECT_EQ(takeLog(), trio("fopen", 40, "Too many levels of symbolic links",
                              output_ + "/quendil_index", "IGCmnFile"));
    EXPECT_EQ(readText(path("victim")), "mine\n");
}

// Limits the size of what this process writes to a file, for a scope.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &saved_);
        const struct rlimit tight = {bytes, saved_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &tight);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &saved_);
        ::signal(SIGXFSZ, SIG_DFL);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    struct rlimit saved_ = {};
};

TEST_F(IGIndex, ReportsAFailedWriteOnce) {
    const std::string full = output_ + "/quendil_index";
    writeText(full, std::string(1 << 20, '\n'));  // beyond the limit; the run log stays below it
    Capture errors(stderr);
    int flushed = 0;
    int written = 0;
    {
        const FileSizeLimit limit(1 << 20);
        flushed = append({record({"a"})});
        written = append({record(std::vector<std::string>(100, std::string(200, 'n')))});
    }
    EXPECT_EQ(flushed, -1);
    EXPECT_EQ(written, -1);
    EXPECT_EQ(takeLog(), trio("fflush", 27, "File too large", full, "IGCmnFile") +
                             trio("fprintf", 27, "File too large", full, "IGIndex"));
    EXPECT_EQ(readText(full).size(), 1U << 20);
}

TEST_F(IGIndex, ReportsTheHeaderAtThePlaceThatOpenedIt) {
    const std::string full = path("index");
    {
        IndexFile index(full.c_str(), "w");
        index.print("quendil [Ver. %s]\n", "01-02");
        EXPECT_EQ(index.finish(), 0);
    }
    EXPECT_EQ(readText(full), "quendil [Ver. 01-02]\n");
    const std::string none = path("none/index");
    Capture errors(stderr);
    IndexFile index(none.c_str(), "w");
    index.print("nothing %d\n", 1);
    EXPECT_EQ(index.finish(), -1);
    EXPECT_EQ(takeLog(), trio("fopen", 2, "No such file or directory", none, "IGCmnFile"));
}

}  // namespace
