// The two forms in which the program writes local time.
#ifndef QUENDIL_COMMON_BASE_IGCMNTIME_H
#define QUENDIL_COMMON_BASE_IGCMNTIME_H

#include <cstddef>

/// Size in bytes of the time text's buffer, enough for any year of a 32-bit count.
inline constexpr std::size_t TIME_STR_SIZE = 64;
/// Size in bytes of the stamp's buffer.
inline constexpr std::size_t TIME_STAMP_SIZE = 64;

/// Writes the local time as "2026/11/15 09:53:18" into `buf` of TIME_STR_SIZE bytes.
void IgCmnGetTimeStr(char* buf);
/// Writes the local time as YYMMDDhhmmss, 12 digits, into `buf` of TIME_STAMP_SIZE bytes.
void IgCmnGetTimeStamp(char* buf);

#endif
