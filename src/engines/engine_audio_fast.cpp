#include "engines/engine_audio_fast.h"

#include <cmath>
#include <cstddef>
#include <exception>
#include <vector>

#include "qs_api.h"

namespace qs {

namespace {

constexpr double kSampleRate = 80e6;
constexpr double kTwoPi = 6.283185307179586;
// The phase unwrap of FMDemod uses this shorter value of 2 pi.
constexpr double kUnwrap = 6.2831853071796;
constexpr double kPi = 3.141592653589793;
constexpr int kResampleTaps = 256;
// All resampler filters cut off at 0.08 of their rate.
constexpr double kResampleCutoff = 0.08;
// The channel filter's width: 250 kHz at 80 MHz, down to 312.5 kHz complex.
constexpr int kChannelScale = 7;
constexpr double kChannelWidth = 0.003125;
constexpr double kChannelRate = 312500.0;
constexpr double kAudioRate = 32000.0;

// Leaves v in [lo, hi]; a value that is not a number takes lo.
void Clamp(double& v, double lo, double hi) {
    if (!(v >= lo)) v = lo;
    if (v > hi) v = hi;
}

void ResampleTaps(std::vector<Ipp32f>& taps) {
    taps.assign(kResampleTaps, 0.0f);
    FIRGenTaps_32f(kResampleCutoff, taps.data(), kResampleTaps, ippWinBlackman, ippTrue, lowPassFilter);
}

}  // namespace

AudioEngineFast::AudioEngineFast(double initLOFreq, AudioConfig audioSettings, bool flip, bool isDirect)
    : LOFreq(initLOFreq), directRF(isDirect), flipSpectrum(flip) {
    inputBuffer.malloc(INPUT_BUFFER_SZ);
    outputBuffer.malloc(DEMOD_STEPS * RETURN_SZ);
    demodBuffer.malloc(DEMOD_BUF_SIZE);
    tempAudio1.malloc(DEMOD_LEN);
    tempAudio2.malloc(DEMOD_LEN);

    CheckSettings(audioSettings);
    m_settings[0] = audioSettings;
    m_settings[1] = audioSettings;
    m_activeSettings = 0;
    programRunning = true;

    directMixBuf.malloc(2 * INPUT_STEP_SZ);
    double mix = 0.0;
    const double centre = ChannelCentre(audioSettings.freq, &mix);
    if (directRF) {
        directMixFreq = mix;
        BuildMixTable(0, mix);
    }
    SetupFilters(audioSettings, centre);

    std::vector<Ipp32f> taps;
    ResampleTaps(taps);
    audioLowPass.SetTaps(taps.data(), kResampleTaps, 1, 5, DEMOD_LEN);
    lowPassResample1.SetTaps(taps.data(), kResampleTaps, 4, 5, 8000);
    lowPassResample2.SetTaps(taps.data(), kResampleTaps, 4, 5, 6400);
    lowPassResample3.SetTaps(taps.data(), kResampleTaps, 4, 5, 5120);

    hilbertCoeffs.malloc(HILBERT_TAPS + 1);
    hilbertDataIn.malloc(DEMOD_LEN);
    hilbertDataOut.malloc(DEMOD_LEN);
    hilbertDelayRe.malloc(HILBERT_DELAY + 1);
    ippsZero_64f(hilbertDelayRe.ptr, HILBERT_DELAY + 1);
    for (int i = 0; i < HILBERT_TAPS; ++i)
        hilbertCoeffs[i] = (i % 2) ? 0.0 : 0.6366197723675394 / double(i - HILBERT_DELAY);
    hilbertCoeffs[HILBERT_TAPS] = 0.0;
    ippsWinBlackmanStd_64f_I(hilbertCoeffs.ptr, HILBERT_TAPS);
    hilbertState.SetTaps(hilbertCoeffs.ptr, HILBERT_TAPS);

    filterThread = std::thread(&AudioEngineFast::FilterThread, this);
}

AudioEngineFast::~AudioEngineFast() {
    // The large counts free any waiter: a Get in progress copies one block
    // and returns, the filter thread sees the flag.
    programRunning = false;
    inputAvailable = INPUT_BUFFER_SZ;
    demodAvailable = 0;
    resultsAvailable = DEMOD_STEPS * RETURN_SZ;
    inputReady.notify();
    outputReady.notify();
    if (filterThread.joinable()) filterThread.join();
}

void AudioEngineFast::CheckSettings(AudioConfig& s) {
    Clamp(s.high_pass_freq, 20.0, 1000.0);
    Clamp(s.low_pass_freq, 1000.0, 12000.0);
    Clamp(s.if_bw, 500.0, 250000.0);
    Clamp(s.deemphasis, 1.0, 100.0);
}

int AudioEngineFast::IFFilterTaps(double if_bw) {
    // Narrow channels need the longer filter for their steeper edges.
    if (if_bw < 1000.0) return 8192;
    if (if_bw < 2000.0) return 4096;
    if (if_bw < 3000.0) return 2048;
    return 1024;
}

double AudioEngineFast::ChannelCentre(double freq, double* mixCycles) const {
    if (directRF) {
        // The tone is rounded to a whole number of cycles per block, so one
        // table serves every block.
        const double q = std::floor(double(INPUT_STEP_SZ) * freq / kSampleRate + 0.5) / double(INPUT_STEP_SZ);
        if (mixCycles) *mixCycles = 0.25 - q;
        return freq / kSampleRate + (0.25 - q);
    }
    const double d = (LOFreq - freq) / kSampleRate;
    return flipSpectrum ? 0.25 + d : 0.25 - d;
}

void AudioEngineFast::BuildMixTable(int slot, double mixCycles) {
    float* table = directMixBuf.ptr + size_t(slot) * INPUT_STEP_SZ;
    for (int i = 0; i < INPUT_STEP_SZ; ++i) table[i] = float(std::sin(double(i) * mixCycles * kTwoPi));
}

void AudioEngineFast::SetupFilters(const AudioConfig& s, double centre) {
    // Everything new is built before anything old goes, so a failure
    // leaves the filters in force; the old channel filter's workers end
    // only after the new filter runs.
    std::unique_ptr<FastFIR_32f> channel(new FastFIR_32f(kChannelScale, centre, kChannelWidth, false));
    std::unique_ptr<iir_32f> highPass(
        new iir_32f(s.high_pass_freq / kAudioRate, 0.2, 1, ippChebyshev1, highPassFilter));
    // 0.50928 ~ 1e6 / (2 pi 312500): deemphasis acts as a time constant in
    // microseconds at the filter's rate.
    std::unique_ptr<iir_32f> deemph(new iir_32f(0.50928 / s.deemphasis, 0.2, 1, ippButterworth, lowPassFilter));
    const int n = IFFilterTaps(s.if_bw);
    std::vector<Ipp32fc> ifTaps(static_cast<size_t>(n));
    FIRGenLowpass_32fc(s.if_bw / kChannelRate * 0.5, ifTaps.data(), n, ippWinBlackman, ippTrue);

    IFLowPass.SetTaps(ifTaps.data(), n);
    audioLowPass.Reset();
    fastFIR.swap(channel);
    audioHighPass.swap(highPass);
    deemphasis.swap(deemph);
}

// ------------------------------------------------------------ Interface thread

int AudioEngineFast::Store(const Block& block) {
    if (!programRunning.load()) return 0;
    // The step to be written must not reach unread input, nor the filter
    // step in hand, which has already left inputAvailable. A filter thread
    // that far behind costs this block: counted, never waited for, and
    // never a block overwritten under the filter's feet.
    if (inputAvailable.load() > INPUT_BUFFER_SZ - FILTER_IN_SZ - INPUT_STEP_SZ) {
        droppedSteps.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }
    float* dst = inputBuffer.ptr + size_t(inLoc) * INPUT_STEP_SZ;
    ippsConvert_16s32f_Sfs(block.samples, dst, INPUT_STEP_SZ, 15);
    // The real mix lifts the wanted signal to around a quarter of the rate.
    if (directRF) ippsMul_32f_I(directMixBuf.ptr + size_t(directMixSlot.load()) * INPUT_STEP_SZ, dst, INPUT_STEP_SZ);
    inputAvailable += INPUT_STEP_SZ;
    inputReady.notify();
    if (++inLoc == INPUT_STEPS) inLoc = 0;
    return 0;
}

// ------------------------------------------------------------ Application's thread

bool AudioEngineFast::Get(float* f) {
    if (!programRunning.load()) return false;
    // The semaphore is one bit: a wake-up may be left over from a block
    // already fetched, so the count is looked at again.
    while (resultsAvailable.load() == 0) outputReady.wait();
    bool lost = false;
    const int held = resultsAvailable.load();
    if (held > DEMOD_STEPS - 2) {
        // The writer has lapped the reader or is about to: the oldest
        // blocks are (being) overwritten. Skip to two blocks behind it.
        const int skip = held - (DEMOD_STEPS - 2);
        resultsAvailable -= skip;
        outLoc = (outLoc + skip) % DEMOD_STEPS;
        lost = true;
    }
    ippsCopy_32f(outputBuffer.ptr + size_t(outLoc) * RETURN_SZ, f, RETURN_SZ);
    resultsAvailable -= 1;
    if (++outLoc == DEMOD_STEPS) outLoc = 0;
    const long dropped = DroppedSteps();
    if (dropped != droppedSeen) {
        droppedSeen = dropped;
        lost = true;
    }
    return lost;
}

void AudioEngineFast::UpdateSettings(const AudioConfig& new_config) {
    // Waits out an application in progress, so no update is torn or lost.
    std::lock_guard<std::mutex> hold(settingsLock);
    m_settings[1 - m_activeSettings.load()] = new_config;
    newSettingsReady = true;
}

// ------------------------------------------------------------ Filter thread

void AudioEngineFast::ApplyNewSettings() {
    const int next = 1 - m_activeSettings.load();
    AudioConfig& s = m_settings[next];
    CheckSettings(s);
    double mix = directMixFreq;
    const double centre = ChannelCentre(s.freq, &mix);
    try {
        SetupFilters(s, centre);
    } catch (const std::exception&) {
        // No path leads to the application from here: the update is dropped
        // and the filters in force stay.
        return;
    }
    if (directRF) {
        const int slot = 1 - directMixSlot.load();
        BuildMixTable(slot, mix);
        directMixFreq = mix;
        directMixSlot = slot;
    }
    m_activeSettings = next;
}

void AudioEngineFast::FilterThread() {
    while (programRunning.load()) {
        if (inputAvailable.load() < FILTER_IN_SZ) {
            inputReady.wait();
            continue;
        }
        inputAvailable -= FILTER_IN_SZ;
        Ipp32fc* filtered = demodBuffer.ptr + size_t(filterOutLoc) * FILTER_OUT_SZ;
        fastFIR->Filter(inputBuffer.ptr + size_t(filterInLoc) * FILTER_IN_SZ, filtered);
        IFLowPass.Filter_I(filtered, FILTER_OUT_SZ);
        if (++filterInLoc == FILTER_STEPS) filterInLoc = 0;
        if (++filterOutLoc == FILTER_OUT_STEPS) filterOutLoc = 0;
        demodAvailable += FILTER_OUT_SZ;
        // 40000 samples span 26 filter outputs and part of the next; the
        // ring lengths make sure that no demodulation block wraps.
        if (demodAvailable.load() > DEMOD_LEN - 1) {
            demodAvailable -= DEMOD_LEN;
            DemodAndResample(demodBuffer.ptr + size_t(demodLoc) * DEMOD_LEN,
                             outputBuffer.ptr + size_t(demodLoc) * RETURN_SZ);
            if (++demodLoc == DEMOD_STEPS) demodLoc = 0;
            resultsAvailable += 1;
            outputReady.notify();
        }
        if (newSettingsReady.load()) {
            {
                std::lock_guard<std::mutex> hold(settingsLock);
                ApplyNewSettings();
                newSettingsReady = false;
            }
            if (!programRunning.load()) break;
        }
    }
}

void AudioEngineFast::DemodAndResample(Ipp32fc* in, Ipp32f* out) {
    Ipp32f* a = tempAudio1.ptr;
    Ipp32f* b = tempAudio2.ptr;
    // On a mirrored band the channel is found, but its baseband is still
    // mirrored: upper and lower side band and the sense of FM would swap.
    // The conjugate puts them back.
    if (flipSpectrum) ippsConj_32fc(in, in, DEMOD_LEN);
    switch (m_settings[m_activeSettings.load()].modulation) {
        case QS_DEMOD_AM: AMDemod(in, a); break;
        case QS_DEMOD_FM: FMDemod(in, a); break;
        case QS_DEMOD_USB: SSBDemod(in, a, true); break;
        case QS_DEMOD_LSB: SSBDemod(in, a, false); break;
        default:
            // No demodulator of that kind: silence.
            ippsZero_32f(a, DEMOD_LEN);
            break;
    }
    // 312500 Hz to 32000 Hz is 64 / 625: four decimations by 5 and three
    // zero-stuffings by 4. All lengths divide evenly, so the phase stays 0.
    int len = audioLowPass.Process(a, DEMOD_LEN, b);  // 8000 at 62500 Hz
    len = lowPassResample1.Process(b, len, a);         // 6400 at 50000 Hz
    len = lowPassResample2.Process(a, len, b);         // 5120 at 40000 Hz
    lowPassResample3.Process(b, len, out);             // 4096 at 32000 Hz
    // Each zero-stuffing divided the gain by 4.
    ippsMulC_32f(out, 64.0f, out, RETURN_SZ);
    audioHighPass->IIR_I(out, RETURN_SZ);
}

void AudioEngineFast::AMDemod(Ipp32fc* in, Ipp32f* out) {
    ippsMagnitude_32fc(in, out, DEMOD_LEN);
    // g is a one-pole average of the envelope; the output is the relative
    // modulation around it, so the carrier is removed.
    double g = AMAGC;
    for (int i = 0; i < DEMOD_LEN; ++i) {
        const double x = out[i];
        g = x * 1.562486742023861e-05 + g * 0.9999843751325798;
        out[i] = float((x - g) / g);
    }
    AMAGC = std::isfinite(g) ? g : 0.1;
}

void AudioEngineFast::FMDemod(Ipp32fc* in, Ipp32f* out) {
    ippsPhase_32fc(in, out, DEMOD_LEN);
    // A full-deviation signal gives the same level at any IF bandwidth.
    const float k = float(160000.0 / m_settings[m_activeSettings.load()].if_bw);
    float p = lastPhase;
    for (int i = 0; i < DEMOD_LEN; ++i) {
        const float v = out[i];
        float d = v - p;
        if (double(d) > kPi)
            d = float(d - kUnwrap);
        else if (double(d) < -kPi)
            d = float(d + kUnwrap);
        out[i] = d * k;
        p = v;
    }
    lastPhase = p;
    deemphasis->IIR_I(out, DEMOD_LEN);
}

void AudioEngineFast::SSBDemod(Ipp32fc* in, Ipp32f* out, bool isUpper) {
    ippsMagnitude_32fc(in, out, DEMOD_LEN);
    // The AGC follows a peak at once and falls slowly.
    double g = ssbAMAGC;
    for (int i = 0; i < DEMOD_LEN; ++i) {
        const double x = double(2.0f * out[i]);
        if (x > g)
            g = x;
        else
            g = x * 9.999943273664158e-06 + g * 0.9999900000567263;
    }
    ssbAMAGC = std::isfinite(g) ? g : 0.1;

    // Phasing method: the Hilbert transform of the real arm plus the
    // other arm delayed by the Hilbert filter's delay keeps one side band.
    for (int i = 0; i < DEMOD_LEN; ++i) hilbertDataIn[i] = isUpper ? double(in[i].re) : -double(in[i].re);
    hilbertState.Filter(hilbertDataIn.ptr, hilbertDataOut.ptr, DEMOD_LEN);
    const double agc = ssbAMAGC;
    for (int n = 0; n < HILBERT_DELAY; ++n) out[n] = float((hilbertDataOut[n] + hilbertDelayRe[n]) / agc);
    for (int n = HILBERT_DELAY; n < DEMOD_LEN; ++n)
        out[n] = float((hilbertDataOut[n] + double(in[n - HILBERT_DELAY].im)) / agc);
    for (int i = 0; i < HILBERT_DELAY; ++i) hilbertDelayRe[i] = in[DEMOD_LEN - HILBERT_DELAY + i].im;
}

}  // namespace qs
