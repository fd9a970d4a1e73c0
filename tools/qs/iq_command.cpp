// qs iq: an I/Q stream recorded to SigMF. The data file is written as the
// samples come; the metadata, with a capture time from the first sample's
// time stamp and an annotation for every trigger and every reported gap,
// is written at the end, also after Ctrl-C, so that a stopped recording is
// a valid one.
#include <atomic>
#include <cmath>
#include <cstdio>
#include <vector>

#include "commands.h"
#include "core/si_units.h"
#include "core/sigmf.h"
#include "run_control.h"

namespace qstool {

namespace {

constexpr int kReadSamples = 16384;
constexpr int kTriggerRoom = 64;

bool Configure(int h, const IqOptions& o, double bandwidthHz) {
    const Step steps[] = {
        {"setting the centre frequency", qsConfigureIQCenter(h, o.centerHz)},
        {"setting port 1", qsConfigureIO(h, o.port1, 0)},
        {"setting the reference level", qsConfigureLevel(h, o.refDbm, QS_ATTEN_AUTO)},
        {"setting the sample rate and bandwidth", qsConfigureIQ(h, o.Decimation(), bandwidthHz)},
        {"setting the sample type",
         qsConfigureIQDataType(h, o.type == IqType::kCi16 ? qsDataType16sc : qsDataType32fc)},
    };
    return RunSteps(steps);
}

}  // namespace

int RunIq(const Options& options) {
    const IqOptions& o = options.iq;
    const double bandwidthHz = o.bandwidthHz > 0.0 ? o.bandwidthHz : 0.8 * o.rateHz;
    const long long wanted = o.samples > 0 ? o.samples : static_cast<long long>(std::llround(o.durationS * o.rateHz));
    const std::string dataPath = o.base + ".sigmf-data", metaPath = o.base + ".sigmf-meta";
    if (!CanCreate(metaPath, "-o")) return kExitFailure;
    FILE* data = OpenOutput("-o", dataPath);
    if (!data) return kExitFailure;

    InterruptWatch interrupts(ShowProgress(false) ? "closing the recording" : "");
    OpenAnalyser analyser;
    if (!analyser.Open(options.serial) || !Configure(analyser.Handle(), o, bandwidthHz)) {
        CloseOutput(data);
        return kExitFailure;
    }
    const int h = analyser.Handle();
    qsStatus status = qsInitiate(h, QS_MODE_STREAMING, 0);
    if (status < 0) {
        CloseOutput(data);
        return ReportError("starting the stream", status);
    }
    ReportWarning("starting the stream", status);
    double appliedBandwidth = bandwidthHz;
    qsQueryStreamInfo(h, nullptr, &appliedBandwidth, nullptr);
    float correction = 1.0f;
    qsGetIQCorrection(h, &correction);

    SigmfMeta meta;
    meta.datatype = o.type == IqType::kCi16 ? "ci16_le" : "cf32_le";
    meta.sampleRateHz = o.rateHz;
    meta.centerHz = o.centerHz;
    meta.hardware = analyser.Name();
    meta.recorder = std::string("qs ") + QS_TOOL_VERSION + ", library " + qsGetAPIVersion();
    meta.description = "bandwidth " + FormatExact(appliedBandwidth) + " Hz, reference level " +
                       FormatExact(o.refDbm) + " dBm; " +
                       (o.type == IqType::kCi16
                            ? "multiplied by " + FormatExact(correction * 1e6) +
                                  "e-6, a sample's magnitude is its amplitude in sqrt(mW)"
                            : "a sample's magnitude is its amplitude in sqrt(mW): 20 log10 |x| is dBm for a tone");

    const size_t sampleBytes = o.type == IqType::kCi16 ? 4 : 8;
    std::vector<char> buffer(sampleBytes * kReadSamples);
    int triggers[kTriggerRoom];
    std::atomic<long long> recorded{0};  // also read by the progress line
    bool writeFailed = false;
    {
        ProgressLine progress(ShowProgress(false), [&](double seconds) {
            char text[96];
            std::snprintf(text, sizeof text, "%lld samples, %.0f s%s", recorded.load(), seconds,
                          wanted > 0 ? "" : " (Ctrl-C stops)");
            return std::string(text);
        });
        while ((wanted == 0 || recorded < wanted) && !interrupts.Interrupted()) {
            qsIQPacket pkt{};
            pkt.iqData = buffer.data();
            pkt.iqCount = static_cast<int>(wanted > 0 ? std::min<long long>(kReadSamples, wanted - recorded) : kReadSamples);
            pkt.triggers = triggers;
            pkt.triggerCount = kTriggerRoom;
            status = qsGetIQ(h, &pkt);
            if (status < 0) break;
            if (recorded == 0) meta.datetime = IsoUtc(pkt.sec, pkt.nano);
            if (pkt.sampleLoss)
                meta.annotations.push_back({recorded, 0, "gap", "samples were lost before this one"});
            // Positions count from the read's first sample; 0 ends the list.
            for (int i = 0; i < kTriggerRoom && triggers[i] > 0; ++i)
                meta.annotations.push_back({recorded + triggers[i], 1, "trigger", "external trigger"});
            if (std::fwrite(buffer.data(), sampleBytes, static_cast<size_t>(pkt.iqCount), data) !=
                static_cast<size_t>(pkt.iqCount)) {
                writeFailed = true;
                break;
            }
            recorded += pkt.iqCount;
        }
    }
    qsAbort(h);
    writeFailed = std::fflush(data) != 0 || writeFailed;
    CloseOutput(data);
    FILE* metaFile = OpenOutput("-o", metaPath, "w");
    if (!metaFile) return kExitFailure;
    const std::string json = SigmfMetaJson(meta);
    writeFailed = std::fwrite(json.data(), 1, json.size(), metaFile) != json.size() || writeFailed;
    writeFailed = std::fclose(metaFile) != 0 || writeFailed;
    if (status < 0) return ReportError("reading the stream after " + std::to_string(recorded) + " samples", status);
    if (writeFailed) {
        std::fprintf(stderr, "qs: writing %s failed\n", o.base.c_str());
        return kExitFailure;
    }
    std::fprintf(stderr, "qs: %lld samples in %s\n", recorded.load(), dataPath.c_str());
    return 0;
}

}  // namespace qstool
