// Numbers as tools print them.
#ifndef QUENDIL_VIEW_IGVIEWNUMBER_H
#define QUENDIL_VIEW_IGVIEWNUMBER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Reads "12", "-3.5", "29%", "252G", "1.5Ti", "12 kB", "3MiB": K, M, G, T, P and E are powers of
/// 1024.
/// @return nothing for another text
std::optional<double> readNumber(std::string_view text);

/// Reads a time.
/// @param format of strptime(3), in the C locale; a time zone in the text is not applied
/// @return seconds since 1970, as if the time were universal time
std::optional<std::int64_t> readDate(std::string_view text, const std::string& format);

/// "5", "12.3": at most one decimal.
std::string shortNumber(double value);

/// "23.5 GiB".
std::string shownBytes(double bytes);

#endif
