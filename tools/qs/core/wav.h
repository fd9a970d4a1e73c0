// A WAV file of 16-bit PCM, written as audio comes: the header first with
// sizes for "as long as it goes" (what a pipe reader accepts), put right at
// the end when the output can seek.
#pragma once

#include <cstdio>
#include <cstdint>

namespace qstool {

class WavWriter {
public:
    WavWriter(FILE* out, int sampleRate, int channels = 1);
    // Converts samples of -1 to 1 (clipped beyond) and writes them.
    bool Write(const float* samples, size_t count);
    // Sets the sizes in the header where the output allows; true if every
    // write went through.
    bool Finish();
    uint64_t Frames() const { return m_bytes / (2u * static_cast<unsigned>(m_channels)); }

private:
    bool WriteHeader(uint32_t dataBytes);

    FILE* m_out;
    const int m_rate;
    const int m_channels;
    uint64_t m_bytes = 0;
    bool m_ok = true;
};

}  // namespace qstool
