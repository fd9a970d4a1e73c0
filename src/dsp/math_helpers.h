// Plain integer and floating-point helpers of the signal and planning code,
// and the two checks of raw flash bytes. All reentrant.
#pragma once

namespace qs {

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

}  // namespace qs
