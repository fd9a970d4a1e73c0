// The recording formats: SigMF metadata as a JSON reader and a SigMF reader
// take it, and WAV files as a player takes them, also from a pipe.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/realtime_picture.h"
#include "core/sigmf.h"
#include "core/wav.h"

namespace {

uint32_t Le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }

std::vector<uint8_t> ReadAll(FILE* f) {
    std::vector<uint8_t> bytes;
    std::rewind(f);
    uint8_t chunk[4096];
    for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, f)) > 0;) bytes.insert(bytes.end(), chunk, chunk + n);
    return bytes;
}

}  // namespace

TEST(Sigmf, CoreFieldsAndAnnotationsInOrder) {
    qstool::SigmfMeta m;
    m.datatype = "cf32_le";
    m.sampleRateHz = 10e6;
    m.centerHz = 1500000000.5;
    m.hardware = "Maple \"12345678\"";  // quotes must be escaped
    m.recorder = "qs 4.3.0";
    m.datetime = qstool::IsoUtc(1700000000, 5);
    m.annotations = {{500075, 1, "trigger", ""}, {100075, 1, "trigger", ""}, {20, 0, "gap", "lost\nsamples"}};
    const std::string j = qstool::SigmfMetaJson(m);
    for (const char* field : {"\"core:datatype\": \"cf32_le\"", "\"core:sample_rate\": 10000000",
                              "\"core:version\": \"1.0.0\"", "\"core:hw\": \"Maple \\\"12345678\\\"\"",
                              "\"core:recorder\": \"qs 4.3.0\"", "\"core:frequency\": 1500000000.5",
                              "\"core:datetime\": \"2023-11-14T22:13:20.000000005Z\"", "lost\\nsamples"})
        EXPECT_NE(j.find(field), std::string::npos) << field << " in\n" << j;
    const size_t gap = j.find("\"core:sample_start\": 20,"), t1 = j.find("\"core:sample_start\": 100075"),
                 t2 = j.find("\"core:sample_start\": 500075");
    ASSERT_NE(gap, std::string::npos);
    EXPECT_LT(gap, t1);
    EXPECT_LT(t1, t2);
    // Braces and brackets balance outside strings: a parser would take it.
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < j.size(); ++i) {
        if (inString) {
            if (j[i] == '\\') ++i;
            else if (j[i] == '"') inString = false;
            continue;
        }
        if (j[i] == '"') inString = true;
        depth += (j[i] == '{' || j[i] == '[') - (j[i] == '}' || j[i] == ']');
        ASSERT_GE(depth, 0);
    }
    EXPECT_EQ(depth, 0);
    EXPECT_FALSE(inString);
}

TEST(Wav, HeaderSizesSamplesAndClipping) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    qstool::WavWriter wav(f, 32000);
    const float samples[] = {0.0f, 0.5f, -0.5f, 1.5f, -2.0f, NAN};
    ASSERT_TRUE(wav.Write(samples, 6));
    ASSERT_TRUE(wav.Write(samples, 2));
    ASSERT_TRUE(wav.Finish());
    EXPECT_EQ(wav.Frames(), 8u);
    const std::vector<uint8_t> b = ReadAll(f);
    std::fclose(f);
    ASSERT_EQ(b.size(), 44u + 16u);
    EXPECT_EQ(std::memcmp(b.data(), "RIFF", 4), 0);
    EXPECT_EQ(Le32(&b[4]), 36u + 16u);
    EXPECT_EQ(std::memcmp(b.data() + 8, "WAVEfmt ", 8), 0);
    EXPECT_EQ(Le32(&b[24]), 32000u);
    EXPECT_EQ(Le32(&b[28]), 64000u);
    EXPECT_EQ(Le32(&b[40]), 16u);
    const auto pcm = [&](int i) { return int16_t(b[44 + 2 * i] | b[45 + 2 * i] << 8); };
    EXPECT_EQ(pcm(1), 16384);
    EXPECT_EQ(pcm(2), -16384);
    EXPECT_EQ(pcm(3), 32767);
    EXPECT_EQ(pcm(4), -32767);
    EXPECT_EQ(pcm(5), 0);
}

// On a pipe the header cannot be put right afterwards: it says "as long as
// it goes", and the samples follow it unchanged.
TEST(Wav, APipeGetsAnOpenEndedHeader) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    FILE* w = fdopen(fds[1], "wb");
    qstool::WavWriter wav(w, 32000);
    const float samples[] = {0.25f, -0.25f};
    ASSERT_TRUE(wav.Write(samples, 2));
    EXPECT_TRUE(wav.Finish());
    std::fclose(w);
    uint8_t b[64];
    const ssize_t n = read(fds[0], b, sizeof b);
    close(fds[0]);
    ASSERT_EQ(n, 48);
    EXPECT_GT(Le32(&b[40]), 1u << 30);
    EXPECT_EQ(int16_t(b[44] | b[45] << 8), 8192);
}

TEST(RealtimePicture, HeatColoursRunFromBlackToWhite) {
    EXPECT_EQ(qstool::HeatColour(0.0), 0x000000u);
    EXPECT_EQ(qstool::HeatColour(0.25), 0x0000FFu);
    EXPECT_EQ(qstool::HeatColour(0.5), 0xFF0000u);
    EXPECT_EQ(qstool::HeatColour(1.0), 0xFFFFFFu);
    EXPECT_EQ(qstool::HeatColour(7.0), 0xFFFFFFu);
    EXPECT_EQ(qstool::HeatColour(NAN), 0x000000u);
}
