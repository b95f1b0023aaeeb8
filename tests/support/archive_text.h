// Archives that tests make, in memory.
#ifndef QUENDIL_TESTS_SUPPORT_ARCHIVE_TEXT_H
#define QUENDIL_TESTS_SUPPORT_ARCHIVE_TEXT_H

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include <string>

/// A tar archive in the format of GNU tar, as the collector makes it.
class ArchiveText {
  public:
    explicit ArchiveText(bool gzip = false) : archive_(::archive_write_new()) {
        ::archive_write_set_format_gnutar(archive_);
        if (gzip) {
            ::archive_write_add_filter_gzip(archive_);
        }
        ::archive_write_set_bytes_in_last_block(archive_, 1);  // gzip does not pad its file
        EXPECT_EQ(::archive_write_open2(archive_, &bytes_, nullptr, append, nullptr, nullptr),
                  ARCHIVE_OK);
    }
    ~ArchiveText() { ::archive_write_free(archive_); }
    ArchiveText(const ArchiveText&) = delete;
    ArchiveText& operator=(const ArchiveText&) = delete;

    ArchiveText& file(const std::string& name, const std::string& content) {
        return add(name, AE_IFREG, content, "", "");
    }
    ArchiveText& directory(const std::string& name) { return add(name, AE_IFDIR, "", "", ""); }
    ArchiveText& fifo(const std::string& name) { return add(name, AE_IFIFO, "", "", ""); }
    ArchiveText& link(const std::string& name, const std::string& target) {
        return add(name, AE_IFLNK, "", target, "");
    }
    ArchiveText& hardLink(const std::string& name, const std::string& target) {
        return add(name, AE_IFREG, "", "", target);
    }

    /// The bytes of the whole archive, after the last member.
    std::string end() {
        EXPECT_EQ(::archive_write_close(archive_), ARCHIVE_OK);
        return bytes_;
    }

  private:
    ArchiveText& add(const std::string& name, mode_t type, const std::string& content,
                     const std::string& target, const std::string& hard_link) {
        struct archive_entry* entry = ::archive_entry_new();
        ::archive_entry_set_pathname(entry, name.c_str());
        ::archive_entry_set_filetype(entry, type);
        ::archive_entry_set_perm(entry, 0600);
        ::archive_entry_set_mtime(entry, 1700000000, 0);
        ::archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
        if (!target.empty()) {
            ::archive_entry_set_symlink(entry, target.c_str());
        }
        if (!hard_link.empty()) {
            ::archive_entry_set_hardlink(entry, hard_link.c_str());
        }
        EXPECT_EQ(::archive_write_header(archive_, entry), ARCHIVE_OK) << name;
        EXPECT_EQ(::archive_write_data(archive_, content.data(), content.size()),
                  static_cast<la_ssize_t>(content.size()));
        ::archive_entry_free(entry);
        return *this;
    }

    static la_ssize_t append(struct archive* /*archive*/, void* bytes, const void* data,
                             std::size_t size) {
        static_cast<std::string*>(bytes)->append(static_cast<const char*>(data), size);
        return static_cast<la_ssize_t>(size);
    }

    std::string bytes_;
    struct archive* archive_;
};

#endif
