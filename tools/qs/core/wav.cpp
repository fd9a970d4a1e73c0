#include "core/wav.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace qstool {

namespace {

void Put16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

void Put32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

constexpr uint32_t kUnknownSize = std::numeric_limits<uint32_t>::max() - 36;

}  // namespace

WavWriter::WavWriter(FILE* out, int sampleRate, int channels) : m_out(out), m_rate(sampleRate), m_channels(channels) {
    m_ok = WriteHeader(kUnknownSize);
}

bool WavWriter::WriteHeader(uint32_t dataBytes) {
    uint8_t h[44];
    std::memcpy(h, "RIFF", 4);
    Put32(h + 4, 36 + dataBytes);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    Put32(h + 16, 16);
    Put16(h + 20, 1);  // PCM
    Put16(h + 22, static_cast<uint16_t>(m_channels));
    Put32(h + 24, static_cast<uint32_t>(m_rate));
    Put32(h + 28, static_cast<uint32_t>(m_rate * m_channels * 2));
    Put16(h + 32, static_cast<uint16_t>(m_channels * 2));
    Put16(h + 34, 16);
    std::memcpy(h + 36, "data", 4);
    Put32(h + 40, dataBytes);
    return std::fwrite(h, 1, sizeof h, m_out) == sizeof h;
}

bool WavWriter::Write(const float* samples, size_t count) {
    int16_t pcm[1024];
    while (count > 0) {
        const size_t n = std::min(count, sizeof pcm / sizeof pcm[0]);
        for (size_t i = 0; i < n; ++i) {
            const float v = std::isfinite(samples[i]) ? std::clamp(samples[i], -1.0f, 1.0f) : 0.0f;
            pcm[i] = static_cast<int16_t>(std::lrint(v * 32767.0f));
        }
        m_ok = m_ok && std::fwrite(pcm, 2, n, m_out) == n;
        m_bytes += 2 * n;
        samples += n;
        count -= n;
    }
    return m_ok;
}

bool WavWriter::Finish() {
    m_ok = std::fflush(m_out) == 0 && m_ok;
    // A pipe cannot seek: its reader takes the data as it comes.
    if (m_bytes <= kUnknownSize && std::fseek(m_out, 0, SEEK_SET) == 0) {
        m_ok = WriteHeader(static_cast<uint32_t>(m_bytes)) && m_ok;
        m_ok = std::fseek(m_out, 0, SEEK_END) == 0 && m_ok;
        m_ok = std::fflush(m_out) == 0 && m_ok;
    }
    return m_ok;
}

}  // namespace qstool
