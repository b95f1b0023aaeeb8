// Directives of configuration files: the name of a secret at the start of a line, and its value
// behind a blank. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETDIRECTIVE_H
#define QUENDIL_TOOL_IGSECRETDIRECTIVE_H

#include "tool/IGSecretNamedLine.h"
#include "tool/IGSecretWord.h"

/// Finds the directives of one line.
class DirectiveScan {
  public:
    /// The line must outlive this.
    explicit DirectiveScan(const NamedLine& named) : line_(named.line()), named_(named) {}

    /// Hides what follows a directive: rocommunity x, SetEnv DB_PASSWORD x, the password is x.
    /// @return the place where to continue, or 0 when the name is no directive
    std::size_t mark(const secret_name& name);
    /// Whether the word "password" at a place is that of a line of ".netrc", or has "login me" in
    /// front.
    [[nodiscard]] bool isNetrc(std::size_t from) const;
    /// Hides the rest of such a line, for a password may have blanks.
    /// @return the end of the line
    std::size_t netrc(const secret_name& name);

  private:
    [[nodiscard]] bool isDirective(const secret_name& name, std::size_t rest) const;
    [[nodiscard]] bool isPamType(const secret_name& name, std::size_t rest) const;
    [[nodiscard]] bool isNoValue(const secret_name& name, std::size_t rest) const;
    std::size_t namedValue(std::size_t from);
    std::size_t lineValue(std::size_t from);

    SecretLine& line_;
    const NamedLine& named_;
};

#endif
