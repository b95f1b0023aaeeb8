// Assignments: password = x, "password": x, password for me: x. Only the units of the filter
// include this.
#ifndef QUENDIL_TOOL_IGSECRETASSIGNMENT_H
#define QUENDIL_TOOL_IGSECRETASSIGNMENT_H

#include "tool/IGSecretElement.h"
#include "tool/IGSecretNamedLine.h"
#include "tool/IGSecretWord.h"

/// Finds the assignments of one line.
class AssignmentScan {
  public:
    /// Both must outlive this.
    AssignmentScan(const NamedLine& named, const ElementScan& elements)
        : line_(named.line()), named_(named), elements_(elements) {}

    /// Hides the value that is assigned to the name of a secret.
    /// @return the place where to continue, or 0 when nothing is assigned to the name
    std::size_t mark(const secret_name& name);

  private:
    bool isOtherKey(const secret_name& name);
    [[nodiscard]] bool isOtherName(const secret_name& name, std::size_t from) const;
    [[nodiscard]] bool isNameServices(std::size_t from) const;
    [[nodiscard]] std::size_t behindSeparator(std::size_t to) const;
    bool opensLines(std::size_t from);

    SecretLine& line_;
    const NamedLine& named_;
    const ElementScan& elements_;
    FirstPlace audit_;  // the mark of a record of the audit system
};

#endif
