// The metadata half of a SigMF recording: the core fields that readers of
// the format need, written as JSON.
#pragma once

#include <string>
#include <vector>

namespace qstool {

struct SigmfAnnotation {
    long long sampleStart = 0;
    long long sampleCount = 0;  // 0: left out (a point in the recording)
    std::string label;
    std::string comment;
};

struct SigmfMeta {
    std::string datatype;  // "cf32_le" or "ci16_le"
    double sampleRateHz = 0.0;
    double centerHz = 0.0;
    std::string hardware;   // "Maple 12345678"
    std::string recorder;   // "qs 4.3.0"
    std::string description;
    std::string datetime;   // UTC of the first sample, ISO 8601 with Z
    std::vector<SigmfAnnotation> annotations;  // any order: written sorted
};

// The .sigmf-meta document.
std::string SigmfMetaJson(const SigmfMeta& meta);

// "2026-11-24T23:40:44.123456789Z" from seconds and nanoseconds since 1970.
std::string IsoUtc(long long seconds, long nanos);

}  // namespace qstool
