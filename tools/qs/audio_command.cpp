// qs audio: demodulated audio to a WAV file or standard output, for a
// duration or until Ctrl-C; a gap in the audio is told on standard error.
#include <atomic>
#include <cstdio>
#include <vector>

#include "commands.h"
#include "core/si_units.h"
#include "core/wav.h"
#include "run_control.h"

namespace qstool {

namespace {

constexpr int kAudioRate = 32000;

// The IF width each demodulation is heard best with when none is given.
float DefaultIfBandwidth(int demod) {
    switch (demod) {
        case QS_DEMOD_FM: return 200e3f;
        case QS_DEMOD_AM: return 10e3f;
        case QS_DEMOD_CW: return 500.0f;
        default: return 3e3f;
    }
}

}  // namespace

int RunAudio(const Options& options) {
    const AudioOptions& o = options.audio;
    const bool toStdout = o.outputPath == "-";
    FILE* out = OpenOutput("-o", o.outputPath);
    if (!out) return kExitFailure;

    InterruptWatch interrupts(ShowProgress(toStdout) ? "closing the audio file" : "");
    OpenAnalyser analyser;
    if (!analyser.Open(options.serial)) {
        CloseOutput(out);
        return kExitFailure;
    }
    const int h = analyser.Handle();
    const float ifBw = o.ifBandwidthHz > 0.0 ? static_cast<float>(o.ifBandwidthHz) : DefaultIfBandwidth(o.demod);
    const float lowPass = o.demod == QS_DEMOD_FM || o.demod == QS_DEMOD_AM ? 12e3f : 3e3f;
    qsStatus status = qsConfigureDemod(h, o.demod, o.freqHz, ifBw, lowPass, 20.0f, 75.0f);
    if (status >= 0) status = qsInitiate(h, QS_MODE_AUDIO, 0);
    if (status < 0) {
        CloseOutput(out);
        return ReportError("starting audio at " + FormatHz(o.freqHz), status);
    }
    WavWriter wav(out, kAudioRate);
    std::vector<float> block(QS_AUDIO_SAMPLES);
    const long long frames = o.durationS > 0.0 ? static_cast<long long>(o.durationS * kAudioRate + 0.5) : 0;
    std::atomic<long long> written{0};  // also read by the progress line
    int gaps = 0;
    {
        ProgressLine progress(ShowProgress(toStdout), [&](double seconds) {
            char text[96];
            std::snprintf(text, sizeof text, "%.1f s of audio, %.0f s%s", double(written) / kAudioRate, seconds,
                          frames > 0 ? "" : " (Ctrl-C stops)");
            return std::string(text);
        });
        while ((frames == 0 || written < frames) && !interrupts.Interrupted()) {
            status = qsFetchAudio(h, block.data());
            if (status < 0) break;
            if (status == qsDataBreak) ++gaps;
            const long long n = frames > 0 ? std::min<long long>(QS_AUDIO_SAMPLES, frames - written) : QS_AUDIO_SAMPLES;
            if (!wav.Write(block.data(), static_cast<size_t>(n))) break;
            written += n;
        }
    }
    qsAbort(h);
    const bool ok = wav.Finish();
    CloseOutput(out);
    if (status < 0) return ReportError("fetching audio", status);
    if (gaps > 0) std::fprintf(stderr, "qs: warning: the audio has %d gap%s where samples were lost\n", gaps, gaps == 1 ? "" : "s");
    if (!ok) {
        std::fprintf(stderr, "qs: writing %s failed\n", toStdout ? "standard output" : o.outputPath.c_str());
        return kExitFailure;
    }
    return 0;
}

}  // namespace qstool
