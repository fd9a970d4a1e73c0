// The samples of one packet's payload.
#pragma once

namespace qs {

// Each takes the payload of one packet (32704 bytes, little-endian 16-bit
// words) and writes UNPACK_SAMPLES samples in time order. Seven words carry
// eight 14-bit samples: s1..s7 are w0..w6 with the two low bits cleared,
// and s0 is assembled from those low bit pairs, w0's on top.
// Called on the interface thread: no allocation, no lock.

constexpr int UNPACK_GROUP_WORDS = 7;
constexpr int UNPACK_GROUP_SAMPLES = 8;
constexpr int UNPACK_GROUPS = 2336;
constexpr int UNPACK_SAMPLES = UNPACK_GROUPS * UNPACK_GROUP_SAMPLES;
constexpr double UNPACK_SCALE_64F = 3.05008235e-5;
constexpr float UNPACK_SCALE_32F = 3.0500823e-5f;

// The data path's form: two groups per round.
void unpack_to_short(const void* src, short* dst);
// One group per round; same output.
void unpack_to_short_old(const void* src, short* dst);
// Signed sample times UNPACK_SCALE_64F / UNPACK_SCALE_32F.
void unpack_to_double(const void* src, double* dst);
void unpack_to_float(const void* src, float* dst);

}  // namespace qs
