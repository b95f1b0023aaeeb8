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
    /// Without commit(), nothing is left.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Begins a file of mode 0600 in the directory of the path, where nothing may have this name.
    bool open(const std::string& path);
    /// Appends to it.
    bool write(std::string_view bytes);
    /// Gives the complete file its name.
    bool commit();

    /// Why the last call has returned false: the text of the system's error.
    [[nodiscard]] const std::string& error() const { return error_; }

  private:
    bool fail();
    bool flush();
    bool openNamed();
    bool linkUnnamed();
    bool renameNamed();

    std::string name_;       // in the directory
    std::string temporary_;  // the name until then; "" for a file without one
    std::string buffer_;
    std::string error_;
    FdGuard directory_;
    FdGuard file_;
};

#endif
