#include "sim_packing.h"

#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace qssim {

namespace {

// One group: the seven words that carry samples 1 to 7, each with two of
// sample 0's top bits in its low bits.
void PackGroup(const int16_t* s, uint8_t* out) {
    const uint16_t s0 = static_cast<uint16_t>(s[0]);
    uint16_t words[7];
    for (int k = 0; k < 7; ++k) {
        const uint16_t carried = (s0 >> (14 - 2 * k)) & 0x3;
        words[k] = static_cast<uint16_t>((static_cast<uint16_t>(s[k + 1]) & 0xFFFC) | carried);
    }
    std::memcpy(out, words, sizeof words);  // little-endian, as the wire is
}

}  // namespace

void PackSamples(const int16_t* samples, int count, uint8_t* out) {
    int g = 0;
#ifdef __SSE2__
    // Eight lanes at once: sample 0's bits to each lane by a high multiply
    // (s0 x 2^(2k+2) / 2^16 is s0 >> (14 - 2k)), the samples moved down one
    // lane, and 16 bytes stored of which the next group overwrites the last
    // two; the last group goes the plain way, so nothing past the end is
    // written. The device thread spent half its time here byte by byte.
    const __m128i shifts = _mm_setr_epi16(4, 16, 64, 256, 1024, 4096, 16384, 0);
    const __m128i low2 = _mm_set1_epi16(0x3), high14 = _mm_set1_epi16(static_cast<short>(0xFFFC));
    for (; g + 2 * kSamplesPerGroup <= count; g += kSamplesPerGroup) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples + g));
        const __m128i s0 = _mm_shufflelo_epi16(v, 0);
        const __m128i carried = _mm_and_si128(_mm_mulhi_epu16(_mm_unpacklo_epi64(s0, s0), shifts), low2);
        const __m128i rest = _mm_and_si128(_mm_srli_si128(v, 2), high14);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(rest, carried));
        out += 14;
    }
#endif
    for (; g + kSamplesPerGroup <= count; g += kSamplesPerGroup, out += 14) PackGroup(samples + g, out);
}

}  // namespace qssim
