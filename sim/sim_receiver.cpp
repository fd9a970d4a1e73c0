#include "sim_receiver.h"

#include <algorithm>
#include <cmath>

namespace qssim {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kSampleRate = 80e6;
constexpr double kIfCentre = 20e6;
constexpr double kLO1Unit = 400e3;
constexpr double kLO2Unit = 5e6;
constexpr int kNoiseTableBits = 16;
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

uint64_t SplitMix(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// 65536 draws of a unit normal variable, corrected to mean 0 and variance 1
// exactly, so that the noise power is what the scene says.
const std::vector<float>& NoiseTable() {
    static const std::vector<float> table = [] {
        std::vector<double> v(size_t{1} << kNoiseTableBits);
        uint64_t state = 0x5EEDC0DEull;
        for (size_t i = 0; i < v.size(); i += 2) {
            const double u1 = (static_cast<double>(SplitMix(state) >> 11) + 0.5) * 0x1.0p-53;
            const double u2 = (static_cast<double>(SplitMix(state) >> 11) + 0.5) * 0x1.0p-53;
            const double r = std::sqrt(-2.0 * std::log(u1));
            v[i] = r * std::cos(2 * kPi * u2);
            v[i + 1] = r * std::sin(2 * kPi * u2);
        }
        double mean = 0, power = 0;
        for (double x : v) mean += x;
        mean /= v.size();
        for (double x : v) power += (x - mean) * (x - mean);
        const double scale = 1.0 / std::sqrt(power / v.size());
        std::vector<float> out(v.size());
        for (size_t i = 0; i < v.size(); ++i) out[i] = static_cast<float>((v[i] - mean) * scale);
        return out;
    }();
    return table;
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

// Adds a tone by rotating phasors from its exact phase at the first sample
// of the packet: eight interleaved ones, each turning by eight samples'
// worth, so that the work is not one long chain of products.
void AddTone(double* acc, int count, int64_t runSample, double cycles, double amp, double phase0) {
    if (amp < 1e-7) return;
    constexpr int kLanes = 8;
    const double start = cycles * static_cast<double>(runSample);
    const double phase = 2 * kPi * (start - std::floor(start)) + phase0;
    double c[kLanes], sn[kLanes];
    for (int k = 0; k < kLanes; ++k) {
        c[k] = amp * std::cos(phase + 2 * kPi * cycles * k);
        sn[k] = amp * std::sin(phase + 2 * kPi * cycles * k);
    }
    const double cw = std::cos(2 * kPi * cycles * kLanes), sw = std::sin(2 * kPi * cycles * kLanes);
    int i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (int k = 0; k < kLanes; ++k) {
            acc[i + k] += c[k];
            const double nc = c[k] * cw - sn[k] * sw;
            sn[k] = sn[k] * cw + c[k] * sw;
            c[k] = nc;
        }
    }
    for (int k = 0; i < count; ++i, ++k) acc[i] += c[k];
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
    : m_factory(factory), m_acc(kSamplesPerPacket) {
    NoiseTable();
}

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
    double* acc = m_acc.data();

    // Noise: white at the converter, at the gain of the step's centre, over
    // the converter's own.
    const double noisePower =
        kAdcNoisePower +
        (s.valid ? std::pow(10.0, (scene.noiseDbmPerHz + CentreGainDb(s, ctx.temperature)) / 10.0) *
                       0.5 * (kSampleRate / 2)
                 : 0.0);
    const double sigma = std::sqrt(noisePower);
    const std::vector<float>& table = NoiseTable();
    uint64_t state = static_cast<uint64_t>(ctx.runSample) * 0x9E3779B97F4A7C15ull ^
                     (uint64_t{m_factory->Serial()} << 17) ^ ctx.noiseKey;
    uint64_t bits = 0;
    for (int i = 0; i < count; ++i) {
        if ((i & 3) == 0) bits = SplitMix(state);
        acc[i] = sigma * table[(bits >> (16 * (i & 3))) & 0xFFFF];
    }

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

    const double offset = ConverterOffset(m_factory->Serial());
    for (int i = 0; i < count; ++i) acc[i] += offset;

    // 14 bits: steps of 4 in the 16-bit word, rounded to the nearest and
    // clipped at full scale.
    double peak = 0.0;
    for (int i = 0; i < count; ++i) peak = std::max(peak, std::fabs(acc[i]));
    m_clipped = peak * 8192.0 > 8191.5;
    for (int i = 0; i < count; ++i) {
        // Adding and taking away 1.5 x 2^52 rounds without a branch, which
        // noise would mispredict half the time.
        const double v = std::clamp(acc[i] * 8192.0, -8192.0, 8191.0);
        const double r = (v + 6755399441055744.0) - 6755399441055744.0;
        out[i] = static_cast<int16_t>(4 * static_cast<int>(r));
    }
}

}  // namespace qssim
