// JSON texts of the companion commands.
#ifndef QUENDIL_CHECK_IGCHECKJSON_H
#define QUENDIL_CHECK_IGCHECKJSON_H

#include <string>

#include <nlohmann/json_fwd.hpp>

/// In ASCII and without line ends, so that a terminal may show it; bytes that are not UTF-8 become
/// U+FFFD.
std::string dumped(const nlohmann::ordered_json& value);

#endif
