// Options of command lines that take a password. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETOPTION_H
#define QUENDIL_TOOL_IGSECRETOPTION_H

#include "tool/IGSecretLine.h"

/// Values of `secret_state::commands` that are not the number of a row of SECRET_PROGRAMS, which
/// counts from 1.
inline constexpr std::uint16_t NO_PROGRAM = 0;         ///< no known program was named yet
inline constexpr std::uint16_t OPEN_PROGRAM = 0xFFFF;  ///< one of OPEN_PROGRAMS was

/// Checks the options of one line. What an option means depends on the program that the line named
/// last.
class OptionScan {
  public:
    explicit OptionScan(SecretLine& line) : line_(line), state_(line.state()) {}

    /// Hides the password that an option takes.
    /// @param from where the option begins, at its dash
    /// @param to where its name ends
    /// @return the place where to continue, or 0 when the option takes no password
    std::size_t mark(std::size_t from, std::size_t to);

    /// Hides the password of a user and a password with a sign between them: me:x, 'me:x y', a=x.
    /// @param from where the user or its quote begins
    /// @return the place behind the password
    std::size_t userAndPassword(std::size_t from);

  private:
    std::size_t programOption(std::size_t from, std::size_t to);
    bool isBind(std::size_t from, std::size_t to);
    std::size_t doubtful(std::size_t from, std::size_t to);
    std::size_t doubtfulPair(std::size_t from, std::size_t to);
    bool isAuditRule();
    [[nodiscard]] std::size_t valueOf(std::size_t from) const;
    std::size_t optionValue(std::size_t from, bool with_user);
    std::size_t literal(std::size_t from);

    SecretLine& line_;
    secret_state& state_;
    FirstPlace audit_;  // the mark of a rule of the audit system
    FirstPlace bind_;   // the user of a directory
};

#endif
