#include "dsp/sample_unpack.h"

#include <cstdint>
#include <cstring>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "sample words are read in host order; the wire is little-endian");

namespace qs {

namespace {

// One group: seven words in, eight samples out.
template <typename T, typename Conv>
inline void UnpackGroup(const uint8_t* src, T* dst, Conv conv) {
    uint16_t w[UNPACK_GROUP_WORDS];
    std::memcpy(w, src, sizeof w);
    const uint16_t s0 = static_cast<uint16_t>(
        ((w[0] & 3u) << 14) | ((w[1] & 3u) << 12) | ((w[2] & 3u) << 10) | ((w[3] & 3u) << 8) |
        ((w[4] & 3u) << 6) | ((w[5] & 3u) << 4) | ((w[6] & 3u) << 2));
    dst[0] = conv(static_cast<int16_t>(s0));
    for (int k = 0; k < UNPACK_GROUP_WORDS; ++k)
        dst[k + 1] = conv(static_cast<int16_t>(w[k] & 0xFFFCu));
}

constexpr int kGroupBytes = UNPACK_GROUP_WORDS * 2;

// A lambda, not a function pointer, so that it inlines into the group.
constexpr auto AsShort = [](int16_t v) -> short { return v; };

}  // namespace

void unpack_to_short(const void* src, short* dst) {
    const auto* in = static_cast<const uint8_t*>(src);
    // Two independent groups per round give the compiler room to overlap
    // the bit assembly of one with the stores of the other.
    for (int round = 0; round < UNPACK_GROUPS / 2; ++round) {
        UnpackGroup(in, dst, AsShort);
        UnpackGroup(in + kGroupBytes, dst + UNPACK_GROUP_SAMPLES, AsShort);
        in += 2 * kGroupBytes;
        dst += 2 * UNPACK_GROUP_SAMPLES;
    }
}

void unpack_to_short_old(const void* src, short* dst) {
    const auto* in = static_cast<const uint8_t*>(src);
    for (int g = 0; g < UNPACK_GROUPS; ++g)
        UnpackGroup(in + g * kGroupBytes, dst + g * UNPACK_GROUP_SAMPLES, AsShort);
}

void unpack_to_double(const void* src, double* dst) {
    const auto* in = static_cast<const uint8_t*>(src);
    auto conv = [](int16_t v) { return v * UNPACK_SCALE_64F; };
    for (int g = 0; g < UNPACK_GROUPS; ++g)
        UnpackGroup(in + g * kGroupBytes, dst + g * UNPACK_GROUP_SAMPLES, conv);
}

void unpack_to_float(const void* src, float* dst) {
    const auto* in = static_cast<const uint8_t*>(src);
    auto conv = [](int16_t v) { return v * UNPACK_SCALE_32F; };
    for (int g = 0; g < UNPACK_GROUPS; ++g)
        UnpackGroup(in + g * kGroupBytes, dst + g * UNPACK_GROUP_SAMPLES, conv);
}

}  // namespace qs
