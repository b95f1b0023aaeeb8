// The definitions by which a result is judged: JSON texts, the one that is built in and those of
// the user. docs/formats.md describes them.
#ifndef QUENDIL_VIEW_IGVIEWDEFINITION_H
#define QUENDIL_VIEW_IGVIEWDEFINITION_H

#include <memory>
#include <string>
#include <string_view>

/// The text of the built-in definitions: src/view/definitions.json.
std::string_view builtInDefinitions();

struct DefinitionTable;  // in IGViewTable.h

class Definitions {
  public:
    Definitions();
    ~Definitions();
    Definitions(const Definitions&) = delete;
    Definitions& operator=(const Definitions&) = delete;

    /// Adds the definitions of a JSON text. One with the name of an earlier one replaces it.
    /// @param why in plain words, and with the name of the definition, what is wrong with the text
    /// @return false for a text that is wrong, of which nothing is added
    bool add(std::string_view text, std::string& why);

    [[nodiscard]] const DefinitionTable& table() const { return *table_; }

  private:
    std::unique_ptr<DefinitionTable> table_;
};

#endif
