#include "engines/engine_iq.h"

#include <cmath>
#include <cstring>

#include "settings/settings.h"
#include "settings/sweep_info.h"

namespace qs {

namespace {

constexpr int kBlock = 299008;
constexpr int64_t kNanosPerSecond = 1000000000;

// Raw samples are 12.5 ns apart.
int64_t RawNanos(int samples) { return static_cast<int64_t>(samples * 12.5); }

}  // namespace

// ---- trigger rows and time entries ------------------------------------------

template <int ROWS>
void StepRows<ROWS>::NextRow() {
    for (int i = trig_pos; i < TRIGS_PER_OUTPUT; ++i) trigger_list[trig_loc][i] = 0;
    trig_pos = 0;
    if (++trig_loc == ROWS) trig_loc = 0;
}

template <int ROWS>
void StepRows<ROWS>::AddTriggers(const int* triggers, int delay) {
    for (int k = 0; k < 17 && triggers[k] != 0; ++k) {
        int p = triggers[k] + trig_add_amt + delay;
        if (p > STEP_RAW) {
            // Past the end of this step: it opens the next row. A large
            // delay may leave it above STEP_RAW even then; it still counts
            // from the start of its row's step.
            trig_add_amt -= STEP_RAW;
            NextRow();
            p = triggers[k] + trig_add_amt + delay;
        }
        // A row has room for 62; further triggers of the step are dropped.
        if (trig_pos < TRIGS_PER_OUTPUT) trigger_list[trig_loc][trig_pos++] = p;
    }
    if (trig_add_amt + kBlock >= STEP_RAW) {
        trig_add_amt -= STEP_RAW - kBlock;
        NextRow();
    } else {
        trig_add_amt += kBlock;
    }
}

template <int ROWS>
void StepRows<ROWS>::AddTime(uint32_t seconds, uint32_t nanosecs, int filterDelay) {
    const int a = time_accum;
    if (a < kBlock) {
        // The first block that starts in the step's first 299008 samples
        // dates the step: its own time less the samples before it.
        int64_t ns = static_cast<int64_t>(nanosecs) - RawNanos(a);
        if (ns < 0) {
            ns += kNanosPerSecond;
            --seconds;
        }
        // A filtered output lags its input: its first sample is older.
        ns -= RawNanos(filterDelay);
        while (ns < 0) {
            ns += kNanosPerSecond;
            --seconds;
        }
        times[time_loc] = qsTime_t{seconds, static_cast<uint32_t>(ns)};
    }
    if (a + kBlock >= STEP_RAW) {
        time_accum = a - (STEP_RAW - kBlock);
        if (++time_loc == ROWS) time_loc = 0;
    } else {
        time_accum = a + kBlock;
    }
}

// The two ring sizes in use: DirectStream's and IQStream's.
template struct StepRows<DirectStream::OUTPUT_STEPS>;
template struct StepRows<IQStream::OUTPUT_STEPS>;

// ---- DirectStream -------------------------------------------------------------

DirectStream::DirectStream(const Settings*, const SweepInfo*) { store.malloc(STORAGE_LEN); }

DirectStream::~DirectStream() {
    data_available = STORAGE_LEN;
    output_ready.notify();
}

int DirectStream::Store(const Block& block) {
    const Ipp16s* raw = block.samples;
    const int* triggers = block.triggers;
    const uint32_t seconds = block.seconds, nanosecs = block.nanoseconds;
    // A reader that fell a whole ring behind (less the step it may be
    // reading) would have this block written under it, and a trigger row
    // it may be copying: the block is dropped whole instead, and its
    // triggers with it.
    if (data_available.load() + INPUT_STEP_SZ > STORAGE_LEN - OUTPUT_STEP_SZ) return 0;
    ippsCopy_16s(raw, store.ptr + static_cast<size_t>(input_loc) * INPUT_STEP_SZ, INPUT_STEP_SZ);
    if (++input_loc == INPUT_STEPS) input_loc = 0;
    // Rows first: the count published below is what lets the reader take
    // a finished row.
    rows.AddTriggers(triggers, 0);
    rows.AddTime(seconds, nanosecs, 0);
    if (data_available.fetch_add(INPUT_STEP_SZ) + INPUT_STEP_SZ > OUTPUT_STEP_SZ)
        output_ready.notify();
    return 0;
}

qsStatus DirectStream::GetIQ(float* buffer, int* triggers) {
    // Strictly more than one step: the count decides, the semaphore wakes.
    while (data_available.load() < OUTPUT_STEP_SZ + 1) output_ready.wait();
    ippsConvert_16s32f_Sfs(store.ptr + static_cast<size_t>(output_loc) * OUTPUT_STEP_SZ, buffer,
                           OUTPUT_STEP_SZ, 15);
    data_available -= OUTPUT_STEP_SZ;
    if (triggers)
        std::memcpy(triggers, rows.trigger_list[output_loc], sizeof rows.trigger_list[output_loc]);
    if (++output_loc == OUTPUT_STEPS) output_loc = 0;
    return qsNoError;
}

void DirectStream::GetLastTime(uint32_t* seconds, uint32_t* nanoseconds) {
    const int loc = rows.time_loc == 0 ? OUTPUT_STEPS - 1 : rows.time_loc - 1;
    if (seconds) *seconds = rows.times[loc].seconds;
    if (nanoseconds) *nanoseconds = rows.times[loc].nanosecs;
}

// ---- IFStream -----------------------------------------------------------------

IFStream::IFStream(const Settings*, const SweepInfo*) { store.malloc(STORAGE_LEN); }

IFStream::~IFStream() {
    data_available = STORAGE_LEN;
    output_ready.notify();
}

int IFStream::Store(const Block& block) {
    const Ipp16s* raw = block.samples;
    const int* triggers = block.triggers;
    const uint32_t seconds = block.seconds, nanosecs = block.nanoseconds;
    ippsCopy_16s(raw, store.ptr + static_cast<size_t>(input_loc) * STEP_SIZE, STEP_SIZE);
    std::memcpy(trigger_list[input_loc], triggers, sizeof trigger_list[input_loc]);
    times[input_loc] = qsTime_t{seconds, nanosecs};
    if (data_available.fetch_add(STEP_SIZE) + STEP_SIZE > STORAGE_LEN) data_available = 0;
    output_ready.notify();
    if (++input_loc == STEPS) input_loc = 0;
    return 0;
}

qsStatus IFStream::GetIQ(float* buffer, int* triggers) {
    while (data_available.load() < STEP_SIZE) output_ready.wait();
    ippsConvert_16s32f_Sfs(store.ptr + static_cast<size_t>(output_loc) * STEP_SIZE, buffer,
                           STEP_SIZE, 15);
    data_available -= STEP_SIZE;
    if (triggers) std::memcpy(triggers, trigger_list[output_loc], sizeof trigger_list[output_loc]);
    if (++output_loc == STEPS) output_loc = 0;
    return qsNoError;
}

void IFStream::GetLastTime(uint32_t* seconds, uint32_t* nanoseconds) {
    const int loc = output_loc == 0 ? STEPS - 1 : output_loc - 1;
    if (seconds) *seconds = times[loc].seconds;
    if (nanoseconds) *nanoseconds = times[loc].nanosecs;
}

// ---- IQStream -----------------------------------------------------------------

IQStream::IQStream(const Settings* set, const SweepInfo* info, std::vector<double>& corrections,
                   IQStorage& iqBuf)
    : settings(set), sweepInfo(info), iqBuffer(iqBuf) {
    OUTPUT_STEP_SZ = 524288 >> settings->iqFirstPassDecimate;
    flipSpectrum = sweepInfo->patchInfo.NumPatches() > 0 && sweepInfo->patchInfo[0].flip_spectrum;

    // The first pass sits on the IF slice of the centre: the mirrored side
    // on a flipped path, whose corrections are mirrored with it.
    double center;
    if (flipSpectrum) {
        ippsFlip_64f_I(corrections.data(), static_cast<int>(corrections.size()));
        center = 0.25 - sweepInfo->if_offset_hz / 8e7;
    } else {
        center = 0.25 + sweepInfo->if_offset_hz / 8e7;
    }
    const double width = settings->iqFirstPassBandwidth / 8e7;
    if (sweepInfo->directIQ) center = settings->m_center / 8e7;
    if (settings->iqDataType == qsDataType16sc) {
        // The reference level plus 10 dB is full scale of the 16-bit values.
        const double fullScale = std::pow(10.0, (settings->m_reference + 10.0) / 20.0);
        for (double& c : corrections) c /= fullScale;
    }

    fir_filter.reset(new FastFIR_32f(settings->iqFirstPassDecimate, center, width,
                                     sweepInfo->directIQ));
    fir_filter->AddCorrections(corrections);
    PROCESS_OUT_STEP_SZ = fir_filter->OutputLength();

    if (settings->iqSecondPass) {
        // Its input is always the 312.5 kHz of a first pass at exponent 7.
        const int n = (256 << settings->iqSecondPassDecimate) / 2;
        std::vector<Ipp32fc> taps(static_cast<size_t>(n));
        FIRGenLowpass_32fc(settings->iqSecondPassBandwidth / 312500.0 * 0.5, taps.data(), n,
                           ippWinBlackman, ippTrue);
        finalPassFilter.SetTaps(taps.data(), n);
        final_output_size = OUTPUT_STEP_SZ >> settings->iqSecondPassDecimate;
        second_pass_output.malloc(OUTPUT_STEP_SZ);
    } else {
        final_output_size = OUTPUT_STEP_SZ;
    }

    input.malloc(INPUT_STORAGE_LEN);
    output.malloc(final_output_size);
    // The filter thread's work buffer, made here so that a failure reaches
    // the set-up instead of a thread nobody watches.
    work.malloc(2 * OUTPUT_STEP_SZ);
    iqBuffer.Resize(final_output_size * OUTPUT_STEPS);

    streaming = true;
    filterThreadHandle = std::thread(&IQStream::FilterThread, this);
}

IQStream::~IQStream() {
    streaming = false;
    input_data_available = 0;
    inputReady.notify();
    dataReady.notify();
    if (filterThreadHandle.joinable()) filterThreadHandle.join();
}

int IQStream::FilterDelay() const {
    return fir_filter->FilterDelay() + (finalPassFilter.FilterDelay() << 8);
}

int IQStream::TriggerDelay() const { return FilterDelay(); }

int IQStream::Store(const Block& block) {
    const Ipp16s* raw = block.samples;
    const int* triggers = block.triggers;
    const uint32_t seconds = block.seconds, nanosecs = block.nanoseconds;
    measuredSR = block.samplesPerSecond;
    // A filter thread a whole ring behind may still be reading where this
    // block would go: the block is dropped whole rather than written under
    // it. Its triggers go with it, so the positions of later ones still
    // count the samples that are there.
    if (input_data_available.load() + INPUT_STEP_SZ > INPUT_STORAGE_LEN) {
        inputLost = true;
        return 0;
    }
    ippsConvert_16s32f_Sfs(raw, input.ptr + static_cast<size_t>(input_loc) * INPUT_STEP_SZ,
                           INPUT_STEP_SZ, 15);
    if (++input_loc == INPUT_STEPS) input_loc = 0;
    // Rows first: the count published below is what lets the filter thread
    // finish a step and read its row.
    rows.AddTriggers(triggers, TriggerDelay());
    rows.AddTime(seconds, nanosecs, FilterDelay());
    input_data_available += INPUT_STEP_SZ;
    inputReady.notify();
    return 0;
}

void IQStream::FilterThread() {
    int fill = 0;
    while (streaming.load()) {
        inputReady.wait();
        if (!streaming.load()) break;
        // Strictly more than one filter call's input.
        while (input_data_available.load() > PROCESS_IN_STEP_SZ) {
            fir_filter->Filter(input.ptr + static_cast<size_t>(process_input_loc) * PROCESS_IN_STEP_SZ,
                               work.ptr + fill);
            if (++process_input_loc == PROCESS_STEPS) process_input_loc = 0;
            input_data_available -= PROCESS_IN_STEP_SZ;
            fill += PROCESS_OUT_STEP_SZ;
            if (fill >= OUTPUT_STEP_SZ) {
                Put(work);
                ippsMove_32fc(work.ptr + OUTPUT_STEP_SZ, work.ptr, fill - OUTPUT_STEP_SZ);
                fill -= OUTPUT_STEP_SZ;
            }
        }
    }
}

void IQStream::Put(Ipp32fc* buf) {
    if (settings->iqSecondPass) {
        if (flipSpectrum) ippsConj_32fc(buf, buf, OUTPUT_STEP_SZ);
        finalPassFilter.Filter(buf, second_pass_output, OUTPUT_STEP_SZ);
        int dstLen = 0;
        ippsSampleDown_32fc(second_pass_output, OUTPUT_STEP_SZ, output, &dstLen,
                            1 << settings->iqSecondPassDecimate, &sampleDownPhase);
    } else if (flipSpectrum) {
        ippsConj_32fc(buf, output, OUTPUT_STEP_SZ);
    } else {
        ippsCopy_32fc(buf, output, OUTPUT_STEP_SZ);
    }

    // Raw positions from the step's start become output samples.
    int list[TRIGS_PER_OUTPUT];
    int count = 0;
    const int shift = settings->iqFinalDecimation + 1;
    for (; count < TRIGS_PER_OUTPUT && rows.trigger_list[output_loc][count] != 0; ++count)
        list[count] = rows.trigger_list[output_loc][count] >> shift;
    const qsTime_t t = rows.times[output_loc];
    lastSeconds = t.seconds;
    lastNanos = t.nanosecs;
    if (++output_loc == OUTPUT_STEPS) output_loc = 0;

    iqBuffer.Append(output, final_output_size, list, count, t.seconds, t.nanosecs,
                    settings->iqFinalDecimation, measuredSR.load());
    dataReady.notify();
}

qsStatus IQStream::GetIQ(qsIQPacket* pkt) {
    if (pkt->purge) {
        iqBuffer.Clear();
        inputLost = false;
    }
    int remaining = pkt->iqCount;
    int trigRoom = pkt->triggerCount;
    int got = 0;
    int trigGot = 0;
    const qsDataType type = settings->iqDataType;
    const size_t elementBytes = type == qsDataType16sc ? 4 : 8;
    while (streaming.load() && remaining > 0) {
        if (iqBuffer.Size() == 0) dataReady.wait();
        int returned = 0, trigReturned = 0, s = 0, ns = 0;
        iqBuffer.Read(static_cast<char*>(pkt->iqData) + elementBytes * static_cast<size_t>(got),
                      remaining, returned, pkt->triggers ? pkt->triggers + trigGot : nullptr,
                      trigRoom, trigReturned, settings->iqFinalDecimation, measuredSR.load(), s,
                      ns, type);
        if (got == 0) {
            pkt->sec = returned > 0 ? s : 0;
            pkt->nano = returned > 0 ? ns : 0;
        }
        // Positions count from the packet's first sample.
        for (int i = 0; i < trigReturned; ++i) pkt->triggers[trigGot + i] += got;
        remaining -= returned;
        trigRoom -= trigReturned;
        trigGot += trigReturned;
        got += returned;
    }
    if (trigRoom > 0 && pkt->triggers)
        std::memset(pkt->triggers + trigGot, 0, sizeof(int) * static_cast<size_t>(trigRoom));
    pkt->dataRemaining = iqBuffer.Size();
    pkt->sampleLoss = (iqBuffer.SampleLoss() | int(inputLost.exchange(false))) != 0;
    return qsNoError;
}

qsStatus IQStream::GetIQ(float* buffer, int* triggers) {
    qsIQPacket pkt{};
    pkt.iqData = buffer;
    pkt.iqCount = 524288 >> settings->iqFinalDecimation;
    pkt.triggers = triggers;
    pkt.triggerCount = triggers ? 64 : 0;
    pkt.purge = 0;
    return GetIQ(&pkt);
}

void IQStream::GetLastTime(uint32_t* seconds, uint32_t* nanoseconds) {
    if (seconds) *seconds = lastSeconds.load();
    if (nanoseconds) *nanoseconds = lastNanos.load();
}

}  // namespace qs
