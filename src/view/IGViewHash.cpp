#include "view/IGViewHash.h"

#include <sys/auxv.h>

#include <bit>
#include <cstddef>
#include <cstring>

namespace {

static_assert(std::endian::native == std::endian::little, "words are read as they are in memory");

struct State {
    std::uint64_t v0;
    std::uint64_t v1;
    std::uint64_t v2;
    std::uint64_t v3;

    void round() {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }

    void take(std::uint64_t word) {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
    }
};

// The kernel gives each program 16 random bytes (getauxval(3)).
HashKey keyOfProcess() {
    HashKey key{};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address is what the kernel gives
    if (const void* random = reinterpret_cast<const void*>(getauxval(AT_RANDOM))) {
        std::memcpy(key.data(), random, sizeof(key));
    }
    return key;
}

}  // namespace

std::uint64_t sipHash(const HashKey& key, std::string_view text) {
    State state{key[0] ^ 0x736f6d6570736575, key[1] ^ 0x646f72616e646f6d,
                key[0] ^ 0x6c7967656e657261, key[1] ^ 0x7465646279746573};
    std::uint64_t last = std::uint64_t{text.size()} << 56U;
    for (; text.size() >= sizeof(std::uint64_t); text.remove_prefix(sizeof(std::uint64_t))) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data(), sizeof(word));
        state.take(word);
    }
    std::uint64_t rest = 0;
    std::memcpy(&rest, text.data(), text.size());
    state.take(last | rest);
    state.v2 ^= 0xff;
    for (int i = 0; i < 4; ++i) {
        state.round();
    }
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

std::uint64_t hashOf(std::string_view text) {
    static const HashKey KEY = keyOfProcess();
    return sipHash(KEY, text);
}
