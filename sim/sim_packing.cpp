#include "sim_packing.h"

namespace qssim {

void PackSamples(const int16_t* samples, int count, uint8_t* out) {
    for (int g = 0; g + kSamplesPerGroup <= count; g += kSamplesPerGroup) {
        const uint16_t s0 = static_cast<uint16_t>(samples[g]);
        for (int k = 0; k < 7; ++k) {
            const uint16_t carried = (s0 >> (14 - 2 * k)) & 0x3;
            const uint16_t word =
                static_cast<uint16_t>((static_cast<uint16_t>(samples[g + k + 1]) & 0xFFFC) | carried);
            *out++ = static_cast<uint8_t>(word & 0xFF);
            *out++ = static_cast<uint8_t>(word >> 8);
        }
    }
}

}  // namespace qssim
