// Numbers that stand for texts where only equality counts.
#ifndef QUENDIL_VIEW_IGVIEWHASH_H
#define QUENDIL_VIEW_IGVIEWHASH_H

#include <array>
#include <cstdint>
#include <string_view>

/// A key of 128 bits.
using HashKey = std::array<std::uint64_t, 2>;

/// SipHash-2-4, 64 bits (J.-P. Aumasson and D. J. Bernstein, "SipHash: a fast short-input PRF",
/// 2012). Who does not know the key cannot make two texts with the same number.
std::uint64_t sipHash(const HashKey& key, std::string_view text);

/// The same with a key that is new in every process. An archive may come from a machine that is not
/// trusted: a line that was changed there must not be taken for the one that it replaces.
std::uint64_t hashOf(std::string_view text);

#endif
