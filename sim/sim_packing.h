// The analyser's sample packing, as its firmware writes it: eight 14-bit
// samples in seven little-endian 16-bit words. Words w0..w6 carry samples
// s1..s7 in their upper 14 bits; the two low bits of each word carry two
// bits of s0, from its top (w0) downwards (w6).
#pragma once

#include <cstdint>

namespace qssim {

constexpr int kSamplesPerGroup = 8;
constexpr int kBytesPerGroup = 14;

// Packs `count` samples (a multiple of 8) into count / 8 * 14 bytes at out.
// The two lowest bits of every sample are dropped, as the converter has
// only 14 bits.
void PackSamples(const int16_t* samples, int count, uint8_t* out);

}  // namespace qssim
