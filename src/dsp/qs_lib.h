// Small numeric and system helpers shared by planning, engines and the
// transport: RBW to FFT size, the packets-per-step solver, the IQ bandwidth
// limits, the sample unpackers, level triggers, the binary semaphore and
// the per-user data directory.
//
// All functions are reentrant, except getAppDataPath, whose cache has no
// lock (it is called on the open path, one thread at a time).
#pragma once

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

#include "dsp/qs_defs.h"

namespace qs {

class Settings;

extern const RBWLUT rbwlut[bwLutLen];

// --- Plain arithmetic -----------------------------------------------------

// floor(val + 0.5): halves go up, also for negative values.
int round_to_int(double val);
// (v + 3) with the two low bits cleared.
unsigned round_up_factor_four(unsigned v);
// Smallest power of two at or above val; 1 for 0 and 1.
unsigned round_up_power_two(unsigned val);
// |val - to_test| < delta, strictly.
bool is_within(double val, double to_test, double delta);
// 1 << n; 0 for n outside 0 to 31.
unsigned mypow2(int n);
bool is_pow_two(int n);
bool is_pow_two(unsigned n);
// Index of the highest set bit; -1 for 0 (and for a negative n).
int mylog2(int n);
int mylog2(unsigned n);
// ln(n) / ln(2).
double mylog2(double n);
double acosh(double x);

// 32-bit wrapping sum of len words; 0 for len below 1.
unsigned check_sum(const unsigned* p, int len);
// All len bytes are 0xFF; true for len below 1.
bool is_flash_blank(const unsigned char* mem, int len);
// Size by seeking to the end and back; 0 for a null file.
long get_file_size(FILE* file);
bool fileExists(const std::string& path);

// --- RBW and FFT size -----------------------------------------------------

// Row of rbwlut whose nativerbw is nearest to rbw; the lower row on a tie.
int native_index_from_rbw(double rbw);
double native_fft_from_rbw(double rbw);
double native_bin_from_rbw(double rbw);

// Low-pass RBW shape: *fft_size = 2^ceil(log2(8e7 / (rbw / 3.2))) (0 when
// the exponent is negative or beyond an int), *fc = the filter cut-off in
// bins of that FFT.
void non_native_fft_from_rbw(double rbw, int* fft_size, double* fc);

// FFT size and zero padding of a measurement from m_rbw and m_rbwShape.
// No guard for a zero RBW: the public range check keeps it positive.
void get_fft_size(const Settings* s, int& fftSize, int& zeroPadAmount);

// --- Packets per LO step --------------------------------------------------

// The nearest packets-per-step count the device can do, at or above min:
// powers of two, and above 32 also 1.5 times a power of two. min > 0.
int get_min_ppf(int min);
// Raises *min_ppf to a legal count and both until ppf x steps is a whole
// number of 16-packet blocks.
void solve_ppf_step(int* min_ppf, int* min_steps);

// --- IQ bandwidth limits, by log2 of the decimation -----------------------

double get_min_iq_bandwidth(int e);
double get_max_iq_bandwidth(DEVICE_MODEL model, int e);

// --- Real time ------------------------------------------------------------

// Halves (rounding up) until at most 1023, scales back, rounds up to a
// multiple of 4.
int calculateBestRealTimeSweepSize(int startSize);

// --- Sample unpacking -----------------------------------------------------
//
// Each takes the payload of one packet (32704 bytes, little-endian 16-bit
// words) and writes UNPACK_SAMPLES samples in time order. Seven words carry
// eight 14-bit samples: s1..s7 are w0..w6 with the two low bits cleared,
// and s0 is assembled from those low bit pairs, w0's on top.
// Called on the interface thread: no allocation, no lock.

constexpr int UNPACK_GROUP_WORDS = 7;
constexpr int UNPACK_GROUP_SAMPLES = 8;
constexpr int UNPACK_GROUPS = 2336;
constexpr int UNPACK_SAMPLES = UNPACK_GROUPS * UNPACK_GROUP_SAMPLES;
constexpr double UNPACK_SCALE_64F = 3.05008235e-5;
constexpr float UNPACK_SCALE_32F = 3.0500823e-5f;

// The data path's form: two groups per round.
void unpack_to_short(const void* src, short* dst);
// One group per round; same output.
void unpack_to_short_old(const void* src, short* dst);
// Signed sample times UNPACK_SCALE_64F / UNPACK_SCALE_32F.
void unpack_to_double(const void* src, double* dst);
void unpack_to_float(const void* src, float* dst);

// --- Level triggers -------------------------------------------------------

// Index of the first element above t that follows an element below t (a
// leading run at or above t is passed over). Strict comparisons. 0 means
// not found, and is the result for len below 1.
int find_rising_trigger(const float* arr, float t, int len);
// The same with above and below exchanged.
int find_falling_trigger(const float* arr, float t, int len);

// --- Per-user data directory ----------------------------------------------

// "<home>/.corvane", home from the password database; made with mode 0777
// if missing. Cached after the first success; null if it cannot be made.
const char* getAppDataPath();
// The constant "~/.corvane", unexpanded, if that path exists or can be
// made; else null.
const char* get_app_data_path();
// "<home>/.corvane/cal_files/", made on the way, home being $HOME when set
// and else getAppDataPath()'s; empty if the directory is unavailable.
std::string getCorrectionFilePath();

// --- Binary semaphore -----------------------------------------------------

// One bit, not a counter: notifications before a wait collapse into one,
// and of several waiters one goes on per notification.
class semaphore {
public:
    semaphore() = default;
    ~semaphore();
    semaphore(const semaphore&) = delete;
    semaphore& operator=(const semaphore&) = delete;

    void notify();
    void wait();

private:
    std::mutex m;
    std::condition_variable cv;
    bool set = false;
};

}  // namespace qs
