// The Maple's receiver: where a tone of the scene lands in the converter's
// samples and at what level, checked with a DFT of the samples against the
// gain model and against the library's own reading of the factory image.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <memory>
#include <vector>

#include "calibration/corrections_larch.h"
#include "calibration/corrections_maple.h"
#include "qs_api.h"
#include "qs_sim.h"
#include "settings/settings.h"
#include "settings/sweep_info.h"
#include "sim_calibration.h"
#include "sim_receiver.h"

namespace {

using qssim::Command;
using qssim::FactoryCalibration;
using qssim::ReceiverSource;

constexpr int kN = 16384;                  // transform length of the checks
constexpr double kBin = 80e6 / kN;         // 4882.8125 Hz
constexpr int kIfBin = 4096;               // 20 MHz
constexpr unsigned kSerial = 31415926;

// One LO step of a sweep command, packed as the host packs a Maple's
// control bytes: band bits and attenuator code in byte 3.
Command StepCommand(int rev, int row, double centre, int attenCode, int rough) {
    const qssim::LoRow& r = qssim::MapleLoTable(rev)[row];
    Command c;
    c.headerType = qssim::kCmdConfigure;
    c.commandType = qssim::kCfgSweep;
    c.subBandCount = 1;
    auto& sb = c.subBands[0];
    sb.settings[0] = 1;
    sb.settings[1] = 0x10;
    sb.settings[3] = static_cast<uint8_t>(row == 0 ? attenCode : ((r.band + 1) << 5) + attenCode);
    sb.LO1startFreq = static_cast<uint16_t>(std::floor((centre + r.lo1c) / 400e3 + 0.5));
    sb.LO2Freq = static_cast<uint16_t>(std::floor(r.lo2c / 5e6 + 0.5));
    sb.LO1stepFreq = 50;
    sb.packetsPerFreq = 2;
    sb.stepCount = 1;
    c.roughCorrArray[0] = 1;
    c.roughCorrArray[1] = static_cast<uint8_t>(rough);
    return c;
}

struct Receiver {
    explicit Receiver(int pid) : factory(pid, kSerial), rx(&factory) {}
    std::vector<int16_t> Packet(const Command& c, const qssim::Scene& scene, int step = 0,
                                long long runSample = 0, double temp = 38.0) {
        std::vector<int16_t> out(qssim::kSamplesPerPacket);
        const qssim::PacketContext ctx{&c, 0, step, runSample, 0, temp, 0};
        rx.FillPacket(ctx, scene, out.data(), static_cast<int>(out.size()));
        return out;
    }
    FactoryCalibration factory;
    ReceiverSource rx;
};

// Amplitude (of full scale) of the first kN samples at a bin, rectangular window.
double BinAmplitude(const std::vector<int16_t>& x, double bin) {
    std::complex<double> acc = 0;
    const std::complex<double> w = std::polar(1.0, -2 * M_PI * bin / kN);
    std::complex<double> rot = 1;
    for (int n = 0; n < kN; ++n) {
        acc += (x[n] / 32768.0) * rot;
        rot *= w;
        if ((n & 1023) == 1023) rot /= std::abs(rot);
    }
    return 2.0 * std::abs(acc) / kN;
}

int PeakBin(const std::vector<int16_t>& x, int from, int to) {
    int best = from;
    double top = -1;
    for (int b = from; b <= to; ++b) {
        const double a = BinAmplitude(x, b);
        if (a > top) top = a, best = b;
    }
    return best;
}

double Db(double amplitude) { return 20.0 * std::log10(amplitude); }

qssim::Scene QuietScene(double freq, double dbm) {
    qssim::Scene s;
    s.tones.push_back({freq, dbm});
    s.noiseDbmPerHz = -230.0;
    return s;
}

// What the library makes of a bin: its power in dB (a real tone's bin holds
// a quarter of the amplitude squared) plus its correction.
double LibraryReading(const unsigned char* image, int rev, int gain, int attenIndex, double temp,
                      int row, double centre, double delta, double amplitude, int* roughOut,
                      int* attenCodeOut) {
    qs::CorrectionsMaple corr(rev);
    EXPECT_TRUE(corr.Initialize(image));
    qs::SettingsMaple set;
    qs::SweepInfo info;
    set.m_gain = gain;
    set.m_atten = attenIndex * 10.0;
    corr.Configure(temp, set, info);
    *roughOut = corr.GetRoughGain(row == 0 ? 0.0 : centre);
    const int code = corr.GetAtten(-1);
    *attenCodeOut = code == 0 ? 1 : code;
    const double c = row == 0 ? corr.GetRFCorrection(0, centre + delta)
                              : corr.GetSingleCorrection(row, centre, delta, 0.0);
    return Db(amplitude) - 20.0 * std::log10(2.0) + c;
}

std::vector<unsigned char> ImageOf(const FactoryCalibration& f) {
    std::vector<unsigned char> flash(size_t(qssim::kFlashBytes), 0xFF);
    f.Write(flash.data(), 0x1234);
    return std::vector<unsigned char>(flash.begin() + qssim::kImageFlashOffset,
                                      flash.begin() + qssim::kImageFlashOffset + 12 * 65536);
}

TEST(ReceiverTone, LandsOnItsBinAtTheGainModelsLevelAndReadsBackThroughTheImage) {
    struct Case {
        int pid, row, gain, atten;
        double centre, delta, temp;
        int expectBin;  // 20 MHz + delta, - delta on flipped rows, delta in the low band
    } cases[] = {
        {QSSIM_PID_MAPLE_REV1, 1, 3, 0, 1000e6, 154 * kBin, 38.0, kIfBin + 154},
        {QSSIM_PID_MAPLE_REV1, 1, 1, 2, 400e6, -1200 * kBin, 12.0, kIfBin - 1200},
        {QSSIM_PID_MAPLE_REV1, 2, 2, 1, 2200e6, 154 * kBin, 38.0, kIfBin - 154},   // flipped
        {QSSIM_PID_MAPLE_REV2, 1, 3, 0, 1000e6, 154 * kBin, 61.0, kIfBin - 154},   // flipped on rev 2
        {QSSIM_PID_MAPLE_REV2, 4, 0, 3, 3600e6, 1900 * kBin, 38.0, kIfBin + 1900},
        {QSSIM_PID_MAPLE_REV1, 9, 3, 1, 6100e6, -37 * kBin, 85.0, kIfBin - 37},
        // The low band: the antenna's own frequency, read at the true frequency.
        {QSSIM_PID_MAPLE_REV1, 0, 1, 1, 0.0, 1024 * kBin, 38.0, 1024},
        {QSSIM_PID_MAPLE_REV2, 0, 3, 0, 0.0, 3277 * kBin, 20.0, 3277},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(testing::Message() << "pid " << k.pid << " row " << k.row << " at "
                                        << k.centre << " + " << k.delta);
        Receiver r(k.pid);
        const int rev = qssim::MapleRevOf(k.pid);
        const auto image = ImageOf(r.factory);
        int rough = 0, code = 0;
        // The library's choice of rough gain and attenuator code for the pair.
        LibraryReading(image.data(), rev, k.gain, k.atten, k.temp, k.row, k.centre, 0, 1.0,
                       &rough, &code);
        const double gain = r.factory.Model().MapleGainDb(k.row, k.centre, k.centre + k.delta,
                                                          code, rough, k.temp);
        // A tone 20 dB under full scale, well above the steps of 14 bits.
        const double level = std::round(-20.0 - gain);
        const auto x = r.Packet(StepCommand(rev, k.row, k.centre, code, rough),
                                QuietScene(k.centre + k.delta, level), 0, 0, k.temp);
        EXPECT_EQ(PeakBin(x, k.expectBin - 30, k.expectBin + 30), k.expectBin);
        const double a = BinAmplitude(x, k.expectBin);
        EXPECT_NEAR(Db(a), level + gain, 0.1);
        EXPECT_NEAR(LibraryReading(image.data(), rev, k.gain, k.atten, k.temp, k.row, k.centre,
                                   k.delta, a, &rough, &code),
                    level, 0.1);
    }
}

TEST(ReceiverNoise, PowerMatchesTheDensityAtTheCentreGain) {
    Receiver r(QSSIM_PID_MAPLE_REV1);
    qssim::Scene scene;
    scene.noiseDbmPerHz = -140.0;
    const Command c = StepCommand(1, 1, 700e6, 1, 13);
    double power = 0;
    long n = 0;
    for (int p = 0; p < 4; ++p)
        for (int16_t s : r.Packet(c, scene, 0, p * 18688LL)) power += (s / 32768.0) * (s / 32768.0), ++n;
    const double gain = r.factory.Model().MapleCentreGainDb(1, 700e6, 1, 13, 38.0);
    // Density over the 40 MHz of the real band; half of the power per the
    // converter's scale of a tone.
    EXPECT_NEAR(10 * std::log10(2.0 * power / n / 40e6) - gain, -140.0, 0.5);

    // In the spectrum too: the mean power of the bins around the IF centre.
    const auto x = r.Packet(c, scene);
    double bins = 0;
    for (int b = kIfBin - 200; b < kIfBin + 200; ++b) bins += std::pow(BinAmplitude(x, b), 2) / 4.0;
    bins /= 400;
    // A bin of a rectangular window is kBin wide: a tone's bin holds a^2/4
    // and a density of D dBm/Hz gives 10^((D + gain) / 10) x kBin / 4.
    EXPECT_NEAR(10 * std::log10(4.0 * bins / kBin) - gain, -140.0, 0.5);
}

TEST(ReceiverSamples, AreDeterministicAndPhaseContinuousAcrossPackets) {
    Receiver r(QSSIM_PID_MAPLE_REV2);
    const Command c = StepCommand(2, 5, 4500e6, 5, 14);
    const auto scene = QuietScene(4500e6 + 1.234567e6, -55.0);
    const auto a = r.Packet(c, scene, 0, 0);
    EXPECT_EQ(a, r.Packet(c, scene, 0, 0));
    // A packet that starts halfway through the first repeats its second
    // half's tone; only the converter's noise (1.5 steps of 4 rms) differs.
    const auto half = r.Packet(c, scene, 0, 9344);
    double diff = 0;
    for (int i = 0; i < 9344; ++i) diff += std::pow(a[9344 + i] - half[i], 2);
    EXPECT_LT(std::sqrt(diff / 9344), 4 * 1.5 * std::sqrt(2.0) * 1.2);
    EXPECT_GT(*std::max_element(a.begin(), a.end()), 400);

    // Noise differs from packet to packet.
    qssim::Scene noisy;
    noisy.noiseDbmPerHz = -140.0;
    EXPECT_NE(r.Packet(c, noisy, 0, 0), r.Packet(c, noisy, 0, 18688));
}

TEST(ReceiverStep, RoughGainListAndOscillatorWordsPickTheStep) {
    Receiver r(QSSIM_PID_MAPLE_REV1);
    // Two sub-bands: three steps in row 1, then two in row 2; the rough list
    // gives the first four steps code 13 and the last code 3.
    Command c = StepCommand(1, 1, 1840e6, 1, 13);
    c.subBands[0].stepCount = 3;
    c.subBands[1] = StepCommand(1, 2, 1900e6, 1, 13).subBands[0];
    c.subBands[1].stepCount = 2;
    c.subBandCount = 2;
    c.roughCorrArray[0] = 4;
    c.roughCorrArray[2] = 1;
    c.roughCorrArray[3] = 3;
    const auto s = r.rx.DecodeStep(c, 0, 2);
    EXPECT_EQ(s.row, 1);
    EXPECT_DOUBLE_EQ(s.centreHz, 1880e6);
    EXPECT_EQ(s.roughCode, 13);
    EXPECT_EQ(r.rx.DecodeStep(c, 1, 0).roughCode, 13);
    const auto last = r.rx.DecodeStep(c, 1, 1);
    EXPECT_EQ(last.row, 2);
    EXPECT_TRUE(last.flip);
    EXPECT_DOUBLE_EQ(last.centreHz, 1920e6);
    EXPECT_EQ(last.roughCode, 3);
    EXPECT_EQ(last.attenCode, 1);

    // Row 7 of revision 1 has a second oscillator of its own; row 8 shares
    // row 6's words and is told apart by its range, also 1.6 MHz high.
    EXPECT_EQ(r.rx.DecodeStep(StepCommand(1, 7, 5600e6, 1, 14), 0, 0).row, 7);
    const auto row8 = r.rx.DecodeStep(StepCommand(1, 8, 5640e6 + 1.6e6, 1, 14), 0, 0);
    EXPECT_EQ(row8.row, 8);
    EXPECT_DOUBLE_EQ(row8.centreHz, 5641.6e6);

    // A stream stays at its first step.
    c.commandType = qssim::kCfgStream;
    EXPECT_DOUBLE_EQ(r.rx.DecodeStep(c, 0, 2).centreHz, 1840e6);
}

TEST(ReceiverClock, TimebaseSlotsMoveTheOscillatorsWithTheStatedRatio) {
    Receiver r(QSSIM_PID_MAPLE_REV1);
    ASSERT_TRUE(r.factory.SetTimebaseSlots(3, 50.0));
    const double rho = 1.0 - 50e-6;
    EXPECT_DOUBLE_EQ(r.factory.ClockRatio(), rho);
    // The host plans in true frequency: a tone at rho times the nominal
    // frequency sits where the nominal one would on an exact clock.
    const Command c = StepCommand(1, 1, 1000e6, 1, 13);
    const auto x = r.Packet(c, QuietScene((1000e6 + 300 * kBin) * rho, -50));
    EXPECT_EQ(PeakBin(x, kIfBin + 280, kIfBin + 320), kIfBin + 300);
    const auto off = r.Packet(c, QuietScene(1000e6 + 300 * kBin, -50));
    EXPECT_NE(PeakBin(off, kIfBin + 280, kIfBin + 320), kIfBin + 300);
}

}  // namespace

namespace {

// The library's automatic choice of gain and attenuator on this image keeps
// a tone at the reference level below the converter's full scale, and not
// far below it, at any frequency and on both sides of the temperature
// ladder's range.
TEST(ReceiverRange, AutomaticSettingsFromTheImageFitTheReferenceLevel) {
    for (int pid : {QSSIM_PID_MAPLE_REV1, QSSIM_PID_MAPLE_REV2}) {
        Receiver r(pid);
        const int rev = qssim::MapleRevOf(pid);
        const auto image = ImageOf(r.factory);
        qs::CorrectionsMaple corr(rev);
        ASSERT_TRUE(corr.Initialize(image.data()));
        for (double temp : {25.0, 40.0, 70.0})
            for (double ref = -60.0; ref <= 5.0; ref += 5.0) {
                qs::SettingsMaple set;
                qs::SweepInfo info;
                set.m_gain = QS_GAIN_AUTO;
                set.m_atten = QS_ATTEN_AUTO;
                set.m_reference = ref;
                corr.Configure(temp, set, info);
                const int code = std::max(1, int(corr.GetAtten(-1)));
                for (double centre : {100e6, 1000e6, 2400e6, 4000e6, 5800e6}) {
                    const int row = qssim::MapleRowOf(rev, centre);
                    const double gain = r.factory.Model().MapleCentreGainDb(
                        row, centre, code, corr.GetRoughGain(centre), temp);
                    const double fullScale = -gain;  // dBm of a full-scale tone
                    SCOPED_TRACE(testing::Message() << "pid " << pid << " T " << temp << " ref " << ref
                                                    << " at " << centre << " gain " << corr.GainIndex()
                                                    << " atten " << corr.AttenIndex());
                    EXPECT_GT(fullScale, ref);
                    EXPECT_LT(fullScale, ref + 25.0);
                }
            }
    }
}

}  // namespace

namespace {

// A tone above full scale clips, and the firmware counts the packets that
// did in the trailer's converter overflow count; a quiet scene counts none.
TEST(ReceiverSamples, ClippingStepsTheConverterOverflowCount) {
    for (double level : {-70.0, 0.0}) {
        FactoryCalibration factory(QSSIM_PID_MAPLE_REV1, kSerial);
        qssim::Scene scene = QuietScene(1000e6 + 1e6, level);
        qssim::Firmware fw(QSSIM_PID_MAPLE_REV1, kSerial, &scene);
        fw.SetSampleSource(std::make_unique<ReceiverSource>(&factory));
        // One step of 16 packets in row 1 at 1 GHz, band bits and code 1 in
        // byte 3, rough code 13.
        std::vector<uint8_t> bytes(1024, 0);
        bytes[6] = 1;
        const uint8_t sb[14] = {1, 0x40, 0, (2 << 5) + 1, 0xC8, 0x01, 0x66, 0x21, 50, 0, 16, 0, 1, 0};
        std::memcpy(bytes.data() + 16, sb, sizeof sb);
        bytes[4] = qssim::kCfgSweep;
        bytes[528] = 1;
        bytes[529] = 13;
        fw.OnCommand(bytes.data(), 1024, qssim::Clock::now());
        std::vector<uint8_t> block(8 * qssim::kPacketBytes);
        bool shortPacket = false;
        ASSERT_EQ(fw.Read(1, block.data(), int(block.size()), &shortPacket, qssim::Clock::now()),
                  int(block.size()));
        const uint8_t* last = block.data() + 7 * qssim::kPacketBytes + 32742;
        EXPECT_EQ(last[0] | (last[1] << 8), level > -10.0 ? 8 : 0) << level;
    }
}

}  // namespace

namespace {

// Larch control bytes as the host packs them, for band 0 to 3.
void LarchSettings(uint8_t* settings, int band, int gain, int attenDb) {
    static const uint8_t base[4] = {0x89, 0x48, 0x9A, 0x5A};
    uint8_t b2 = base[band];
    if (gain > 1) b2 ^= band < 1 ? 0x08 : 0x04;
    if (gain == 0) b2 = static_cast<uint8_t>(b2 + 0x20);
    settings[0] = 1;
    settings[1] = 0x10;
    settings[2] = b2;
    settings[3] = static_cast<uint8_t>((gain > 2 ? 0x80 : 0) | 0x40) + attenDb * 2;
}

// A Larch tone goes through its path and IF filter at the model's level,
// and the image's RF and IF tables with the self-calibration's constants
// (the filter's shape less its mean over the middle of the band) read it
// back. The arithmetic is the Larch's correction at points where no
// interpolation is needed (an RF step, an IF table point, a constant), on
// floats read from the image at its offsets.
float ImageFloat(const std::vector<unsigned char>& image, size_t at) {
    float f;
    std::memcpy(&f, image.data() + at, 4);
    return f;
}

TEST(ReceiverLarch, ToneReadsBackThroughImageAndSelfCalibration) {
    Receiver r(QSSIM_PID_LARCH);
    const auto image = ImageOf(r.factory);
    const struct {
        int row, hwBand, gain, atten;
        size_t table;  // offset of the RF table
        int steps, step, ifTable;
        double start, stepSize, centre, delta;
        double lo2Shift;  // both oscillators moved up by this, as a residual step is
    } cases[] = {
        {2, 1, 2, 1, 132352, 116, 52, 1, 1990e6, 10e6, 2500e6, 10e6, 0.0},   // band1
        {3, 2, 3, 0, 191744, 166, 21, 2, 3150e6, 10e6, 3360e6, 0.0, 0.0},    // band2; LO1 in 200 kHz
        {0, 0, 1, 2, 31488, 197, 38, 0, 20e6, 10e6, 405e6, -5e6, 0.0},       // band0C
        // The front IF filter sees the tone 10 MHz lower: the IF table is
        // read 10 MHz further from its start.
        {2, 1, 2, 1, 132352, 116, 52, 1, 1990e6, 10e6, 2500e6, 10e6, 10e6},
    };
    const int t = 3;  // 30 degrees, a table temperature
    for (const auto& k : cases) {
        SCOPED_TRACE(k.centre);
        const qssim::LoRow& lo = qssim::LarchLoTable()[k.row];
        Command c;
        c.headerType = qssim::kCmdConfigure;
        c.commandType = qssim::kCfgSweep;
        c.subBandCount = 1;
        LarchSettings(c.subBands[0].settings, k.hwBand, k.gain, 10 * k.atten);
        const double unit = k.hwBand > 1 ? 200e3 : 100e3;
        c.subBands[0].LO1startFreq =
            static_cast<uint16_t>(std::lround((k.centre + k.lo2Shift + lo.lo1c) / unit));
        c.subBands[0].LO2Freq = static_cast<uint16_t>(std::lround((lo.lo2c + k.lo2Shift) / 100e3));
        c.subBands[0].packetsPerFreq = 1;
        c.subBands[0].stepCount = 1;
        const auto s = r.rx.DecodeStep(c, 0, 0);
        ASSERT_TRUE(s.valid);
        EXPECT_EQ(s.row, k.row);
        EXPECT_EQ(s.gain, k.gain);
        EXPECT_EQ(s.attenIndex, k.atten);

        const double f = k.centre + k.delta;
        const double gain = r.factory.Model().LarchGainDb(k.row, k.centre, f, k.delta, k.gain,
                                                          k.atten, 30.0, k.lo2Shift);
        const double level = std::round(-20.0 - gain);
        const auto x = r.Packet(c, QuietScene(f, level), 0, 0, 30.0);
        const int bin = kIfBin + static_cast<int>(std::lround(k.delta / kBin));
        EXPECT_EQ(PeakBin(x, bin - 20, bin + 20), bin);
        const double a = BinAmplitude(x, bin);
        EXPECT_NEAR(Db(a), level + gain, 0.1);

        ASSERT_NEAR(k.start + k.step * k.stepSize, f, 1.0);
        const double rfTerm = ImageFloat(
            image, k.table + 4 * (size_t((k.atten * 4 + k.gain) * 8 + t) * k.steps + k.step));
        const int ifIndex = static_cast<int>(std::lround((30e6 - k.delta + k.lo2Shift) / 200e3));
        const double ifTerm = ImageFloat(image, 358656 + 9632 * k.ifTable + 4 * (t * 301 + ifIndex));
        const double selfCal = r.factory.Model().LarchSelfCalIfDb(k.delta) -
                               r.factory.Model().LarchSelfCalMeanDb();
        EXPECT_NEAR(Db(a) - 20 * std::log10(2.0) + rfTerm - ifTerm - selfCal, level, 0.1);
    }
}

// With its IF filter moved off centre, a Larch's tone still reads back at
// its level through the library's own corrections: the image written for
// that device, and self-calibration constants of the moved shape less its
// mean over the middle of the band. Tones across the band, out to its
// edges where a move shows most, with and without the move.
TEST(ReceiverLarch, AMovedIfFilterReadsBackThroughTheLibrarysCorrections) {
    for (double centreHz : {0.0, 700e3}) {
        SCOPED_TRACE(centreHz);
        Receiver r(QSSIM_PID_LARCH);
        ASSERT_TRUE(r.factory.SetLarchIfCentre(centreHz));
        const auto image = ImageOf(r.factory);
        const qssim::GainModel& m = r.factory.Model();
        qs::CorrectionsLarch corr;
        ASSERT_TRUE(corr.Initialize(image.data()));
        double constants[576];
        for (int i = 0; i < 576; ++i)
            constants[i] = m.LarchSelfCalIfDb(-11.25e6 + i * 39062.5) - m.LarchSelfCalMeanDb();
        corr.SetSelfCalConstants(constants);
        qs::SettingsLarch set;
        set.SetGain(2);
        set.SetAtten(10.0);
        qs::SweepInfo info;
        corr.Configure(30.0, set, info);

        const double rfCentre = 2500e6;  // row 2, hardware band 1
        const qssim::LoRow& lo = qssim::LarchLoTable()[2];
        Command c;
        c.headerType = qssim::kCmdConfigure;
        c.commandType = qssim::kCfgSweep;
        c.subBandCount = 1;
        LarchSettings(c.subBands[0].settings, 1, 2, 10);
        c.subBands[0].LO1startFreq = static_cast<uint16_t>(std::lround((rfCentre + lo.lo1c) / 100e3));
        c.subBands[0].LO2Freq = static_cast<uint16_t>(std::lround(lo.lo2c / 100e3));
        c.subBands[0].packetsPerFreq = 1;
        c.subBands[0].stepCount = 1;
        for (double delta : {-9.5e6, -4.0e6, 0.0, 6.0e6, 9.5e6}) {
            SCOPED_TRACE(delta);
            const double level = -40.0;
            const auto x = r.Packet(c, QuietScene(rfCentre + delta, level), 0, 0, 30.0);
            const double a = BinAmplitude(x, kIfBin + delta / kBin);
            const double reading = Db(a) - 20 * std::log10(2.0) + corr.GetSingleCorrection(2, rfCentre, delta, 0.0);
            EXPECT_NEAR(reading, level, 0.1);
        }
    }
}

// The capture command of the self-calibration sweeps the internal tone:
// side 1, step 100 is 3.90625 MHz above the IF centre, at the shape of the
// filter it measures; the antenna's tones stay out.
TEST(ReceiverLarch, CaptureSweepsTheCalibrationToneAcrossTheIf) {
    Receiver r(QSSIM_PID_LARCH);
    Command c;
    c.headerType = qssim::kCmdCapture;
    c.commandType = 1;
    c.subBandCount = 1;
    const uint8_t cal[4] = {1, 0, 0x89, 0x7C};
    std::memcpy(c.subBands[0].settings, cal, 4);
    c.subBands[0].LO2Freq = 23000;
    c.subBands[0].LO1startFreq = 24400;
    c.subBands[0].packetsPerFreq = 1;
    c.subBands[0].stepCount = 288;
    const auto x = r.Packet(c, QuietScene(1e6, -10.0), 100);
    const int bin = kIfBin + 800;  // 3.90625 MHz
    EXPECT_EQ(PeakBin(x, kIfBin - 2400, kIfBin + 2400), bin);
    EXPECT_NEAR(Db(BinAmplitude(x, bin)), -20.0 + r.factory.Model().LarchSelfCalIfDb(3.90625e6), 0.05);
}

}  // namespace

namespace {

// Both oscillators moved by the same 10 MHz (the host's second-LO offset)
// leave a tone where it was in the converter's band and at the same level.
TEST(ReceiverStep, OscillatorsMovedTogetherLeaveTheToneInPlace) {
    Receiver r(QSSIM_PID_MAPLE_REV1);
    const auto scene = QuietScene(1000e6 + 300 * kBin, -50.0);
    const Command plain = StepCommand(1, 1, 1000e6, 1, 13);
    Command moved = plain;
    moved.subBands[0].LO1startFreq += 25;  // 10 MHz in 400 kHz
    moved.subBands[0].LO2Freq += 2;        // 10 MHz in 5 MHz
    const auto a = r.Packet(plain, scene), b = r.Packet(moved, scene);
    EXPECT_EQ(PeakBin(b, kIfBin + 250, kIfBin + 350), kIfBin + 300);
    EXPECT_NEAR(Db(BinAmplitude(b, kIfBin + 300)), Db(BinAmplitude(a, kIfBin + 300)), 0.01);
}

}  // namespace
