// A file that is made by a companion command: it appears under its name when it is complete, or not
// at all, and never in the place of another one.
#ifndef QUENDIL_COMPANION_IGOUTPUTFILE_H
#define QUENDIL_COMPANION_IGOUTPUTFILE_H

#include <string>
#include <string_view>

#include "common/base/IGGuards.h"

class OutputFile {
  public:
    OutputFile() = default;
    /// Without commit(), nothing is left, not even if a signal ends the program (but SIGKILL, on a
    /// file system that has only files with names).
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Begins a file of mode 0600 in the directory of the path, where nothing may have this name.
    bool open(const std::string& path);
    /// The same in a directory that the caller has opened, and may close at once.
    /// @param name without a slash
    bool openIn(int directory, const std::string& name);
    /// Appends to it.
    bool write(std::string_view bytes);
    /// Gives the complete file its name.
    bool commit();

    /// Why the last call has returned false: the text of the system's error.
    [[nodiscard]] const std::string& error() const { return error_; }

  private:
    bool fail();
    bool flush();
    bool openUnnamed();
    bool openNamed();
    bool linkUnnamed();
    bool renameNamed();
    void enlist();
    void strike();
    static void removeAll(int signal);

    // The files that have a temporary name now: a signal that ends the program removes them.
    static OutputFile* first_;
    OutputFile* next_ = nullptr;

    std::string name_;       // in the directory
    std::string temporary_;  // the name until then; "" for a file without one
    std::string buffer_;
    std::string error_;
    FdGuard directory_;
    FdGuard file_;
};

#endif
