#include "companion/IGArchive.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "../../support/archive_text.h"
#include "../../support/file_fixture.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

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
    EXPECT_THAT(members, Contains(testing::StartsWith("host_1/system directory 0 ")));
    EXPECT_THAT(members, Contains(HasSubstr("Permission denied")).Times(2));
}

TEST_F(IGArchiveOfDirectory, LeavesNoDescriptorOpen) {
    const std::size_t before = openDescriptors();
    membersOf(*open("host_1"));
    openBytes(smallArchive(true));
    openBytes("no archive");
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
