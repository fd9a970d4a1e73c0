#include "dsp/math_helpers.h"

#include <cmath>

#include "dsp/qs_defs.h"

namespace qs {

int round_to_int(double val) { return static_cast<int>(std::floor(val + 0.5)); }

unsigned round_up_factor_four(unsigned v) { return (v + 3u) & ~3u; }

unsigned round_up_power_two(unsigned val) {
    unsigned p = 1;
    while (p < val && p != 0x80000000u) p <<= 1;
    return p;
}

bool is_within(double val, double to_test, double delta) {
    return std::fabs(val - to_test) < delta;
}

unsigned mypow2(int n) {
    if (n < 0 || n > 31) return 0;
    return 1u << n;
}

bool is_pow_two(int n) { return n > 0 && (n & (n - 1)) == 0; }

bool is_pow_two(unsigned n) { return n > 0 && (n & (n - 1)) == 0; }

int mylog2(unsigned n) {
    int r = -1;
    while (n) {
        n >>= 1;
        ++r;
    }
    return r;
}

int mylog2(int n) { return n < 0 ? -1 : mylog2(static_cast<unsigned>(n)); }

double mylog2(double n) { return std::log(n) * QS_INV_LN2; }

double acosh(double x) { return std::log(x + std::sqrt(x * x - 1.0)); }

unsigned check_sum(const unsigned* p, int len) {
    unsigned sum = 0;
    for (int i = 0; i < len; ++i) sum += p[i];
    return sum;
}

bool is_flash_blank(const unsigned char* mem, int len) {
    for (int i = 0; i < len; ++i)
        if (mem[i] != 0xFF) return false;
    return true;
}

}  // namespace qs
