#include "core/sigmf.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace qstool {

namespace {

std::string Quoted(const std::string& text) {
    std::string out = "\"";
    for (const unsigned char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20) {
                    char esc[8];
                    std::snprintf(esc, sizeof esc, "\\u%04x", c);
                    out += esc;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

// JSON numbers: exact for sample rates and frequencies to the millihertz.
std::string Num(double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", v);
    return text;
}

}  // namespace

std::string IsoUtc(long long seconds, long nanos) {
    std::tm f{};
    const time_t s = static_cast<time_t>(seconds);
    gmtime_r(&s, &f);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%09ldZ", f.tm_year + 1900, f.tm_mon + 1,
                  f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec, nanos);
    return text;
}

std::string SigmfMetaJson(const SigmfMeta& m) {
    std::string j = "{\n  \"global\": {\n";
    j += "    \"core:datatype\": " + Quoted(m.datatype) + ",\n";
    j += "    \"core:sample_rate\": " + Num(m.sampleRateHz) + ",\n";
    j += "    \"core:version\": \"1.0.0\",\n";
    j += "    \"core:num_channels\": 1,\n";
    if (!m.description.empty()) j += "    \"core:description\": " + Quoted(m.description) + ",\n";
    j += "    \"core:hw\": " + Quoted(m.hardware) + ",\n";
    j += "    \"core:recorder\": " + Quoted(m.recorder) + "\n  },\n";
    j += "  \"captures\": [\n    {\n      \"core:sample_start\": 0,\n";
    j += "      \"core:frequency\": " + Num(m.centerHz);
    if (!m.datetime.empty()) j += ",\n      \"core:datetime\": " + Quoted(m.datetime);
    j += "\n    }\n  ],\n  \"annotations\": [";
    std::vector<SigmfAnnotation> sorted = m.annotations;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const SigmfAnnotation& a, const SigmfAnnotation& b) { return a.sampleStart < b.sampleStart; });
    for (size_t i = 0; i < sorted.size(); ++i) {
        const SigmfAnnotation& a = sorted[i];
        j += i ? ",\n" : "\n";
        j += "    {\"core:sample_start\": " + std::to_string(a.sampleStart);
        if (a.sampleCount > 0) j += ", \"core:sample_count\": " + std::to_string(a.sampleCount);
        if (!a.label.empty()) j += ", \"core:label\": " + Quoted(a.label);
        if (!a.comment.empty()) j += ", \"core:comment\": " + Quoted(a.comment);
        j += "}";
    }
    j += sorted.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return j;
}

}  // namespace qstool
