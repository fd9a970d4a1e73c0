#include "sim_receiver.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qssim {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kSampleRate = 80e6;
constexpr double kIfCentre = 20e6;
constexpr double kLO1Unit = 400e3;
constexpr double kLO2Unit = 5e6;
// The converter's own noise, 1.5 steps of 14 bits rms (74.7 dB under full
// scale): even a silent antenna never gives a run of zeros.
constexpr double kAdcNoisePower = (1.5 / 8192.0) * (1.5 / 8192.0);

// The converter's own offset, 2 to 6 steps of 14 bits either way, its own
// in every unit: the feed-through that every direct-sampling receiver shows
// as a line at 0 Hz. (The converted rows' first oscillator stays far from
// their first IF, so its feed-through never reaches a slice.)
double ConverterOffset(unsigned serial) {
    const uint32_t h = serial * 2654435761u;
    const double steps = 2.0 + double((h >> 24) % 5);
    return ((h >> 7) & 1 ? steps : -steps) / 8192.0;
}


bool IsStream(const Command& c) {
    return c.headerType == kCmdConfigure && (c.commandType == kCfgStream || c.commandType == kCfgStreamForce);
}

// The rough gain code of global step k: the run-length list of (count,
// code) pairs, counted from the first step of the command.
int RoughCodeOf(const Command& c, int64_t k) {
    int64_t end = 0;
    int last = 0;
    for (int i = 0; i + 1 < kRoughCorrBytes; i += 2) {
        const int count = c.roughCorrArray[i];
        if (count == 0) continue;
        last = c.roughCorrArray[i + 1];
        end += count;
        if (k < end) return last;
    }
    return last;
}

// The hot loops in single precision, built also for AVX2 and chosen at run
// time: 14-bit samples need no more, and the simulator must outrun the
// device several times over for the end-to-end tests to show a fast engine.
// Not under the thread sanitizer: an indirect function's resolver runs
// before the sanitizer's runtime is up, and the program dies at load.
#if defined(__SANITIZE_THREAD__)
#define QSSIM_HOT
#else
#define QSSIM_HOT __attribute__((target_clones("avx2", "default")))
#endif

// Adds a tone by rotating phasors from its exact phase at the first sample
// of the packet: 32 interleaved ones in four vectors, each turning by 32
// samples' worth, so that four independent chains of products keep the
// vector units busy instead of one long chain. The start is exact (double)
// in every packet, so the single-precision turn drifts no further than one
// packet (under 0.001 dB).
typedef float V8 __attribute__((vector_size(32)));
constexpr int kToneLanes = 32;

QSSIM_HOT void RotateTone(float* acc, int count, const float* c0, const float* s0, float cw, float sw) {
    V8 c[4], sn[4];
    std::memcpy(c, c0, sizeof c);
    std::memcpy(sn, s0, sizeof sn);
    int i = 0;
    for (; i + kToneLanes <= count; i += kToneLanes) {
        for (int v = 0; v < 4; ++v) {
            V8 a;
            std::memcpy(&a, acc + i + 8 * v, sizeof a);
            a += c[v];
            std::memcpy(acc + i + 8 * v, &a, sizeof a);
            const V8 nc = c[v] * cw - sn[v] * sw;
            sn[v] = sn[v] * cw + c[v] * sw;
            c[v] = nc;
        }
    }
    float rest[kToneLanes];
    std::memcpy(rest, c, sizeof rest);
    for (int k = 0; i < count; ++i, ++k) acc[i] += rest[k];
}

void AddTone(float* acc, int count, int64_t runSample, double cycles, double amp, double phase0) {
    if (amp < 1e-7) return;
    const double start = cycles * static_cast<double>(runSample);
    const double phase = 2 * kPi * (start - std::floor(start)) + phase0;
    float c[kToneLanes], sn[kToneLanes];
    for (int k = 0; k < kToneLanes; ++k) {
        c[k] = static_cast<float>(amp * std::cos(phase + 2 * kPi * cycles * k));
        sn[k] = static_cast<float>(amp * std::sin(phase + 2 * kPi * cycles * k));
    }
    RotateTone(acc, count, c, sn, static_cast<float>(std::cos(2 * kPi * cycles * kToneLanes)),
               static_cast<float>(std::sin(2 * kPi * cycles * kToneLanes)));
}

// White noise of deviation sigma for every sample: the sum of four 16-bit
// uniform draws (close to normal, as the sum of many; its tails end at 3.5
// deviations, which no spectrum shows), from a hash of the sample's place
// in the run and the run's key, so that a packet is the same whichever
// order it is made in. Arithmetic only: no table to gather from.
QSSIM_HOT void FillNoise(float* acc, int count, uint32_t first, uint32_t key, float sigma) {
    const float scale = sigma * 1.7320508f / 65536.0f;  // sqrt(3): four uniforms to unit variance
    for (int i = 0; i < count; ++i) {
        uint32_t x = (first + static_cast<uint32_t>(i)) ^ key;
        x ^= x >> 16;
        x *= 0x7FEB352Du;
        x ^= x >> 15;
        x *= 0x846CA68Bu;
        x ^= x >> 16;
        uint32_t y = x ^ 0x9E3779B9u;
        y ^= y >> 16;
        y *= 0x7FEB352Du;
        y ^= y >> 15;
        y *= 0x846CA68Bu;
        y ^= y >> 16;
        const int sum = static_cast<int>((x & 0xFFFF) + (x >> 16) + (y & 0xFFFF) + (y >> 16)) - 131070;
        acc[i] = scale * static_cast<float>(sum);
    }
}

// 14 bits: steps of 4 in the 16-bit word, rounded to the nearest and
// clipped at full scale, the offset added on the way. Returns the largest
// magnitude in converter steps before clipping (8192 and up: it clipped).
// Integer bounds and selects only, so that the loop vectorises.
QSSIM_HOT int Quantise(const float* acc, int count, float offset, int16_t* out) {
    int hi = 0, lo = 0;
    for (int i = 0; i < count; ++i) {
        float scaled = (acc[i] + offset) * 8192.0f;
        // Far enough out to tell a clip, near enough for the rounding trick.
        scaled = scaled > 16384.0f ? 16384.0f : scaled;
        scaled = scaled < -16384.0f ? -16384.0f : scaled;
        // Adding and taking away 1.5 x 2^23 rounds without a branch, which
        // noise would mispredict half the time.
        const int r = static_cast<int>((scaled + 12582912.0f) - 12582912.0f);
        hi = r > hi ? r : hi;
        lo = r < lo ? r : lo;
        int c = r > 8191 ? 8191 : r;
        c = c < -8192 ? -8192 : c;
        out[i] = static_cast<int16_t>(4 * c);
    }
    return hi > -lo ? hi : -lo;
}

// The Larch's residual spurs: hardware band and RF-equivalent frequency,
// at an input-referred level well above the noise of a sweep.
struct LarchSpur {
    int band;
    double rfHz;
};
constexpr LarchSpur kLarchSpurs[] = {{0, 40e6},   {1, 2240e6}, {1, 3080e6},
                                     {2, 4600e6}, {3, 5320e6}, {3, 5600e6}};
constexpr double kLarchSpurDbm = -70.0;

}  // namespace

ReceiverSource::ReceiverSource(const FactoryCalibration* factory)
    : m_factory(factory), m_acc(kSamplesPerPacket) {}

ReceiverStep ReceiverSource::DecodeStep(const Command& command, int subBand, int step) const {
    ReceiverStep s;
    if (subBand < 0 || subBand >= kMaxSubBands) return s;
    if (!IsMaple(m_factory->Model().ProductId())) return DecodeLarchStep(command, subBand, step);
    const SubBand& sb = command.subBands[subBand];
    const bool stream = IsStream(command);
    if (stream) step = 0;
    int64_t k = step;
    if (command.headerType == kCmdConfigure && command.commandType == kCfgTgSweep) {
        // A generator sweep's sub-bands count generator points, and every
        // sub-band after the first starts on an LO step's first point.
        int64_t points = command.TGstartingIndex;
        for (int i = 0; i < subBand; ++i) points += command.subBands[i].stepCount;
        k += points / std::max<int64_t>(1, command.TGCountPerPatch);
    } else {
        for (int i = 0; i < subBand && !stream; ++i) k += command.subBands[i].stepCount;
    }
    s.roughCode = RoughCodeOf(command, k);
    s.attenCode = sb.settings[3] & 0x1F;

    const int hwBand = (sb.settings[3] >> 5) - 1;
    if (hwBand < 0) {  // no band bits: the antenna goes straight to the converter
        s.valid = true;
        return s;
    }
    const uint16_t lo1Word = static_cast<uint16_t>(sb.LO1startFreq + step * sb.LO1stepFreq);
    const double lo1 = lo1Word * kLO1Unit;
    const double lo2 = sb.LO2Freq * kLO2Unit;
    const int rev = m_factory->Model().MapleRev();
    const LoRow* table = MapleLoTable(rev);
    double best = 1e300;
    for (int r = 1; r < kMapleRows; ++r) {
        if (table[r].band != hwBand) continue;
        const double ownLo2 = std::floor(table[r].lo2c / kLO2Unit + 0.5) * kLO2Unit;
        const double centre = lo1 - table[r].lo1c;
        // The row nearest in second oscillator and in range: a host that
        // moves both oscillators a little keeps its row.
        const double cost = std::fabs(lo2 - ownLo2) + std::max(0.0, table[r].minRF - centre) +
                            std::max(0.0, centre - table[r].maxRF);
        if (cost < best) {
            best = cost;
            s.valid = true;
            s.row = r;
            s.centreHz = centre;
            s.flip = table[r].flip;
            s.lo2ErrorHz = lo2 - ownLo2;
        }
    }
    return s;
}

ReceiverStep ReceiverSource::DecodeLarchStep(const Command& command, int subBand,
                                             int step) const {
    ReceiverStep s;
    s.larch = true;
    const SubBand& sb = command.subBands[subBand];
    if (IsStream(command)) step = 0;
    if (command.headerType == kCmdCapture) {
        s.valid = true;
        s.calTone = true;
        s.calOffsetHz = -11.25e6 + (288.0 * (command.commandType & 1) + step) * 39062.5;
        return s;
    }
    // Bytes 2 and 3 as the host packs them, matched against every band,
    // gain and attenuator setting.
    static const uint8_t kBase[4] = {0x89, 0x48, 0x9A, 0x5A};
    int band = -1;
    for (int b = 0; b < 4 && band < 0; ++b)
        for (int g = 0; g < 4 && band < 0; ++g) {
            uint8_t b2 = kBase[b];
            if (g > 1) b2 ^= b < 1 ? 0x08 : 0x04;
            if (g == 0) b2 = static_cast<uint8_t>(b2 + 0x20);
            const uint8_t top = static_cast<uint8_t>((g > 2 ? 0x80 : 0) | 0x40);
            if (sb.settings[2] != b2 || (sb.settings[3] & 0xC0) != top) continue;
            band = b;
            s.gain = g;
        }
    if (band < 0) return s;
    s.attenCode = sb.settings[3] & 0x3F;  // twice the dB
    s.attenIndex = std::min(3, s.attenCode / 20);
    const uint16_t lo1Word = static_cast<uint16_t>(sb.LO1startFreq + step * sb.LO1stepFreq);
    const double lo1 = lo1Word * (band > 1 ? 200e3 : 100e3);
    const double lo2 = sb.LO2Freq * 100e3;
    const LoRow* table = LarchLoTable();
    double best = 1e300;
    for (int r = 0; r < kLarchRows; ++r) {
        if (table[r].band != band) continue;
        const double centre = lo1 - table[r].lo1c;
        const double cost = std::max(0.0, table[r].minRF - centre) + std::max(0.0, centre - table[r].maxRF);
        if (cost < best) {
            best = cost;
            s.valid = true;
            s.row = r;
            s.centreHz = centre;
            s.lo2ErrorHz = lo2 - table[r].lo2c;
        }
    }
    return s;
}

bool ReceiverSource::ToneResponse(const ReceiverStep& s, double rfHz, double celsius,
                                  double* cycles, double* gainDb) const {
    if (!s.valid || s.calTone) return false;
    const GainModel& m = m_factory->Model();
    // The device's oscillators and sample clock all run at ratio rho of
    // nominal: in its own frame the tone sits at rf / rho.
    const double rho = m_factory->ClockRatio();
    const double f = rfHz / rho;
    if (s.larch) {
        const double x = f - s.centreHz + s.lo2ErrorHz;  // no flipped rows
        if (!GainModel::IfPasses(x)) return false;
        *cycles = (kIfCentre + x) / kSampleRate;
        // The RF at the converter's IF centre is the centre the step reads
        // at, which a moved second oscillator moves away from the first's.
        *gainDb = m.LarchGainDb(s.row, (s.centreHz - s.lo2ErrorHz) * rho, rfHz, x, s.gain, s.attenIndex,
                                celsius, s.lo2ErrorHz);
        return true;
    }
    if (s.row == 0) {
        if (f < 0.0 || f > 60e6) return false;
        *cycles = f / kSampleRate;
        *gainDb = m.MapleGainDb(0, 0.0, rfHz, s.attenCode, s.roughCode, celsius);
        return true;
    }
    // The IF filter sits at the second IF, so it sees the tone where the
    // converter does: both oscillators moved together leave it in place.
    const double ifDelta = f - s.centreHz + s.lo2ErrorHz;
    if (!GainModel::IfPasses(ifDelta)) return false;
    *cycles = (kIfCentre + (s.flip ? -1.0 : 1.0) * ifDelta) / kSampleRate;
    *gainDb = m.MapleGainDb(s.row, rfHz - ifDelta * rho, rfHz, s.attenCode, s.roughCode, celsius);
    return true;
}

double ReceiverSource::CentreGainDb(const ReceiverStep& s, double celsius) const {
    const GainModel& m = m_factory->Model();
    if (s.calTone) return m.LarchPathDb(0, 100e6, 1, 3, celsius);
    if (s.larch)
        return m.LarchGainDb(s.row, s.centreHz, s.centreHz, s.lo2ErrorHz, s.gain, s.attenIndex, celsius);
    if (s.row == 0) return m.MapleGainDb(0, 0.0, 10e6, s.attenCode, s.roughCode, celsius);
    return m.MapleCentreGainDb(s.row, s.centreHz * m_factory->ClockRatio(), s.attenCode,
                               s.roughCode, celsius);
}

void ReceiverSource::FillPacket(const PacketContext& ctx, const Scene& scene, int16_t* out,
                                int count) {
    count = std::min(count, static_cast<int>(m_acc.size()));
    const ReceiverStep s = DecodeStep(*ctx.command, ctx.subBand, ctx.step);
    float* acc = m_acc.data();

    // Noise: white at the converter, at the gain of the step's centre, over
    // the converter's own.
    const double noisePower =
        kAdcNoisePower +
        (s.valid ? std::pow(10.0, (scene.noiseDbmPerHz + CentreGainDb(s, ctx.temperature)) / 10.0) *
                       0.5 * (kSampleRate / 2)
                 : 0.0);
    const float sigma = static_cast<float>(std::sqrt(noisePower));
    const uint64_t key64 = (uint64_t{m_factory->Serial()} << 17) ^ ctx.noiseKey ^
                           (static_cast<uint64_t>(ctx.runSample) >> 32) * 0x9E3779B97F4A7C15ull;
    const uint32_t key = static_cast<uint32_t>(key64 ^ (key64 >> 32));
    FillNoise(acc, count, static_cast<uint32_t>(ctx.runSample), key, sigma);

    for (size_t t = 0; t < scene.tones.size(); ++t) {
        double cycles = 0, gainDb = 0;
        if (!ToneResponse(s, scene.tones[t].freqHz, ctx.temperature, &cycles, &gainDb)) continue;
        AddTone(acc, count, ctx.runSample, cycles,
                std::pow(10.0, (scene.tones[t].levelDbm + gainDb) / 20.0), 0.7 * static_cast<double>(t));
    }
    if (ctx.stimulusOn) {
        double cycles = 0, gainDb = 0;
        if (ToneResponse(s, ctx.stimulus.freqHz, ctx.temperature, &cycles, &gainDb))
            AddTone(acc, count, ctx.runSample, cycles, std::pow(10.0, (ctx.stimulus.levelDbm + gainDb) / 20.0), 0.37);
    }
    // The Larch's receiver makes spurs of its own at a few RF-equivalent
    // frequencies, in the steps of its LO plan. A step whose second
    // oscillator runs off its row's own word moves them out of the band.
    if (s.larch && s.valid && !s.calTone && s.lo2ErrorHz == 0.0) {
        for (const LarchSpur& spur : kLarchSpurs) {
            if (LarchLoTable()[s.row].band != spur.band) continue;
            double cycles = 0, gainDb = 0;
            if (!ToneResponse(s, spur.rfHz, ctx.temperature, &cycles, &gainDb)) continue;
            AddTone(acc, count, ctx.runSample, cycles, std::pow(10.0, (kLarchSpurDbm + gainDb) / 20.0), 0.3);
        }
    }
    // The Larch's calibration tone, 20 dB under full scale before the IF
    // filter that it measures.
    if (s.calTone)
        AddTone(acc, count, ctx.runSample, (kIfCentre + s.calOffsetHz) / kSampleRate,
                0.1 * std::pow(10.0, m_factory->Model().LarchSelfCalIfDb(s.calOffsetHz) / 20.0), 0.0);

    m_clipped = Quantise(acc, count, static_cast<float>(ConverterOffset(m_factory->Serial())), out) >= 8192;
}

}  // namespace qssim
