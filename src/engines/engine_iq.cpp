#include "engines/engine_iq.h"

#include <cmath>
#include <cstring>

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

// ---- DirectStream -------------------------------------------------------------

DirectStream::DirectStream(const Settings*, const SweepInfo*) { store.malloc(STORAGE_LEN); }

DirectStream::~DirectStream() {
    data_available = STORAGE_LEN;
    output_ready.notify();
}

int DirectStream::Store(const Ipp16s* raw, const int* triggers, uint32_t seconds,
                        uint32_t nanosecs, double) {
    ippsCopy_16s(raw, store.ptr + static_cast<size_t>(input_loc) * INPUT_STEP_SZ, INPUT_STEP_SZ);
    if (++input_loc == INPUT_STEPS) input_loc = 0;
    // Rows first: the count published below is what lets the reader take
    // a finished row.
    rows.AddTriggers(triggers, 0);
    rows.AddTime(seconds, nanosecs, 0);
    const int available = data_available.fetch_add(INPUT_STEP_SZ) + INPUT_STEP_SZ;
    if (available > STORAGE_LEN) {
        // The reader fell a whole ring behind; it goes on from where it is.
        data_available = 0;
    } else if (available > OUTPUT_STEP_SZ) {
        output_ready.notify();
    }
    return 0;
}

qsStatus DirectStream::Get_32f(float* buffer, int* triggers) {
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

int IFStream::Store(const Ipp16s* raw, const int* triggers, uint32_t seconds, uint32_t nanosecs,
                    double) {
    ippsCopy_16s(raw, store.ptr + static_cast<size_t>(input_loc) * STEP_SIZE, STEP_SIZE);
    std::memcpy(trigger_list[input_loc], triggers, sizeof trigger_list[input_loc]);
    times[input_loc] = qsTime_t{seconds, nanosecs};
    if (data_available.fetch_add(STEP_SIZE) + STEP_SIZE > STORAGE_LEN) data_available = 0;
    output_ready.notify();
    if (++input_loc == STEPS) input_loc = 0;
    return 0;
}

qsStatus IFStream::Get_32f(float* buffer, int* triggers) {
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

}  // namespace qs
