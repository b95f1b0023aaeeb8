// Notations of languages and programs for a name and its value: IDENTIFIED BY 'x', lists of words,
// rows of tables, property lists, names of units. Only the units of the filter include this.
#ifndef QUENDIL_TOOL_IGSECRETNOTATION_H
#define QUENDIL_TOOL_IGSECRETNOTATION_H

#include "tool/IGSecretElement.h"
#include "tool/IGSecretNamedLine.h"
#include "tool/IGSecretWord.h"

/// Finds the notations of one line. Each function hides the value that it finds, and returns the
/// place where to continue, or 0 for a name in another notation.
class NotationScan {
  public:
    /// Both must outlive this.
    NotationScan(const NamedLine& named, ElementScan& elements)
        : line_(named.line()), named_(named), elements_(elements) {}

    /// SQL, behind "identified", which ends at `to`.
    std::size_t identified(std::size_t to);
    /// A constant of PHP, behind "define", which ends at `to`.
    std::size_t define(std::size_t to);
    /// A name in the name of a systemd unit, in which a blank is "\x20" and "=" is "\x3d".
    std::size_t escaped(const secret_name& name);
    /// A list of words, a default value, a row of a table, a property list.
    std::size_t mark(const secret_name& name);

  private:
    std::size_t listed(const secret_name& name);
    std::size_t fallback(const secret_name& name);
    std::size_t table(const secret_name& name);
    std::size_t property(const secret_name& name);

    SecretLine& line_;
    const NamedLine& named_;
    ElementScan& elements_;
};

#endif
