#include "companion/IGArchive.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "../../support/archive_text.h"
#include "../../support/file_fixture.h"
#include "common/base/IGGuards.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class IGArchive : public FileTest {
  protected:
    std::unique_ptr<ArchiveReader> open(const std::string& name, bool follow_links = false) {
        why_.clear();
        return openArchive(path(name), follow_links, why_);
    }

    std::unique_ptr<ArchiveReader> openBytes(const std::string& bytes) {
        writeText(path("archive"), bytes);
        return open("archive");
    }

    std::string why_;
};

// The content of the current member.
std::string contentOf(ArchiveReader& reader) {
    std::string content;
    std::array<char, 100> buffer{};
    std::ptrdiff_t got = 0;
    while ((got = reader.read(buffer)) > 0) {
        content.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return got < 0 ? content + "<" + reader.error() + ">" : content;
}

// Each member as "name kind size content"; the last line is how the archive ends.
std::vector<std::string> membersOf(ArchiveReader& reader) {
    constexpr std::array KINDS{"file", "directory", "link", "other"};
    std::vector<std::string> members;
    Member member;
    ArchiveReader::Step step{};
    while ((step = reader.next(member)) == ArchiveReader::Step::MEMBER) {
        members.push_back(member.name + " " + KINDS.at(static_cast<std::size_t>(member.kind)) +
                          (member.link_target.empty() ? "" : " to " + member.link_target) + " " +
                          std::to_string(member.size) + " " + contentOf(reader) + member.problem);
    }
    members.emplace_back(step == ArchiveReader::Step::END ? "end" : "broken");
    return members;
}

std::string smallArchive(bool gzip) {
    return ArchiveText(gzip)
        .directory("top/")
        .file("top/a", "first\n")
        .file("top/b/c", std::string(1000, 'x'))
        .end();
}

// A file of gzip with these bytes.
std::string gzipped(const std::string& bytes) {
    std::string result(bytes.size() + 1000, '\0');
    z_stream stream = {};
    EXPECT_EQ(::deflateInit2(&stream, 6, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string input = bytes;  // zlib has no const for it
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    EXPECT_EQ(::deflate(&stream, Z_FINISH), Z_STREAM_END);
    result.resize(stream.total_out);
    ::deflateEnd(&stream);
    return result;
}

TEST_F(IGArchive, ReadsTheMembersOfATarInTheirOrder) {
    const auto reader = openBytes(smallArchive(false));
    ASSERT_NE(reader, nullptr) << why_;
    EXPECT_THAT(membersOf(*reader),
                ElementsAre("top/ directory 0 ", "top/a file 6 first\n",
                            "top/b/c file 1000 " + std::string(1000, 'x'), "end"));
    EXPECT_EQ(reader->form(), ArchiveForm::TAR);
    EXPECT_EQ(reader->bytes(), std::filesystem::file_size(path("archive")));
}

TEST_F(IGArchive, ReadsACompressedTar) {
    const auto reader = openBytes(smallArchive(true));
    ASSERT_NE(reader, nullptr) << why_;
    EXPECT_EQ(reader->form(), ArchiveForm::COMPRESSED);
    EXPECT_EQ(membersOf(*reader).size(), 4U);
}

TEST_F(IGArchive, GoesOnToTheNextMemberWithoutReadingTheContent) {
    const auto reader = openBytes(smallArchive(true));
    Member member;
    EXPECT_EQ(reader->next(member), ArchiveReader::Step::MEMBER);
    EXPECT_EQ(reader->next(member), ArchiveReader::Step::MEMBER);
    EXPECT_EQ(reader->next(member), ArchiveReader::Step::MEMBER);
    EXPECT_EQ(member.name, "top/b/c");
    EXPECT_EQ(member.modified, 1700000000);
}

TEST_F(IGArchive, TellsLinksAndOtherFilesAndGivesThemNoContent) {
    const auto reader = openBytes(ArchiveText()
                                      .file("top/a", "first")
                                      .link("top/l", "/etc/shadow")
                                      .hardLink("top/h", "top/a")
                                      .fifo("top/f")
                                      .end());
    EXPECT_THAT(membersOf(*reader),
                ElementsAre("top/a file 5 first", "top/l link to /etc/shadow 0 ",
                            "top/h link to top/a 0 ", "top/f other 0 ", "end"));
}

TEST_F(IGArchive, GivesHostileNamesAsTheyAre) {
    const auto reader = openBytes(
        ArchiveText().file("../../etc/x", "").file("/abs", "").file("a\x1b[2J\nb\xff", "").end());
    EXPECT_THAT(membersOf(*reader), ElementsAre("../../etc/x file 0 ", "/abs file 0 ",
                                                "a\x1b[2J\nb\xff file 0 ", "end"));
}

// A tar is cut at any byte: what precedes the cut is read, and the end is noticed.
TEST_F(IGArchive, NoticesEveryCutOfATar) {
    const std::string whole = smallArchive(false);
    const std::size_t used = 512U * 6;  // three headers, two contents of one and two blocks
    for (std::size_t size = 512; size <= used; size += 128) {
        const auto reader = openBytes(whole.substr(0, size));
        ASSERT_NE(reader, nullptr) << size << why_;
        EXPECT_EQ(membersOf(*reader).back(), "broken") << size;
        EXPECT_NE(reader->error(), "") << size;
    }
    EXPECT_EQ(membersOf(*openBytes(whole.substr(0, used + 512))).back(), "end");
}

TEST_F(IGArchive, NoticesEveryCutOfACompressedTar) {
    const std::string whole = smallArchive(true);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const auto reader = openBytes(whole.substr(0, size));
        if (reader != nullptr) {
            EXPECT_EQ(membersOf(*reader).back(), "broken") << size;
        } else {
            EXPECT_NE(why_, "") << size;
        }
    }
    EXPECT_EQ(membersOf(*openBytes(whole)).back(), "end");
}

TEST_F(IGArchive, GivesWhatPrecedesADamagedPlace) {
    ArchiveText text(true);
    text.file("top/a", "first");
    std::string numbers;
    for (unsigned number = 1; numbers.size() < 100000; number = number * 1103515245U + 12345U) {
        numbers += std::to_string(number);
    }
    std::string bytes = text.file("top/b", numbers).end();
    bytes.replace(bytes.size() / 2, 64, std::string(64, '\xff'));
    const auto reader = openBytes(bytes);
    const std::vector<std::string> members = membersOf(*reader);
    EXPECT_EQ(members.front(), "top/a file 5 first");
    EXPECT_EQ(members.back(), "broken");
}

// The content of the file behind a damaged header must not be taken for members.
TEST_F(IGArchive, EndsAtADamagedHeader) {
    const std::string inner = ArchiveText().file("top/forged", "x").end();
    for (const bool gzip : {false, true}) {
        std::string bytes = ArchiveText().file("top/a", "A").file("top/inner.tar", inner).end();
        bytes[1024 + 100] ^= 1;  // in the second header: behind a header and a block of content
        const auto reader = openBytes(gzip ? gzipped(bytes) : bytes);
        EXPECT_THAT(membersOf(*reader), ElementsAre("top/a file 1 A", "broken"));
        EXPECT_THAT(reader->error(), HasSubstr("Damaged"));
    }
}

// A header that was overwritten by zeros looks like the end.
TEST_F(IGArchive, NoticesWhatFollowsTheEnd) {
    for (const std::size_t before : {10U, 600000U}) {  // fewer and more than what is read at once
        const std::string first =
            ArchiveText().file("top/a", std::string(before, 'a')).file("top/b", "B").end();
        std::string zeroed = first;
        zeroed.replace(512 + (before + 511) / 512 * 512, 512, 512, '\0');
        const std::string second = smallArchive(false);
        for (const std::string& bytes :
             {zeroed, first + second, first + std::string(700000, '\0') + "x"}) {
            for (const bool gzip : {false, true}) {
                const auto reader = openBytes(gzip ? gzipped(bytes) : bytes);
                EXPECT_EQ(membersOf(*reader).back(), "broken");
                EXPECT_EQ(reader->error(), "it goes on after its end");
            }
        }
        EXPECT_EQ(membersOf(*openBytes(first + std::string(700000, '\0'))).back(), "end");
    }
}

TEST_F(IGArchive, ReadsFilesOfGzipThatWereAppendedToEachOther) {
    const std::string tar = smallArchive(false);
    const std::string bytes = gzipped(tar.substr(0, 700)) + gzipped(tar.substr(700));
    EXPECT_EQ(membersOf(*openBytes(bytes)), membersOf(*openBytes(tar)));
    EXPECT_EQ(membersOf(*openBytes(bytes + std::string(100, '\0'))).back(), "end");
    EXPECT_EQ(membersOf(*openBytes(bytes + "\x1f")).back(), "broken");
}

TEST_F(IGArchive, SaysWhatIsWrongAtTheEndOfGzip) {
    for (const auto& [place, error] :
         {std::pair{8, "incorrect data check"}, {4, "incorrect length check"}}) {
        std::string bytes = gzipped(smallArchive(false));
        bytes[bytes.size() - static_cast<std::size_t>(place)] ^= 1;
        const auto reader = openBytes(bytes);
        EXPECT_EQ(membersOf(*reader).back(), "broken");
        EXPECT_EQ(reader->error(), error);
    }
}

TEST_F(IGArchive, ReadsASparseFileWithItsHoles) {
    // As GNU tar makes them; libarchive writes sparse files in another format only.
    std::string content(std::size_t{3} << 20U, '\0');
    content.replace(1 << 20, 5, "first");
    content.replace(2 << 20, 6, "second");
    std::filesystem::create_directories(path("top"));
    std::FILE* file = std::fopen(path("top/sparse").c_str(), "w");
    ASSERT_NE(file, nullptr);
    for (const long at : {1L << 20, 2L << 20}) {
        std::fseek(file, at, SEEK_SET);
        std::fputs(at == 1 << 20 ? "first" : "second", file);
    }
    std::fclose(file);
    std::filesystem::resize_file(path("top/sparse"), content.size());
    ASSERT_EQ(std::system(("tar -C " + path() + " -S -cf " + path("archive") + " top").c_str()), 0);
    ASSERT_LT(std::filesystem::file_size(path("archive")), 100000U);
    const auto reader = open("archive");
    Member member;
    EXPECT_EQ(reader->next(member), ArchiveReader::Step::MEMBER);
    EXPECT_EQ(reader->next(member), ArchiveReader::Step::MEMBER);
    EXPECT_EQ(member.size, content.size());
    EXPECT_TRUE(contentOf(*reader) == content);
}

TEST_F(IGArchive, BeginsAgainWithTheSameFile) {
    const auto reader = openBytes(smallArchive(true));
    const std::vector<std::string> first = membersOf(*reader);
    std::filesystem::rename(path("archive"), path("moved"));
    writeText(path("archive"), "another file");
    ASSERT_TRUE(reader->rewind());
    EXPECT_EQ(membersOf(*reader), first);
}

TEST_F(IGArchive, ReadsADamagedFileAgainAsFarAsBefore) {
    const std::string whole = smallArchive(true);
    const auto reader = openBytes(whole.substr(0, whole.size() - 30));
    ASSERT_NE(reader, nullptr) << why_;
    const std::vector<std::string> first = membersOf(*reader);
    EXPECT_EQ(first.back(), "broken");
    EXPECT_GT(first.size(), 1U);
    ASSERT_TRUE(reader->rewind());
    EXPECT_EQ(membersOf(*reader), first);
}

TEST_F(IGArchive, TakesWhatFollowsACompressedTarForPadding) {
    const std::string whole = smallArchive(true);
    for (const std::string& rest : {std::string(1000, '\0'), std::string("garbage")}) {
        const auto reader = openBytes(whole + rest);
        ASSERT_NE(reader, nullptr) << why_;
        EXPECT_EQ(membersOf(*reader).size(), 4U);
        EXPECT_EQ(reader->error(), "");
    }
}

// A small file may unpack to zeros without an end.
TEST_F(IGArchive, DoesNotReadForEverAfterTheEndOfATar) {
    const std::string zeros = gzipped(std::string(std::size_t{1} << 20U, '\0'));
    std::string bytes = gzipped(smallArchive(false));
    for (int number = 0; number < 63; ++number) {
        bytes += zeros;
    }
    EXPECT_EQ(membersOf(*openBytes(bytes)).back(), "end");
    bytes += zeros;
    const auto reader = openBytes(bytes);
    EXPECT_EQ(membersOf(*reader).back(), "broken");
    EXPECT_EQ(reader->error(), "it goes on after its end");
}

TEST_F(IGArchive, RefusesWhatIsNoArchive) {
    EXPECT_EQ(openBytes(""), nullptr);
    EXPECT_EQ(openBytes("a text\n"), nullptr);
    EXPECT_THAT(why_, HasSubstr("no tar archive"));
    EXPECT_EQ(open("missing"), nullptr);
    EXPECT_EQ(why_, "No such file or directory");
    EXPECT_EQ(openArchive("/dev/zero", false, why_), nullptr);
    EXPECT_EQ(why_, "it is neither a file nor a directory");
}

TEST_F(IGArchive, DoesNotWaitForAFifo) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(open("fifo"), nullptr);
}

class IGArchiveOfDirectory : public IGArchive {
  protected:
    void SetUp() override {
        IGArchive::SetUp();
        std::filesystem::create_directories(path("host_1/system"));
        writeText(path("host_1/system/uname.txt"), "Linux\n");
        writeText(path("host_1/a"), "A");
        std::filesystem::create_symlink("/etc/hostname", path("host_1/link"));
    }
};

TEST_F(IGArchiveOfDirectory, ReadsADirectorySortedByNames) {
    const auto reader = open("host_1");
    ASSERT_NE(reader, nullptr) << why_;
    const auto members = ElementsAre(
        "host_1 directory 0 ", "host_1/a file 1 A", "host_1/link link to /etc/hostname 0 ",
        "host_1/system directory 0 ", "host_1/system/uname.txt file 6 Linux\n", "end");
    EXPECT_THAT(membersOf(*reader), members);
    EXPECT_EQ(reader->form(), ArchiveForm::DIRECTORY);
    ASSERT_TRUE(reader->rewind());
    EXPECT_THAT(membersOf(*reader), members);
}

TEST_F(IGArchiveOfDirectory, FollowsLinksOnlyIfItIsTold) {
    std::filesystem::remove(path("host_1/link"));
    writeText(path("outside"), "content of another place");
    std::filesystem::create_symlink(path("outside"), path("host_1/link"));
    EXPECT_THAT(membersOf(*open("host_1")),
                Contains("host_1/link link to " + path("outside") + " 0 "));
    EXPECT_THAT(
        membersOf(*open("host_1", true)),
        Contains("host_1/link file to " + path("outside") + " 24 content of another place"));
}

TEST_F(IGArchiveOfDirectory, NeitherWaitsForAFifoNorEntersALinkToADirectory) {
    ASSERT_EQ(::mkfifo(path("host_1/fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink(path("host_1/fifo"), path("host_1/to_fifo"));
    std::filesystem::create_symlink(path("host_1"), path("host_1/loop"));
    const std::vector<std::string> members = membersOf(*open("host_1", true));
    EXPECT_THAT(members, Contains("host_1/fifo other 0 "));
    EXPECT_THAT(members, Contains(testing::StartsWith("host_1/to_fifo link")));
    EXPECT_THAT(members, Contains(testing::StartsWith("host_1/loop link")));
    EXPECT_EQ(members.back(), "end");
}

TEST_F(IGArchiveOfDirectory, NamesWhatItCannotRead) {
    ASSERT_EQ(::chmod(path("host_1/a").c_str(), 0), 0);
    ASSERT_EQ(::chmod(path("host_1/system").c_str(), 0), 0);
    ASSERT_EQ(::chmod(path().c_str(), 0755), 0);
    ASSERT_EQ(::seteuid(65534), 0);
    const auto reader = open("host_1");
    const std::vector<std::string> members =
        reader == nullptr ? std::vector<std::string>{} : membersOf(*reader);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_THAT(members, Contains("host_1/a file 1 Permission denied"));
    EXPECT_THAT(members, Contains("host_1/system directory 0 Permission denied"));
    EXPECT_THAT(members, Contains(HasSubstr("host_1/system")).Times(1));
}

// What is listed may be replaced before it is read.
TEST_F(IGArchiveOfDirectory, StaysBelowTheDirectoryWhenALinkTakesAPlaceInIt) {
    std::filesystem::create_directories(path("outside"));
    writeText(path("outside/uname.txt"), "content of another place");
    const auto reader = open("host_1", true);
    Member member;
    while (member.name != "host_1/a") {
        ASSERT_EQ(reader->next(member), ArchiveReader::Step::MEMBER);
    }
    std::filesystem::rename(path("host_1/system"), path("moved"));
    std::filesystem::create_symlink(path("outside"), path("host_1/system"));
    const std::vector<std::string> members = membersOf(*reader);
    EXPECT_THAT(members, Contains(HasSubstr("host_1/system")));
    EXPECT_THAT(members, Not(Contains(HasSubstr("content of another place"))));
}

// Opening a device may have an effect; a FIFO stands for it, because its openings can be watched.
TEST_F(IGArchiveOfDirectory, OpensWhatALinkLeadsToOnlyIfItIsAFile) {
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink(path("fifo"), path("host_1/to_fifo"));
    const FdGuard watcher(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(watcher.get(), path("fifo").c_str(), IN_OPEN), 0);
    EXPECT_THAT(membersOf(*open("host_1", true)),
                Contains("host_1/to_fifo link to " + path("fifo") + " 0 "));
    std::array<char, 1024> events{};
    EXPECT_EQ(::read(watcher.get(), events.data(), events.size()), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(IGArchiveOfDirectory, LeavesNoDescriptorOpen) {
    const std::size_t before = openDescriptors();
    membersOf(*open("host_1"));
    openBytes(smallArchive(true));
    openBytes("no archive");
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
