// The simulator's packer against an unpacker written here from the wire
// description, so that a fault in either shows.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "sim_packing.h"

namespace {

// Seven little-endian words carry s1..s7 in their top 14 bits; their two
// low bits, w0 first, are s0's bits 15-14, 13-12, ... 3-2.
std::vector<int16_t> Unpack(const std::vector<uint8_t>& bytes) {
    std::vector<int16_t> samples;
    for (size_t g = 0; g + 14 <= bytes.size(); g += 14) {
        uint16_t words[7];
        uint16_t s0 = 0;
        for (int k = 0; k < 7; ++k) {
            words[k] = static_cast<uint16_t>(bytes[g + 2 * k] | (bytes[g + 2 * k + 1] << 8));
            s0 = static_cast<uint16_t>(s0 | ((words[k] & 0x3) << (14 - 2 * k)));
        }
        samples.push_back(static_cast<int16_t>(s0));
        for (int k = 0; k < 7; ++k) samples.push_back(static_cast<int16_t>(words[k] & 0xFFFC));
    }
    return samples;
}

std::vector<uint8_t> Pack(const std::vector<int16_t>& samples) {
    std::vector<uint8_t> bytes(samples.size() / 8 * 14, 0xAA);
    qssim::PackSamples(samples.data(), static_cast<int>(samples.size()), bytes.data());
    return bytes;
}

TEST(Packing, EdgeGroups) {
    // All samples at -4 (0xFFFC) fill every bit of the seven words.
    EXPECT_EQ(Pack(std::vector<int16_t>(8, int16_t(-4))), std::vector<uint8_t>(14, 0xFF));

    // s0 = 0x4000 alone sets bit 0 of w0 and nothing else.
    std::vector<int16_t> one(8, 0);
    one[0] = 0x4000;
    std::vector<uint8_t> expected(14, 0);
    expected[0] = 0x01;
    EXPECT_EQ(Pack(one), expected);

    // Each pair of s0's bits lands in its own word: 0x0004 is w6's bit 0.
    one[0] = 0x0004;
    expected[0] = 0;
    expected[12] = 0x01;
    EXPECT_EQ(Pack(one), expected);

    // Extremes keep their top 14 bits; the two low bits are the converter's
    // missing ones and vanish.
    const std::vector<int16_t> extremes = {-32768, 32767, 3, -1, 0x7FFC, int16_t(0x8003), 4, -5};
    const std::vector<int16_t> kept = {-32768, 0x7FFC, 0, -4, 0x7FFC, -32768, 4, -8};
    EXPECT_EQ(Unpack(Pack(extremes)), kept);
    EXPECT_EQ(Unpack(std::vector<uint8_t>(14, 0xFF)), std::vector<int16_t>(8, int16_t(-4)));
}

TEST(Packing, RandomRoundTripOfAPacket) {
    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> value(-32768, 32767);
    for (int trial = 0; trial < 20; ++trial) {
        std::vector<int16_t> samples(18688);
        for (auto& s : samples) s = static_cast<int16_t>(value(rng) & ~0x3);
        const std::vector<uint8_t> bytes = Pack(samples);
        ASSERT_EQ(bytes.size(), 32704u);
        ASSERT_EQ(Unpack(bytes), samples) << "trial " << trial;
    }
}

TEST(Packing, StopsAtTheLastWholeGroup) {
    std::vector<int16_t> samples(12, int16_t(-4));
    std::vector<uint8_t> bytes(28, 0x55);
    qssim::PackSamples(samples.data(), 12, bytes.data());
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 14), std::vector<uint8_t>(14, 0xFF));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 14, bytes.end()), std::vector<uint8_t>(14, 0x55));
}

}  // namespace
