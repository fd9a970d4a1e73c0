// Stateful fuzzer of the public calls, on the simulator.
//
// One input is a sequence of calls across two simulated analysers, a Maple
// and a Larch, with arguments drawn mostly from values a user would pass
// and often from boundaries, non-finite and absurd ones; between the calls,
// faults are injected at the USB boundary (stalls, overflows, a slipped
// channel, triggers, pacing, an unplug). What a fuzzer that keeps state
// finds and a list of cases does not is a sequence: a refused call that
// left half its state behind, an engine that never started, a fetch that
// waits for data that cannot come.
//
// The promises checked:
//  - no call blocks beyond its budget (a few seconds, more for an open and
//    for a sweep whose plan is long): a watchdog prints the calls so far and
//    aborts, which libFuzzer keeps as a crash;
//  - no crash, and under the sanitizers no memory error;
//  - after every device is closed and unplugged, no thread is left behind
//    (and, under LeakSanitizer, no memory at exit).
//
// The same interpreter runs from libFuzzer's bytes or from a seed
// (api_fuzz_main.cpp), so a failing sequence can be kept as a file and
// replayed in every build.
#include "api_fuzz.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qs_api.h"
#include "qs_sim.h"

namespace apifuzz {
namespace {

using Clock = std::chrono::steady_clock;

// Sanitizers slow the library several times over; budgets grow with them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kSlowdown = 4.0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr double kSlowdown = 4.0;
#else
constexpr double kSlowdown = 1.0;
#endif
#else
constexpr double kSlowdown = 1.0;
#endif

// Budgets, in seconds on an unloaded machine. An open reads the calibration
// and, when it fails, tries again after three seconds.
constexpr double kCallBudget = 10.0;
constexpr double kOpenBudget = 25.0;
// A sweep's fetch may legitimately take as long as its plan: a full span at
// a fine resolution has tens of millions of points.
constexpr double kSweepSecondsPerPoint = 3e-6;
// Traces longer than this are not fetched: the arrays alone would be
// gigabytes, and the library has nothing more to show at that size.
constexpr unsigned kMaxFetchedTrace = 1u << 26;

// The calls so far, for the report when the watchdog fires. Only the last
// ones matter for a reproduction; the input file has the whole sequence.
class CallLog {
public:
    void Add(std::string line) {
        std::lock_guard<std::mutex> hold(m_lock);
        // QS_API_FUZZ_TRACE=1 prints every call as it returns, for reducing
        // a failing sequence by hand.
        static const bool trace = std::getenv("QS_API_FUZZ_TRACE") != nullptr;
        if (trace) std::fprintf(stderr, "%s\n", line.c_str());
        if (m_lines.size() == kKept) m_lines.pop_front();
        m_lines.push_back(std::move(line));
        ++m_count;
    }
    void Print() {
        std::lock_guard<std::mutex> hold(m_lock);
        std::fprintf(stderr, "-- the last %zu of %ld calls:\n", m_lines.size(), m_count);
        for (const auto& l : m_lines) std::fprintf(stderr, "  %s\n", l.c_str());
    }
    void Clear() {
        std::lock_guard<std::mutex> hold(m_lock);
        m_lines.clear();
        m_count = 0;
    }

private:
    static constexpr size_t kKept = 80;
    std::mutex m_lock;
    std::deque<std::string> m_lines;
    long m_count = 0;
};

// Fails a call that is still inside the library after its deadline.
class Watchdog {
public:
    explicit Watchdog(CallLog& log) : m_log(log), m_thread([this] { Run(); }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> hold(m_lock);
            m_stop = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }
    void Arm(const std::string& what, double seconds) {
        std::lock_guard<std::mutex> hold(m_lock);
        m_what = what;
        m_deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(seconds * kSlowdown));
        m_armed = true;
    }
    void Disarm() {
        std::lock_guard<std::mutex> hold(m_lock);
        m_armed = false;
    }

private:
    void Run() {
        std::unique_lock<std::mutex> hold(m_lock);
        while (!m_stop) {
            m_wake.wait_for(hold, std::chrono::milliseconds(100));
            if (m_armed && Clock::now() > m_deadline) {
                std::fprintf(stderr, "api fuzz: %s blocked beyond its budget\n", m_what.c_str());
                m_log.Print();
                std::abort();
            }
        }
    }

    CallLog& m_log;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_stop = false;
    bool m_armed = false;
    std::string m_what;
    Clock::time_point m_deadline;
    std::thread m_thread;  // last: starts once the members above exist
};

std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* fmt, ...) {
    char buf[512];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(buf, sizeof buf, fmt, args);
    va_end(args);
    return buf;
}

int ThreadCount() {
    int n = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (dirent* e = readdir(dir))
            if (e->d_name[0] != '.') ++n;
        closedir(dir);
    }
    return n;
}

// Argument values. Each kind has values a user would pass and values that
// probe the edges; a quarter of the draws come from the second list.
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

const double kFreqs[] = {1e9, 2.4e9, 100e6, 433.92e6, 25e6, 5e6, 12e6, 15.2e6, 2.2e9, 4.7e9, 2240e6 + 4e6, 40e6};
const double kFreqEdges[] = {kNaN, kInf, -kInf, 0.0, -1.0, 9e3, 8999.0, 9010.0, 6.4e9, 6.5e9, 6.39999e9, 1e300, -1e300, 4.9999e-324, 10e6, 16e6};
const double kSpans[] = {20e6, 1e6, 100e6, 200e6, 1e3, 100e3, 5e6, 1e9};
const double kSpanEdges[] = {kNaN, kInf, -kInf, 0.0, -20.0, 20.0, 19.999, 6.4e9, 1e12, 40e6, 20e6 + 1};
const double kRbws[] = {100e3, 10e3, 30e3, 300e3, 1e6, 3e3, 1e3, 631e3};
const double kRbwEdges[] = {kNaN, kInf, -kInf, 0.0, 0.602006912, 0.6, 1.0, 10.1e6, 10.2e6, 1e-300, 100.0, 2.47e3};
const double kLevels[] = {-20.0, -50.0, 0.0, -30.0, 10.0, -80.0};
const double kLevelEdges[] = {kNaN, kInf, -kInf, 50.0, 50.1, -150.0, -151.0, 1e300, -1e300};
const double kAttens[] = {QS_ATTEN_AUTO, 0.0, 10.0, 20.0, 30.0};
const double kAttenEdges[] = {kNaN, kInf, -kInf, -2.0, 30.5, 1e9, 5.0};
const double kTimes[] = {1e-3, 1e-2, 1e-5, 0.1};
const double kTimeEdges[] = {kNaN, kInf, -kInf, 0.0, 1.0, 5.0, -1.0};
const double kBandwidths[] = {15e6, 1e6, 100e3, 5e6, 250e3};
const double kBandwidthEdges[] = {kNaN, kInf, -kInf, 0.0, -1.0, 40e6, 1e12};
const double kScales[] = {100.0, 50.0, 10.0, 200.0};
const double kScaleEdges[] = {kNaN, kInf, -kInf, 0.0, 9.9, 200.1};
const double kAdvances[] = {0.5, 1.0, 2.0, 10.0};
const double kAdvanceEdges[] = {kNaN, kInf, -kInf, 0.0, 0.49, 10.1};
const double kRatios[] = {1.0, 1.000001, 0.999998, 1.0000005};
const double kRatioEdges[] = {kNaN, kInf, -kInf, 0.0, -2.5, 2.0, 1e-300, 1.5};
const double kPpms[] = {0.0, 1.0, -2.5, 1e-6};
const double kPpmEdges[] = {kNaN, kInf, -kInf, 1e6, -1e6};
const int kInts[] = {0, 1, 2, 3, 4, 5, 7, 8, 16, 100, 1024};
const int kIntEdges[] = {-1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), 9, 1023, 1025, 8192, 8193, 13, 255, 256};
const unsigned kModes[] = {QS_MODE_SWEEP, QS_MODE_SWEEP, QS_MODE_REAL_TIME, QS_MODE_STREAMING, QS_MODE_AUDIO, QS_MODE_TG_SWEEP, static_cast<unsigned>(QS_MODE_IDLE)};
const unsigned kModeEdges[] = {2, 3, 5, 6, 9, 0xFFFFFFFEu, 0x80000000u, 100};
const unsigned kFlags[] = {0, 0, QS_STREAM_FLAG_DIRECT, QS_STREAM_FLAG_BAND_ZERO, QS_STREAM_FLAG_TIME_STAMP, QS_SWEEP_FLAG_BAND_ZERO_ONLY};
const unsigned kFlagEdges[] = {0x2001, 0x2000, 0x3, 0x13, 0xFFFFFFFFu, 0x11, 0x12};

// The bytes of one input, or a seeded generator when they run out (a seed
// run is all generator).
class Source {
public:
    Source(const uint8_t* data, size_t size, uint64_t seed) : m_data(data), m_size(size), m_state(Mix(seed)) {
        // QS_API_FUZZ_RECORD=file keeps the bytes of a seeded run as they are
        // drawn, unbuffered, so that a run that aborts leaves an input that
        // replays it: a failure becomes a corpus file.
        const char* record = m_data ? nullptr : std::getenv("QS_API_FUZZ_RECORD");
        if (record) m_record = open(record, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    ~Source() {
        if (m_record >= 0) close(m_record);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    bool Exhausted() const { return m_size == 0 && m_data != nullptr; }

    uint8_t Byte() {
        if (m_data) {
            if (m_size == 0) return 0;
            --m_size;
            return *m_data++;
        }
        // xorshift64*: enough for choosing among a few values.
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        const uint8_t b = static_cast<uint8_t>((m_state * 2685821657736338717ull) >> 56);
        if (m_record >= 0 && write(m_record, &b, 1) != 1) m_record = -1;
        return b;
    }
    uint32_t Word() {
        uint32_t w = 0;
        for (int i = 0; i < 4; ++i) w = (w << 8) | Byte();
        return w;
    }
    bool Chance(int outOf) { return Byte() % outOf == 0; }

    template <typename T, size_t N, size_t M>
    T Pick(const T (&usual)[N], const T (&edge)[M]) {
        const uint8_t b = Byte();
        if ((b & 3) == 0) return edge[(b >> 2) % M];
        return usual[(b >> 2) % N];
    }
    double Freq() { return Pick(kFreqs, kFreqEdges); }
    int Int() { return Pick(kInts, kIntEdges); }
    unsigned Small(unsigned limit) { return Chance(8) ? Word() : Byte() % limit; }

private:
    // Spreads neighbouring seeds apart (and never gives the generator 0).
    static uint64_t Mix(uint64_t z) {
        z += 0x9E3779B97F4A7C15ull;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        return z ? z : 1;
    }

    const uint8_t* m_data;
    size_t m_size;
    uint64_t m_state;
    int m_record = -1;
};

// Two simulated analysers opened through the public calls, and the buffers
// that fetches write into, sized from the queries as a careful caller does.
class Session {
public:
    Session(Source& src, CallLog& log, Watchdog& dog) : m_src(src), m_log(log), m_dog(dog) {}

    void Start() {
        qssim_reset();
        const int mapleRev = m_src.Chance(2) ? QSSIM_PID_MAPLE_REV1 : QSSIM_PID_MAPLE_REV2;
        m_dev[0] = {mapleRev, 31000001u + m_generation, -1, -1};
        m_dev[1] = {QSSIM_PID_LARCH, 32000001u + m_generation, -1, -1};
        ++m_generation;
        for (auto& d : m_dev) {
            d.sim = qssim_add_device(d.pid, d.serial);
            qssim_set_tone(d.sim, 1e9, -30.0);
            qssim_set_tone(d.sim, 100.3e6, -50.0);
            Open(d);
        }
    }

    void Finish() {
        for (auto& d : m_dev) {
            if (d.handle >= 0) Run(kCallBudget, Format("qsCloseDevice(%d)", d.handle), [&] { return qsCloseDevice(d.handle); });
            d.handle = -1;
        }
        qssim_reset();
    }

    // One call chosen by the input; false when the input is used up.
    bool Step() {
        if (m_src.Exhausted()) return false;
        const uint8_t op = m_src.Byte();
        Dev& d = m_dev[op & 1];
        const int h = Handle(d);
        switch ((op >> 1) % 40) {
        case 0: case 1: {
            const double c = m_src.Freq(), s = m_src.Pick(kSpans, kSpanEdges);
            Call(Format("qsConfigureCenterSpan(%d, %g, %g)", h, c, s), [&] { return qsConfigureCenterSpan(h, c, s); });
            break;
        }
        case 2: {
            const double c = m_src.Freq();
            Call(Format("qsConfigureIQCenter(%d, %g)", h, c), [&] { return qsConfigureIQCenter(h, c); });
            break;
        }
        case 3: {
            const double r = m_src.Pick(kLevels, kLevelEdges), a = m_src.Pick(kAttens, kAttenEdges);
            Call(Format("qsConfigureLevel(%d, %g, %g)", h, r, a), [&] { return qsConfigureLevel(h, r, a); });
            break;
        }
        case 4: {
            const int g = m_src.Chance(2) ? QS_GAIN_AUTO : m_src.Int();
            Call(Format("qsConfigureGain(%d, %d)", h, g), [&] { return qsConfigureGain(h, g); });
            break;
        }
        case 5: case 6: {
            const double rbw = m_src.Pick(kRbws, kRbwEdges), vbw = m_src.Chance(2) ? rbw : m_src.Pick(kRbws, kRbwEdges);
            const double t = m_src.Pick(kTimes, kTimeEdges);
            const unsigned shape = m_src.Small(3), rej = m_src.Small(2);
            Call(Format("qsConfigureSweepCoupling(%d, %g, %g, %g, %u, %u)", h, rbw, vbw, t, shape, rej),
                 [&] { return qsConfigureSweepCoupling(h, rbw, vbw, t, shape, rej); });
            break;
        }
        case 7: {
            const unsigned det = m_src.Small(2), scale = m_src.Small(4);
            Call(Format("qsConfigureAcquisition(%d, %u, %u)", h, det, scale), [&] { return qsConfigureAcquisition(h, det, scale); });
            break;
        }
        case 8: {
            const unsigned w = m_src.Small(4), u = m_src.Small(4);
            Call(Format("qsConfigureWindow(%d, %u)", h, w), [&] { return qsConfigureWindow(h, w); });
            Call(Format("qsConfigureProcUnits(%d, %u)", h, u), [&] { return qsConfigureProcUnits(h, u); });
            break;
        }
        case 9: case 10: {
            const int ds = m_src.Chance(2) ? 1 << (m_src.Byte() % 14) : m_src.Int();
            const double bw = m_src.Pick(kBandwidths, kBandwidthEdges);
            Call(Format("qsConfigureIQ(%d, %d, %g)", h, ds, bw), [&] { return qsConfigureIQ(h, ds, bw); });
            break;
        }
        case 11: {
            const int t = static_cast<int>(m_src.Small(2));
            Call(Format("qsConfigureIQDataType(%d, %d)", h, t), [&] { return qsConfigureIQDataType(h, static_cast<qsDataType>(t)); });
            break;
        }
        case 12: {
            const double scale = m_src.Pick(kScales, kScaleEdges);
            const int rate = m_src.Chance(2) ? 30 : m_src.Int();
            const double adv = m_src.Pick(kAdvances, kAdvanceEdges);
            Call(Format("qsConfigureRealTime(%d, %g, %d)", h, scale, rate), [&] { return qsConfigureRealTime(h, scale, rate); });
            Call(Format("qsConfigureRealTimeOverlap(%d, %g)", h, adv), [&] { return qsConfigureRealTimeOverlap(h, adv); });
            break;
        }
        case 13: {
            const unsigned p1 = m_src.Chance(2) ? QS_PORT_TRIGGER_IN : m_src.Small(256), p2 = m_src.Small(256);
            Call(Format("qsConfigureIO(%d, %u, %u)", h, p1, p2), [&] { return qsConfigureIO(h, p1, p2); });
            break;
        }
        case 14: case 15: {
            const int type = static_cast<int>(m_src.Small(5));
            const double f = m_src.Freq();
            const float ifbw = static_cast<float>(m_src.Pick(kBandwidths, kBandwidthEdges));
            const float lp = static_cast<float>(m_src.Chance(2) ? 8e3 : m_src.Pick(kRbws, kRbwEdges));
            const float hp = static_cast<float>(m_src.Chance(2) ? 20.0 : m_src.Pick(kRbws, kRbwEdges));
            const float de = static_cast<float>(m_src.Chance(2) ? 75e-6 : m_src.Pick(kTimes, kTimeEdges));
            Call(Format("qsConfigureDemod(%d, %d, %g, %g, %g, %g, %g)", h, type, f, ifbw, lp, hp, de),
                 [&] { return qsConfigureDemod(h, type, f, ifbw, lp, hp, de); });
            break;
        }
        case 16: {
            const int size = m_src.Chance(2) ? 100 : m_src.Int();
            const bool hdr = m_src.Chance(2), passive = m_src.Chance(2);
            Call(Format("qsConfigTgSweep(%d, %d, %d, %d)", h, size, hdr, passive), [&] { return qsConfigTgSweep(h, size, hdr, passive); });
            break;
        }
        case 17: case 18: case 19: case 20: {
            const unsigned mode = m_src.Pick(kModes, kModeEdges), flag = m_src.Pick(kFlags, kFlagEdges);
            Call(Format("qsInitiate(%d, %u, 0x%x)", h, mode, flag), [&] { return qsInitiate(h, mode, flag); });
            break;
        }
        case 21:
            Call(Format("qsAbort(%d)", h), [&] { return qsAbort(h); });
            break;
        case 22: case 23: case 24:
            FetchTrace(h);
            break;
        case 25: case 26:
            FetchFrame(h);
            break;
        case 27: case 28:
            FetchAudio(h);
            break;
        case 29: case 30:
            FetchStream(h);
            break;
        case 31:
            Queries(h);
            break;
        case 32:
            Service(d, h);
            break;
        case 33:
            Generator(h);
            break;
        case 34: case 35:
            Fault(d);
            break;
        case 36:
            Reopen(d);
            break;
        case 37: {
            // Handles that are no device's: out of range, or a closed slot.
            const int bad[] = {-1, 8, 7, 1 << 30, 5};
            const int b = bad[m_src.Byte() % 5];
            Call(Format("qsInitiate(%d, 0, 0)", b), [&] { return qsInitiate(b, 0, 0); });
            Call(Format("qsAbort(%d)", b), [&] { return qsAbort(b); });
            break;
        }
        default: {
            // Fetch in a loop, as applications do; this is where a fetch that
            // no data can end shows itself.
            const int n = 1 + m_src.Byte() % 4;
            for (int i = 0; i < n; ++i) {
                FetchTrace(h);
                FetchStream(h);
                FetchAudio(h);
                FetchFrame(h);
            }
            break;
        }
        }
        return true;
    }

private:
    struct Dev {
        int pid;
        unsigned serial;
        int sim;
        int handle;
    };

    // The device's handle: -1 while it is closed, so calls then probe the
    // handle check.
    int Handle(const Dev& d) { return d.handle; }

    template <typename F>
    qsStatus Run(double budget, const std::string& what, F f) {
        m_dog.Arm(what, budget);
        const qsStatus st = f();
        m_dog.Disarm();
        m_log.Add(what + " = " + std::to_string(st));
        return st;
    }
    template <typename F>
    qsStatus Call(const std::string& what, F f) {
        return Run(kCallBudget, what, f);
    }

    void Open(Dev& d) {
        int h = -1;
        const qsStatus st = Run(kOpenBudget, Format("qsOpenDeviceBySerialNumber(%u)", d.serial),
                                [&] { return qsOpenDeviceBySerialNumber(&h, static_cast<int>(d.serial)); });
        d.handle = st >= 0 ? h : -1;
    }

    void FetchTrace(int h) {
        unsigned len = 0;
        double bin = 0, start = 0;
        const qsStatus q = Call(Format("qsQueryTraceInfo(%d)", h), [&] { return qsQueryTraceInfo(h, &len, &bin, &start); });
        if (q < 0 || len > kMaxFetchedTrace) {
            // Fetch all the same with a small array: it must be refused, not written.
            float one[1];
            if (q < 0) Call(Format("qsFetchTrace_32f(%d) without a trace", h), [&] { return qsFetchTrace_32f(h, 1, one, one); });
            return;
        }
        const double budget = kCallBudget + kSweepSecondsPerPoint * len;
        if (m_src.Chance(2)) {
            m_f1.assign(len + 1, 0.0f);
            m_f2.assign(len + 1, 0.0f);
            const bool null = m_src.Chance(8);
            Run(budget, Format("qsFetchTrace_32f(%d, %u)%s", h, len, null ? " null max" : ""),
                [&] { return qsFetchTrace_32f(h, static_cast<int>(len), m_f1.data(), null ? nullptr : m_f2.data()); });
        } else {
            m_d1.assign(len + 1, 0.0);
            m_d2.assign(len + 1, 0.0);
            Run(budget, Format("qsFetchTrace(%d, %u)", h, len),
                [&] { return qsFetchTrace(h, static_cast<int>(len), m_d1.data(), m_d2.data()); });
        }
    }

    void FetchFrame(int h) {
        int w = 0, ht = 0;
        unsigned len = 0;
        double bin = 0, start = 0;
        const qsStatus q = Call(Format("qsQueryRealTimeInfo(%d)", h), [&] { return qsQueryRealTimeInfo(h, &w, &ht); });
        Call(Format("qsQueryTraceInfo(%d)", h), [&] { return qsQueryTraceInfo(h, &len, &bin, &start); });
        if (q < 0) {
            float one[1];
            Call(Format("qsFetchRealTimeFrame(%d) not in real time", h), [&] { return qsFetchRealTimeFrame(h, one, one, one, one); });
            return;
        }
        m_f1.assign(len + 1, 0.0f);
        m_f2.assign(len + 1, 0.0f);
        m_f3.assign(static_cast<size_t>(w) * ht + 1, 0.0f);
        m_f4.assign(static_cast<size_t>(w) * ht + 1, 0.0f);
        const bool nulls = m_src.Chance(4);
        Call(Format("qsFetchRealTimeFrame(%d, %dx%d)%s", h, w, ht, nulls ? " nulls" : ""), [&] {
            return qsFetchRealTimeFrame(h, m_f1.data(), nulls ? nullptr : m_f2.data(), m_f3.data(), nulls ? nullptr : m_f4.data());
        });
        double poi = 0;
        Call(Format("qsQueryRealTimePoi(%d)", h), [&] { return qsQueryRealTimePoi(h, &poi); });
    }

    void FetchAudio(int h) {
        m_f1.assign(QS_AUDIO_SAMPLES, 0.0f);
        Call(Format("qsFetchAudio(%d)", h), [&] { return qsFetchAudio(h, m_f1.data()); });
    }

    void FetchStream(int h) {
        int len = 0, sps = 0;
        double bw = 0;
        Call(Format("qsQueryStreamInfo(%d)", h), [&] { return qsQueryStreamInfo(h, &len, &bw, &sps); });
        int triggers[64];
        switch (m_src.Byte() % 3) {
        case 0: {
            // Room for the largest block any stream returns: a direct stream's
            // 1048576 values.
            m_f1.assign(1 << 20, 0.0f);
            const bool withTriggers = m_src.Chance(2);
            Call(Format("qsFetchRaw(%d)", h), [&] { return qsFetchRaw(h, m_f1.data(), withTriggers ? triggers : nullptr); });
            break;
        }
        case 1: {
            const int counts[] = {1, 1000, 4096, 100000, 524288, 0, -1, 1 << 21};
            const int n = counts[m_src.Byte() % 8];
            m_f1.assign(2 * static_cast<size_t>(n > 0 ? n : 1), 0.0f);
            qsIQPacket pkt{};
            pkt.iqData = m_f1.data();
            pkt.iqCount = n;
            pkt.triggers = m_src.Chance(2) ? triggers : nullptr;
            pkt.triggerCount = pkt.triggers ? 64 : static_cast<int>(m_src.Byte() % 3);
            pkt.purge = m_src.Chance(4);
            // A narrow stream gives a few thousand samples a second: a large
            // read legitimately takes as long as its samples take to come.
            const char* slow = std::getenv("QS_SIM_SLOWDOWN");
            const double pace = slow && std::atof(slow) > 1 ? std::atof(slow) : 1.0;
            const double budget = kCallBudget + (sps > 0 && n > 0 ? pace * n / sps : 0.0);
            Run(budget, Format("qsGetIQ(%d, count %d, triggers %d, purge %d)", h, n, pkt.triggerCount, pkt.purge),
                [&] { return qsGetIQ(h, &pkt); });
            break;
        }
        default: {
            m_f1.assign(2 * 4096, 0.0f);
            int remaining = 0, loss = 0, sec = 0, nano = 0;
            Call(Format("qsGetIQUnpacked(%d, 4096)", h), [&] {
                return qsGetIQUnpacked(h, m_f1.data(), 4096, triggers, 64, 0, &remaining, &loss, &sec, &nano);
            });
            break;
        }
        }
    }

    void Queries(int h) {
        float corr = 0, t = 0, v = 0, a = 0;
        int type = 0, fw = 0, rev = 0;
        unsigned sid = 0, fpga = 0;
        double tb = 0;
        Call(Format("qsGetIQCorrection(%d)", h), [&] { return qsGetIQCorrection(h, &corr); });
        Call(Format("qsGetDeviceDiagnostics(%d)", h), [&] { return qsGetDeviceDiagnostics(h, &t, &v, &a); });
        Call(Format("qsGetDeviceType(%d)", h), [&] { return qsGetDeviceType(h, &type); });
        Call(Format("qsGetSerialNumber(%d)", h), [&] { return qsGetSerialNumber(h, &sid); });
        Call(Format("qsGetFirmwareVersion(%d)", h), [&] { return qsGetFirmwareVersion(h, &fw); });
        Call(Format("qsGetMapleRev(%d)", h), [&] { return qsGetMapleRev(h, &rev); });
        Call(Format("qsGetFPGAid(%d)", h), [&] { return qsGetFPGAid(h, &fpga); });
        Call(Format("qsGetTimebaseCorrection(%d)", h), [&] { return qsGetTimebaseCorrection(h, &tb); });
        Call(Format("qsQueryStreamInfo(%d, nulls)", h), [&] { return qsQueryStreamInfo(h, nullptr, nullptr, nullptr); });
    }

    void Service(Dev& d, int h) {
        switch (m_src.Byte() % 9) {
        case 0:
            Run(kOpenBudget, Format("qsSelfCal(%d)", h), [&] { return qsSelfCal(h); });
            break;
        case 1: {
            const double c = m_src.Pick(kRatios, kRatioEdges);
            Call(Format("qsSetTimebaseCorrection(%d, %.9g)", h, c), [&] { return qsSetTimebaseCorrection(h, c); });
            break;
        }
        case 2: {
            const double ppm = m_src.Pick(kPpms, kPpmEdges);
            Call(Format("qsAddTimebaseCorrection(%d, %g)", h, ppm), [&] { return qsAddTimebaseCorrection(h, ppm); });
            break;
        }
        case 3: {
            const double a = m_src.Pick(kBandwidths, kBandwidthEdges), b = m_src.Pick(kBandwidths, kBandwidthEdges);
            const bool manual = m_src.Chance(2);
            Call(Format("qsSetIFOffset(%d, %g, %g, %d)", h, a, b, manual), [&] { return qsSetIFOffset(h, a, b, manual); });
            break;
        }
        case 4: {
            unsigned char lo[64], hi[64];
            for (int i = 0; i < 64; ++i) lo[i] = hi[i] = m_src.Byte();
            Call(Format("qsApplyRoughGain(%d)", h), [&] { return qsApplyRoughGain(h, lo, hi); });
            break;
        }
        case 5: {
            m_page.assign(65536, 0);
            const int page = m_src.Chance(2) ? static_cast<int>(m_src.Byte() % 50) : m_src.Int();
            Call(Format("qsReadFlash(%d, %d)", h, page), [&] { return qsReadFlash(h, page, m_page.data()); });
            break;
        }
        case 6: {
            // Writes stay off the calibration pages most of the time, so that
            // a run keeps reaching the measurement paths.
            m_page.assign(65536, m_src.Byte());
            const int page = m_src.Chance(8) ? static_cast<int>(m_src.Byte() % 50) : 40 + m_src.Byte() % 9;
            Call(Format("qsWriteFlash(%d, %d)", h, page), [&] { return qsWriteFlash(h, page, m_page.data()); });
            break;
        }
        case 7:
            Call(Format("qsPreset(%d)", h), [&] { return qsPreset(h); });
            break;
        default: {
            int handle = h;
            const qsStatus st = Run(kOpenBudget, Format("qsPresetFull(%d)", h), [&] { return qsPresetFull(&handle); });
            d.handle = st >= 0 ? handle : -1;
            break;
        }
        }
    }

    void Generator(int h) {
        bool attached = false;
        double f = 0, a = 0;
        switch (m_src.Byte() % 5) {
        case 0:
            Run(kOpenBudget, Format("qsAttachTg(%d)", h), [&] { return qsAttachTg(h); });
            break;
        case 1:
            Call(Format("qsIsTgAttached(%d)", h), [&] { return qsIsTgAttached(h, &attached); });
            break;
        case 2: {
            const int flag = static_cast<int>(m_src.Small(4));
            Call(Format("qsStoreTgThru(%d, %d)", h, flag), [&] { return qsStoreTgThru(h, flag); });
            break;
        }
        case 3: {
            const double freq = m_src.Freq(), ampl = m_src.Pick(kLevels, kLevelEdges);
            Call(Format("qsSetTg(%d, %g, %g)", h, freq, ampl), [&] { return qsSetTg(h, freq, ampl); });
            Call(Format("qsGetTgFreqAmpl(%d)", h), [&] { return qsGetTgFreqAmpl(h, &f, &a); });
            break;
        }
        default: {
            const int ref = m_src.Int();
            Call(Format("qsSetTgReference(%d, %d)", h, ref), [&] { return qsSetTgReference(h, ref); });
            break;
        }
        }
    }

    // A fault at the USB boundary, as the instrument can show one.
    void Fault(Dev& d) {
        const int id = d.sim;
        switch (m_src.Byte() % 10) {
        case 0:
            qssim_stall_transfer(id, m_src.Chance(2) ? 0x81 : 0x82);
            m_log.Add(Format("[sim %d] stall", id));
            break;
        case 1:
            qssim_slip_channel2(id);
            m_log.Add(Format("[sim %d] slip channel 2", id));
            break;
        case 2:
            qssim_step_gpif_overflow(id);
            m_log.Add(Format("[sim %d] device buffer overrun", id));
            break;
        case 3:
            qssim_step_adc_overflow(id);
            m_log.Add(Format("[sim %d] converter overflow", id));
            break;
        case 4: {
            const long long pos = 7 + (static_cast<long long>(m_src.Word()) % 5000000);
            qssim_add_trigger(id, pos);
            m_log.Add(Format("[sim %d] trigger at %lld", id, pos));
            break;
        }
        case 5: {
            const int on = m_src.Chance(2);
            qssim_set_pacing(id, on);
            m_log.Add(Format("[sim %d] pacing %d", id, on));
            break;
        }
        case 6: {
            // A scene the instrument can meet: a real frequency, loud or not.
            const double f = kFreqs[m_src.Byte() % (sizeof kFreqs / sizeof kFreqs[0])], level = m_src.Chance(4) ? 10.0 : -40.0;
            qssim_set_tone(id, f, level);
            m_log.Add(Format("[sim %d] tone %g Hz %g dBm", id, f, level));
            break;
        }
        case 7:
            qssim_set_temperature(id, m_src.Chance(2) ? 25.0 : 60.0);
            m_log.Add(Format("[sim %d] temperature", id));
            break;
        case 8:
            qssim_short_flash_page(id, m_src.Byte() * 256);
            m_log.Add(Format("[sim %d] short flash page", id));
            break;
        default: {
            // Unplugged in whatever state it was: the next calls must fail
            // promptly. Later it comes back with a new serial number and is
            // opened again.
            qssim_remove_device(id);
            m_log.Add(Format("[sim %d] unplugged", id));
            const int n = 1 + m_src.Byte() % 3;
            for (int i = 0; i < n; ++i) {
                FetchTrace(d.handle);
                FetchStream(d.handle);
                FetchAudio(d.handle);
            }
            Call(Format("qsCloseDevice(%d)", d.handle), [&] { return qsCloseDevice(d.handle); });
            d.handle = -1;
            d.serial += 100;
            d.sim = qssim_add_device(d.pid, d.serial);
            Open(d);
            break;
        }
        }
    }

    void Reopen(Dev& d) {
        Call(Format("qsCloseDevice(%d)", d.handle), [&] { return qsCloseDevice(d.handle); });
        d.handle = -1;
        Open(d);
    }

    Source& m_src;
    CallLog& m_log;
    Watchdog& m_dog;
    Dev m_dev[2] = {};
    unsigned m_generation = 0;
    std::vector<float> m_f1, m_f2, m_f3, m_f4;
    std::vector<double> m_d1, m_d2;
    std::vector<unsigned char> m_page;
};

CallLog g_log;
int g_baselineThreads = -1;

void RunSequence(Source& src, long maxCalls) {
    Watchdog dog(g_log);
    if (g_baselineThreads < 0) g_baselineThreads = ThreadCount();
    g_log.Clear();
    Session s(src, g_log, dog);
    s.Start();
    for (long n = 0; n < maxCalls && s.Step(); ++n) {
    }
    s.Finish();
    // Every device closed and unplugged: the library's threads (interface,
    // engines) and the simulator's must all have ended; give them a
    // moment to leave the thread list.
    int left = ThreadCount();
    for (int i = 0; i < 50 && left > g_baselineThreads; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        left = ThreadCount();
    }
    if (left > g_baselineThreads) {
        std::fprintf(stderr, "api fuzz: %d threads left after close (%d before)\n", left, g_baselineThreads);
        g_log.Print();
        std::abort();
    }
}

}  // namespace

void RunBytes(const uint8_t* data, size_t size) {
    Source src(data, size, 1);
    RunSequence(src, std::numeric_limits<long>::max());
}

void RunSeed(uint64_t seed, long calls) {
    Source src(nullptr, 0, seed);
    RunSequence(src, calls);
}

}  // namespace apifuzz
