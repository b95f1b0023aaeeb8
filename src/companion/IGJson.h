// JSON texts of the companion commands.
#ifndef QUENDIL_COMPANION_IGJSON_H
#define QUENDIL_COMPANION_IGJSON_H

#include <cstdio>
#include <string>

#include <nlohmann/json_fwd.hpp>

/// In ASCII and without line ends, so that a terminal may show it; bytes that are not UTF-8 become
/// U+FFFD.
std::string dumped(const nlohmann::ordered_json& value);

/// Prints the values of a JSON array one by one, so that very many take no memory. The caller
/// prints the brackets.
class ListWriter {
  public:
    void add(const nlohmann::ordered_json& value);

  private:
    bool first_ = true;
};

/// Prints an object without its closing brace. It must have a member.
void printBeginning(const nlohmann::ordered_json& object);

/// Prints one more member of such an object: a list of what `convert` makes of each entry.
template <typename List, typename Convert>
void printList(const char* name, const List& list, Convert convert) {
    std::printf(",\n\"%s\": [", name);
    ListWriter writer;
    for (const auto& entry : list) {
        writer.add(convert(entry));
    }
    std::printf("\n]");
}

#endif
