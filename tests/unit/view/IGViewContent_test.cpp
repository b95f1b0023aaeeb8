#include "view/IGViewContent.h"

#include <zlib.h>

#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "../../support/archive_text.h"
#include "../../support/file_fixture.h"
#include "view/IGViewScan.h"

namespace {

using testing::ElementsAre;

Result resultOf(const std::vector<std::uint64_t>& sizes) {
    Result result;
    for (const std::uint64_t size : sizes) {
        result.items.emplace_back().size = size;
    }
    return result;
}

// The plan as "head+skipped+tail" for each item.
std::vector<std::string> planOf(const std::vector<std::uint64_t>& sizes, std::uint64_t limit) {
    std::vector<std::string> plan;
    for (const ItemContent& content : planContents(resultOf(sizes), limit)) {
        plan.push_back(std::to_string(content.head) + "+" + std::to_string(content.skipped) + "+" +
                       std::to_string(content.tail));
    }
    return plan;
}

TEST(IGViewContent, KeepsEverythingWithinTheLimit) {
    EXPECT_THAT(planOf({10, 0, 20}, 30), ElementsAre("10+0+0", "0+0+0", "20+0+0"));
    EXPECT_TRUE(planOf({}, 30).empty());
}

TEST(IGViewContent, TakesTheMiddleOfTheLargestItemsOnly) {
    EXPECT_THAT(planOf({10, 1000, 20}, 131), ElementsAre("10+0+0", "51+899+50", "20+0+0"));
    EXPECT_THAT(planOf({1000, 10, 600}, 210), ElementsAre("50+900+50", "10+0+0", "50+500+50"));
    EXPECT_THAT(planOf({100, 100, 100}, 2), ElementsAre("0+100+0", "0+100+0", "0+100+0"));
}

TEST(IGViewContent, NeverExceedsTheLimit) {
    std::vector<std::uint64_t> sizes(1000);
    for (std::size_t at = 0; at < sizes.size(); ++at) {
        sizes[at] = (at * 7919) % 5000;
    }
    for (const std::uint64_t limit : {1U, 999U, 1000U, 123456U, 2000000U, 9000000U}) {
        std::uint64_t kept = 0;
        const auto plan = planContents(resultOf(sizes), limit);
        for (std::size_t at = 0; at < sizes.size(); ++at) {
            EXPECT_EQ(plan[at].head + plan[at].skipped + plan[at].tail, sizes[at]);
            kept += plan[at].head + plan[at].tail;
        }
        const std::uint64_t all = std::accumulate(sizes.begin(), sizes.end(), std::uint64_t{0});
        EXPECT_LE(kept, limit);
        EXPECT_GE(kept, std::min(all, limit > sizes.size() ? limit - sizes.size() : 0));
    }
}

// The text that a file of gzip contains.
std::string unzipped(std::string_view bytes) {
    std::string text(CHUNK_BYTES + 1, '\0');
    std::string input(bytes);
    z_stream stream = {};
    EXPECT_EQ(::inflateInit2(&stream, MAX_WBITS + 16), Z_OK);
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(text.data());
    stream.avail_out = static_cast<uInt>(text.size());
    EXPECT_EQ(::inflate(&stream, Z_FINISH), Z_STREAM_END);
    EXPECT_EQ(stream.avail_in, 0U);
    text.resize(stream.total_out);
    ::inflateEnd(&stream);
    return text;
}

class IGViewContentOfArchive : public FileTest {
  protected:
    void open(const std::string& name) {
        std::string why;
        archive_ = openArchive(path(name), false, why);
        ASSERT_NE(archive_, nullptr) << why;
        ASSERT_TRUE(scanArchive(*archive_, definitions_, result_));
    }

    // The stream of all contents; every chunk but the last must be full.
    std::string stream(std::uint64_t limit) {
        contents_ = planContents(result_, limit);
        std::vector<std::string> chunks;
        EXPECT_TRUE(writeContents(*archive_, result_, contents_, [&](std::string_view chunk) {
            chunks.push_back(unzipped(chunk));
            return true;
        }));
        std::string all;
        for (const std::string& chunk : chunks) {
            EXPECT_EQ(all.size() % CHUNK_BYTES, 0U);
            EXPECT_FALSE(chunk.empty());
            all += chunk;
        }
        return all;
    }

    Definitions definitions_;
    std::unique_ptr<ArchiveReader> archive_;
    Result result_;
    std::vector<ItemContent> contents_;
};

TEST_F(IGViewContentOfArchive, IsTheContentsOfAllItemsInTheirOrder) {
    const std::string large(3 * CHUNK_BYTES + 7, 'x');
    writeText(path("a"), ArchiveText(true)
                             .directory("top/")
                             .file("top/a", "A\n")
                             .link("top/l", "a")
                             .file("top/large", large)
                             .file("top/b", "B\n")
                             .end());
    open("a");
    EXPECT_EQ(stream(std::uint64_t{64} << 20U), "A\n" + large + "B\n");
}

TEST_F(IGViewContentOfArchive, LacksTheMiddleOfALargeItemAndCountsItsLines) {
    std::string large;
    for (int number = 100000; number < 110000; ++number) {
        large += std::to_string(number) + "\n";
    }
    writeText(path("a"), ArchiveText().file("top/large", large).file("top/b", "B\n").end());
    open("a");
    EXPECT_EQ(stream(702), large.substr(0, 350) + large.substr(large.size() - 350) + "B\n");
    EXPECT_EQ(contents_[0].skipped_lines, 9900U);
    EXPECT_EQ(result_.items[0].lines, 10000U);
}

TEST_F(IGViewContentOfArchive, HasTheReadablePartOfAnItemThatIsCut) {
    const std::string bytes =
        ArchiveText().file("top/a", "A\n").file("top/b", std::string(5000, 'b')).end();
    writeText(path("a"), bytes.substr(0, 512 * 5));
    open("a");
    EXPECT_TRUE(result_.damaged);
    EXPECT_EQ(result_.items[1].size, 1024U);
    EXPECT_EQ(stream(1000000), "A\n" + std::string(1024, 'b'));
}

TEST_F(IGViewContentOfArchive, EndsWhenTheOutputCannotBeWritten) {
    writeText(path("a"), ArchiveText().file("top/a", std::string(3 * CHUNK_BYTES, 'x')).end());
    open("a");
    contents_ = planContents(result_, std::uint64_t{64} << 20U);
    int calls = 0;
    EXPECT_FALSE(writeContents(*archive_, result_, contents_, [&](std::string_view) {
        ++calls;
        return false;
    }));
    EXPECT_EQ(calls, 1);
}

TEST_F(IGViewContentOfArchive, StaysInStepWithADirectoryThatChanges) {
    std::filesystem::create_directories(path("top"));
    for (const char* name : {"b", "c", "d", "e"}) {
        writeText(path("top") + "/" + name, std::string(3, name[0]));
    }
    open("top");
    std::filesystem::remove(path("top/c"));
    writeText(path("top/a"), "new");
    writeText(path("top/d"), "longer");
    writeText(path("top/e"), "e");
    EXPECT_EQ(stream(1000), "bbb   lone  ");
}

}  // namespace
