// The audio engine: settings clamps, channel centres, the demodulators on
// synthetic baseband, and the whole chain from Store to Get on a synthetic
// band, paced so that the input ring never overruns.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <complex>
#include <memory>
#include <thread>
#include <vector>

#include "engines/audio_test_util.h"
#include "engines/engine_audio_fast.h"

namespace qs {
namespace {

using audio_test::Mean;
using audio_test::Rms;
using audio_test::ToneFrequency;

constexpr int N = AudioEngineFast::DEMOD_LEN;
constexpr double kChannelRate = 312500.0;
constexpr double kAudioRate = 32000.0;
constexpr double kPi = 3.14159265358979323846;

AudioConfig Config(int modulation, double freq, double ifBw) {
    AudioConfig c;
    c.modulation = modulation;
    c.freq = freq;
    c.if_bw = ifBw;
    c.high_pass_freq = 20.0;
    c.low_pass_freq = 12000.0;
    c.deemphasis = 75.0;
    return c;
}

// A complex tone of `hz` at the channel rate, continuing from sample `start`.
void Baseband(std::vector<Ipp32fc>& v, double hz, double amp, long start) {
    v.resize(N);
    for (int i = 0; i < N; ++i) {
        const double ph = 2 * kPi * hz * double(start + i) / kChannelRate;
        v[i] = {float(amp * std::cos(ph)), float(amp * std::sin(ph))};
    }
}

// The demodulators, driven directly; the engine's filter thread idles, as
// no block is stored.
class Demodulators : public ::testing::Test {
protected:
    Demodulators() : engine(100e6, Config(QS_DEMOD_AM, 100e6, 100000.0), false, false), out(N) {}
    AudioEngineFast engine;
    std::vector<Ipp32fc> in;
    std::vector<float> out;
};

TEST_F(Demodulators, AmOfSilenceIsMinusOneAndABrokenAgcStartsAgain) {
    in.assign(N, Ipp32fc{0.0f, 0.0f});
    engine.AMDemod(in.data(), out.data());
    EXPECT_FLOAT_EQ(out[0], -1.0f);
    EXPECT_FLOAT_EQ(out[N - 1], -1.0f);
    // Not-a-number input spoils the AGC; the block's end brings it back to
    // 0.1, so a carrier of 0.1 at once gives 0.
    in.assign(N, Ipp32fc{NAN, 0.0f});
    engine.AMDemod(in.data(), out.data());
    in.assign(N, Ipp32fc{0.1f, 0.0f});
    engine.AMDemod(in.data(), out.data());
    EXPECT_NEAR(out[0], 0.0, 1e-6);
    EXPECT_NEAR(out[N - 1], 0.0, 1e-6);
}

TEST_F(Demodulators, FmGivesLevelProportionalToOffsetWithItsSign) {
    // if_bw 100 kHz: k = 1.6. A tone of offset f turns 2 pi f / 312500 per sample.
    const double offsets[] = {20000.0, -20000.0, 5000.0, -45000.0};
    for (double f : offsets) {
        Baseband(in, f, 0.3, 0);
        engine.FMDemod(in.data(), out.data());
        engine.FMDemod(in.data(), out.data());  // past the deemphasis' rise
        const double expected = 2 * kPi * f / kChannelRate * 1.6;
        EXPECT_NEAR(Mean(out.data() + N / 2, N / 2), expected, 2e-3 * std::fabs(expected) + 1e-4) << f;
    }
}

TEST(AudioEngineFm, APhaseStepAcrossPiIsUnwrapped) {
    // deemphasis 1 us asks for a cut-off beyond half the rate, which the
    // design refuses: the filter passes the samples unchanged.
    AudioConfig c = Config(QS_DEMOD_FM, 100e6, 160000.0);
    c.deemphasis = 1.0;
    AudioEngineFast engine(100e6, c, false, false);
    // One and a half blocks: the second call starts halfway in.
    std::vector<Ipp32fc> in(N + N / 2);
    std::vector<float> out(N);
    for (int i = 0; i < N + N / 2; ++i) {
        const double ph = i < N / 2 ? 3.0 : -3.0;
        in[i] = {float(std::cos(ph)), float(std::sin(ph))};
    }
    engine.FMDemod(in.data(), out.data());
    EXPECT_NEAR(out[N / 2 - 1], 0.0, 1e-5);
    EXPECT_NEAR(out[N / 2], 6.2831853071796 - 6.0, 1e-5);  // +0.28318, not -6
    // The last phase carries into the next block: no step at its start.
    engine.FMDemod(in.data() + N / 2, out.data());
    EXPECT_NEAR(out[0], 0.0, 1e-5);
}

// A real band as the device delivers it: 16-bit blocks at 80 MHz, made of
// tones given in cycles per sample, continuous across blocks.
class BandSource {
public:
    void AddTone(double cycles, double amplitude) { tones[count++] = {cycles, amplitude}; }
    void Next(std::vector<short>& raw) {
        raw.assign(AudioEngineFast::INPUT_STEP_SZ, 0);
        std::vector<double> acc(raw.size(), 0.0);
        for (int k = 0; k < count; ++k) {
            const Tone& t = tones[k];
            // A rotating phasor, anchored afresh at each block.
            const double start = t.cycles * double(sample);
            std::complex<double> p = std::polar(t.amplitude, 2 * kPi * (start - std::floor(start)));
            const std::complex<double> w = std::polar(1.0, 2 * kPi * t.cycles);
            for (size_t i = 0; i < acc.size(); ++i, p *= w) acc[i] += p.real();
        }
        for (size_t i = 0; i < acc.size(); ++i) raw[i] = short(std::lround(acc[i] * 32767.0));
        sample += long(raw.size());
    }

private:
    struct Tone {
        double cycles, amplitude;
    };
    Tone tones[4] = {};
    int count = 0;
    long sample = 0;
};

// Feeds enough blocks for one more audio block and fetches it. Stores stay
// fewer than the input ring ahead of what the filter thread has taken
// (1.75 blocks more per call than an audio block uses).
void NextAudio(AudioEngineFast& e, BandSource& band, std::vector<float>& audio) {
    std::vector<short> raw;
    for (int i = 0; i < 36; ++i) {
        band.Next(raw);
        e.Store(qs::Block{raw.data()});
    }
    audio.assign(AudioEngineFast::RETURN_SZ, 0.0f);
    e.Get(audio.data());
}

TEST(AudioEngineChain, AnUnknownModulationGivesSilence) {
    BandSource band;
    band.AddTone(0.25 + 1000.0 / 8e7, 0.2);
    AudioEngineFast e(100e6, Config(9, 100e6, 3000.0), false, false);
    std::vector<float> audio;
    NextAudio(e, band, audio);
    for (float v : audio) ASSERT_EQ(v, 0.0f);
}

TEST(AudioEngineChain, AFullInputRingDropsBlocksAndCountsThem) {
    BandSource band;
    band.AddTone(0.25 + 1000.0 / 8e7, 0.2);
    AudioEngineFast e(100e6, Config(QS_DEMOD_AM, 100e6, 3000.0), false, false);
    std::vector<short> raw;
    band.Next(raw);
    // 15 s of signal stored in well under a second, where the filter thread
    // needs seconds even at several times real time and on a loaded
    // machine: the ring (96 steps) fills, and what does not fit is dropped,
    // never written over input that the filter has not read. (400 blocks
    // were not enough: on a loaded machine the filter thread kept up.)
    constexpr int kBlocks = 4000;
    for (int i = 0; i < kBlocks; ++i) e.Store(qs::Block{raw.data()});
    EXPECT_GT(e.DroppedSteps(), 0);
    EXPECT_LT(e.DroppedSteps(), kBlocks - 96 + 1);
    std::vector<float> audio(4096);
    e.Get(audio.data());  // what was kept still flows
}

TEST(AudioEngineChain, GetWaitsForAFullBlockOfSignal) {
    BandSource band;
    band.AddTone(0.25 + 1000.0 / 8e7, 0.2);
    AudioEngineFast e(100e6, Config(QS_DEMOD_AM, 100e6, 3000.0), false, false);
    std::vector<short> raw;
    // 40000 samples at 312.5 kHz take 27 filter calls of 393216, which
    // 36 blocks fill and 35 do not.
    for (int i = 0; i < 35; ++i) {
        band.Next(raw);
        e.Store(qs::Block{raw.data()});
    }
    std::atomic<bool> done{false};
    std::vector<float> audio(4096);
    std::thread reader([&] {
        e.Get(audio.data());
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(done.load());
    band.Next(raw);
    e.Store(qs::Block{raw.data()});
    reader.join();
    EXPECT_TRUE(done.load());
}

}  // namespace
}  // namespace qs
