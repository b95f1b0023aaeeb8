// The parts of a line that all rules about names need. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETNAMEDLINE_H
#define QUENDIL_TOOL_IGSECRETNAMEDLINE_H

#include "tool/IGSecretLine.h"

/// The start of a line, read once for all names in it. Places are offsets in bytes.
class NamedLine {
  public:
    explicit NamedLine(SecretLine& line);

    [[nodiscard]] SecretLine& line() const { return line_; }
    /// The place of the first byte of the line that is not blank.
    [[nodiscard]] std::size_t first() const { return first_; }
    /// Where the first word of the line begins, behind marks of comments and words such as
    /// "export".
    [[nodiscard]] std::size_t start() const { return start_; }
    /// Where the name of a directive begins.
    [[nodiscard]] std::size_t directive() const { return directive_; }
    /// Whether that name follows a directive that takes a name and a value: SetEnv NAME x.
    [[nodiscard]] bool isNaming() const { return naming_ != 0; }
    /// Whether the line is a comment of a configuration file.
    [[nodiscard]] bool isComment() const {
        return line_.at(first_) == '#' || line_.at(first_) == ';';
    }
    /// Whether the line is one of /etc/passwd and a place has the ":" before the home directory.
    [[nodiscard]] bool isHome(std::size_t place) const;

  private:
    [[nodiscard]] std::size_t behindKeyword(std::size_t from) const;
    [[nodiscard]] std::size_t behindNaming(std::size_t from) const;
    [[nodiscard]] bool isAccount() const;

    SecretLine& line_;
    std::size_t first_ = 0;
    std::size_t start_ = 0;
    std::size_t directive_ = 0;
    std::size_t naming_ = 0;  // where a name begins behind a naming directive; or 0
    bool account_ = false;    // the line is one of /etc/passwd
};

#endif
