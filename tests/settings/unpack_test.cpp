// The sample unpackers against the bit rule, and against a packer written
// here from that rule, over whole random packets.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "dsp/sample_unpack.h"

using namespace qs;

namespace {

constexpr int kPayloadWords = UNPACK_GROUPS * UNPACK_GROUP_WORDS;

// Packs 14-bit samples (two low bits zero) into the wire's little-endian
// words: w(k) carries s(k+1) and, in its low bits, bits 15-2k..14-2k of s0.
std::vector<uint8_t> Pack(const std::vector<uint16_t>& samples, size_t offset = 0) {
    std::vector<uint8_t> bytes(offset + kPayloadWords * 2);
    for (int g = 0; g < UNPACK_GROUPS; ++g) {
        const uint16_t* s = &samples[g * UNPACK_GROUP_SAMPLES];
        for (int k = 0; k < UNPACK_GROUP_WORDS; ++k) {
            const uint16_t w = s[k + 1] | ((s[0] >> (14 - 2 * k)) & 3);
            uint8_t* out = &bytes[offset + (g * UNPACK_GROUP_WORDS + k) * 2];
            out[0] = w & 0xFF;
            out[1] = w >> 8;
        }
    }
    return bytes;
}

// A payload whose first group is the given words and the rest zero.
std::vector<uint8_t> FirstGroup(const uint16_t (&w)[UNPACK_GROUP_WORDS]) {
    std::vector<uint8_t> bytes(kPayloadWords * 2, 0);
    for (int k = 0; k < UNPACK_GROUP_WORDS; ++k) {
        bytes[2 * k] = w[k] & 0xFF;
        bytes[2 * k + 1] = w[k] >> 8;
    }
    return bytes;
}

}  // namespace

TEST(Unpack, AllOnesAndTheTopBitOfS0) {
    const uint16_t ones[] = {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF};
    std::vector<short> out(UNPACK_SAMPLES);
    unpack_to_short(FirstGroup(ones).data(), out.data());
    for (int i = 0; i < 8; ++i) EXPECT_EQ(static_cast<uint16_t>(out[i]), 0xFFFC) << i;
    EXPECT_EQ(out[8], 0);

    const uint16_t w0bit0[] = {1, 0, 0, 0, 0, 0, 0};
    for (auto unpack : {unpack_to_short, unpack_to_short_old}) {
        unpack(FirstGroup(w0bit0).data(), out.data());
        EXPECT_EQ(out[0], 0x4000);
        for (int i = 1; i < 8; ++i) EXPECT_EQ(out[i], 0) << i;
    }
    // The low pair of w6 lands in bits 3-2 of s0.
    const uint16_t w6bits[] = {0, 0, 0, 0, 0, 0, 3};
    unpack_to_short(FirstGroup(w6bits).data(), out.data());
    EXPECT_EQ(out[0], 0x000C);
}

TEST(Unpack, RandomPacketsRoundTripThroughEveryForm) {
    std::mt19937 rng(20261123);
    std::uniform_int_distribution<int> sample(0, 0x3FFF);
    for (size_t offset : {size_t{0}, size_t{1}}) {  // also an odd source address
        std::vector<uint16_t> samples(UNPACK_SAMPLES);
        for (auto& s : samples) s = static_cast<uint16_t>(sample(rng) << 2);
        const std::vector<uint8_t> packed = Pack(samples, offset);
        const uint8_t* src = packed.data() + offset;

        std::vector<short> fast(UNPACK_SAMPLES), old(UNPACK_SAMPLES);
        std::vector<double> d(UNPACK_SAMPLES);
        std::vector<float> f(UNPACK_SAMPLES);
        unpack_to_short(src, fast.data());
        unpack_to_short_old(src, old.data());
        unpack_to_double(src, d.data());
        unpack_to_float(src, f.data());
        for (int i = 0; i < UNPACK_SAMPLES; ++i) {
            const int16_t want = static_cast<int16_t>(samples[i]);
            ASSERT_EQ(fast[i], want) << "sample " << i << " offset " << offset;
            ASSERT_EQ(old[i], want) << "sample " << i;
            ASSERT_NEAR(d[i], want * 3.05008235e-5, 1e-12) << "sample " << i;
            ASSERT_NEAR(f[i], want * 3.0500823e-5, 1e-6) << "sample " << i;
        }
    }
}
