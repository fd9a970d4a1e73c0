// The simulator's packer leaves a partial group unwritten. Its bit layout
// is checked against an unpacker written from the wire description by the
// wire fuzz target (tests/fuzz/wire_fuzz.cpp), over any bytes and samples.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "sim_packing.h"

namespace {

TEST(Packing, StopsAtTheLastWholeGroup) {
    std::vector<int16_t> samples(12, int16_t(-4));
    std::vector<uint8_t> bytes(28, 0x55);
    qssim::PackSamples(samples.data(), 12, bytes.data());
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 14), std::vector<uint8_t>(14, 0xFF));
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 14, bytes.end()), std::vector<uint8_t>(14, 0x55));
}

}  // namespace
