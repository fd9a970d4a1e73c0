// The audio engine: picks one channel out of the 20 MHz band that audio mode
// streams, demodulates it (AM, FM, upper or lower side band) and delivers
// 32 kHz audio in blocks of 4096 floats, one block per 128 ms of signal.
//
// Three parties share one engine:
//  - the interface thread, in Store through Device::StoreData: converts the
//    block into the input ring (and, on the direct RF path, mixes it with a
//    fixed table), counts it and wakes the filter thread. No allocation, no
//    lock but the semaphore's own for its notify, never a wait;
//  - the filter thread (FilterThread, with the two workers of fastFIR):
//    channel filter down to 312.5 kHz complex, IF filter, and per 40000
//    samples one demodulation and resampling into the output ring; it also
//    applies new settings between two filter blocks;
//  - the application's thread: Get (through Device::GetAudio) and
//    UpdateSettings (through Device::UpdateAudioSettings).
//
// The three counters decide the flow; the semaphores only wake. A filter
// thread that falls a whole input ring (about 0.36 s) behind loses the
// blocks that do not fit, counted in DroppedSteps; a reader more than 48
// blocks behind reads overwritten audio, in ring order.
//
// Settings: UpdateSettings writes the slot that is not active and then
// raises newSettingsReady; the filter thread applies that slot and lowers
// the flag. Both hold settingsLock for that, so an update that falls into
// an application in progress waits for it (a few milliseconds) instead of
// being torn or lost. Store never takes it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "dsp/dsp_vector.h"
#include "dsp/ipps_states.h"
#include "dsp/resampler.h"
#include "dsp/semaphore.h"
#include "engines/engine.h"
#include "ipps.h"
#include "settings/settings.h"

namespace qs {

class AudioEngineFast : public Engine {
public:
    static constexpr int INPUT_STEP_SZ = 299008;          // real samples per Store
    static constexpr int INPUT_STEPS = 96;                // steps in the input ring
    static constexpr int INPUT_BUFFER_SZ = 28704768;      // 96 x 299008, also 73 x 393216
    static constexpr int FILTER_IN_SZ = 393216;           // real samples per channel filter call
    static constexpr int FILTER_STEPS = 73;               // filter steps in the input ring
    static constexpr int FILTER_OUT_SZ = 1536;            // complex samples per channel filter call
    static constexpr int FILTER_OUT_STEPS = 1250;         // filter outputs in the demodulation ring
    static constexpr int DEMOD_LEN = 40000;               // complex samples per demodulation
    static constexpr int DEMOD_STEPS = 48;                // demodulations in the ring
    static constexpr int DEMOD_BUF_SIZE = 1920000;        // 48 x 40000, also 1250 x 1536
    static constexpr int RETURN_SZ = 4096;                // audio samples per demodulation and Get
    static constexpr int HILBERT_TAPS = 2047;
    static constexpr int HILBERT_DELAY = 1023;            // group delay of the Hilbert filter

    // Caller's thread, inside the audio set-up. initLOFreq is the band's
    // centre in Hz, fixed for the engine's life; flipSpectrum tells that the
    // band's spectrum is mirrored; isDirect selects the direct RF path, on
    // which every block is mixed by a real tone in Store. The settings are
    // clamped first. Allocates every buffer and filter, then starts the
    // filter thread. Throws qs_exception or std::exception when memory
    // runs out, with nothing left behind.
    AudioEngineFast(double initLOFreq, AudioConfig audioSettings, bool flipSpectrum, bool isDirect);
    // Caller's thread, after Store can no longer be reached. Frees any
    // waiter, joins the filter thread, then frees.
    ~AudioEngineFast() override;
    AudioEngineFast(const AudioEngineFast&) = delete;
    AudioEngineFast& operator=(const AudioEngineFast&) = delete;

    // Interface thread: one block of INPUT_STEP_SZ samples; dropped when
    // the input ring has no room for it. Returns 0.
    int Store(const Block& block) override;
    // Application's thread: one audio block of RETURN_SZ floats into f.
    // Blocks until one is there (no time-out).
    // Returns true when audio was lost before this block: input the filter
    // thread could not take (DroppedSteps grew), or blocks the reader let
    // the ring overwrite, which are skipped rather than read torn.
    bool Get(float* f);
    // Get as a fetch: qsDataBreak when audio was lost before the block.
    qsStatus GetAudio(float* f) override { return Get(f) ? qsDataBreak : qsNoError; }
    // Application's thread: asks for new settings, applied by the filter
    // thread between two filter blocks. May wait while the filter thread
    // applies the previous ones.
    void UpdateSettings(const AudioConfig& new_config);
    qsStatus UpdateAudio(const AudioConfig& audio) override {
        UpdateSettings(audio);
        return qsNoError;
    }
    // Clamps to the legal ranges, without a report.
    static void CheckSettings(AudioConfig& audioSettings);
    // IF filter length for a bandwidth in Hz.
    static int IFFilterTaps(double if_bw);

    // Centre of the channel at freq Hz as a fraction of the 80 MHz rate.
    // On the direct path *mixCycles receives the mixing frequency of Store,
    // in cycles per sample; elsewhere it is left alone.
    double ChannelCentre(double freq, double* mixCycles) const;

    // Filter thread internals; public so that tests drive the
    // demodulators on synthetic baseband. Each takes DEMOD_LEN complex
    // samples at 312.5 kHz.
    void ApplyNewSettings();
    void FilterThread();
    void DemodAndResample(Ipp32fc* in, Ipp32f* out);
    void AMDemod(Ipp32fc* in, Ipp32f* out);
    void FMDemod(Ipp32fc* in, Ipp32f* out);
    void SSBDemod(Ipp32fc* in, Ipp32f* out, bool isUpper);

    // Input steps that Store dropped because the ring held no room.
    long DroppedSteps() const { return droppedSteps.load(std::memory_order_relaxed); }

    // The settings in force (filter thread, or a test with the thread idle).
    const AudioConfig& ActiveSettings() const { return m_settings[m_activeSettings.load()]; }

private:
    // The filters that follow the settings, built whole before any is
    // replaced: fastFIR, the IF filter, audioHighPass and deemphasis; the
    // first resampler starts afresh.
    void SetupFilters(const AudioConfig& s, double centre);
    // Fills mixing table `slot` for mixCycles cycles per sample.
    void BuildMixTable(int slot, double mixCycles);

    AudioConfig m_settings[2];
    std::atomic<int> m_activeSettings{0};
    std::atomic<bool> newSettingsReady{false};
    std::mutex settingsLock;  // the pending slot and the flag; never on Store's path
    double LOFreq;
    smart_ptr<float> inputBuffer;
    smart_ptr<float> outputBuffer;
    smart_ptr<Ipp32fc> demodBuffer;
    smart_ptr<float> tempAudio1;
    smart_ptr<float> tempAudio2;
    std::atomic<int> inputAvailable{0};
    std::atomic<int> demodAvailable{0};
    std::atomic<int> resultsAvailable{0};
    std::atomic<long> droppedSteps{0};
    long droppedSeen = 0;  // application's thread
    semaphore inputReady;
    semaphore outputReady;
    int inLoc = 0;         // interface thread
    int filterInLoc = 0;   // filter thread
    int filterOutLoc = 0;  // filter thread
    int demodLoc = 0;      // filter thread
    int outLoc = 0;        // application's thread
    std::unique_ptr<FastFIR_32f> fastFIR;
    FIR_32fc IFLowPass;
    // 312500 Hz to 32000 Hz: down by 5, then three times up 4 down 5.
    Resampler_32f audioLowPass;
    Resampler_32f lowPassResample1;
    Resampler_32f lowPassResample2;
    Resampler_32f lowPassResample3;
    std::unique_ptr<iir_32f> audioHighPass;
    std::unique_ptr<iir_32f> deemphasis;
    std::thread filterThread;
    std::atomic<bool> programRunning{false};
    FIR_64f hilbertState;
    smart_ptr<double> hilbertCoeffs;
    smart_ptr<double> hilbertDataIn;
    smart_ptr<double> hilbertDataOut;
    smart_ptr<double> hilbertDelayRe;
    bool directRF;
    // Two mixing tables of one block each: a retune writes the one Store
    // does not use and then switches, so no block meets a table in
    // transition.
    smart_ptr<float> directMixBuf;
    std::atomic<int> directMixSlot{0};
    double directMixFreq = 0.0;
    bool flipSpectrum;

    // Demodulator state carried from block to block.
    double AMAGC = 0.10000000149011612;  // AMDemod's; the float 0.1
    double ssbAMAGC = 0.1;               // SSBDemod's
    float lastPhase = 0.0f;
};

}  // namespace qs
