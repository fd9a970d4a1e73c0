// Numbers as a person types and reads them: 2.4G, 100k, 1.5e9.
#pragma once

#include <string>

namespace qstool {

// Parses a decimal number with an optional multiplier k or K (1e3), M (1e6)
// or G (1e9), and an optional unit "Hz" after it (2.4GHz, 100 kHz). Lower
// case m is refused rather than guessed: milli and mega are both plausible.
// Returns false for anything else, including trailing text, nan and inf.
bool ParseSi(const std::string& text, double* value);

// Parses a plain decimal number (a level in dBm), also negative.
bool ParseNumber(const std::string& text, double* value);

// Parses a whole decimal number from 0 to INT_MAX.
bool ParseCount(const std::string& text, int* value);

// A duration: a number of seconds, or with a unit ms, s, m or min, h
// ("20s", "1.5m", "2h"). Refuses negative values and anything else.
bool ParseDuration(const std::string& text, double* seconds);

// A number with up to three decimals, trailing zeros dropped: "9765.625",
// "88000000", "-3.5".
std::string FormatExact(double value);

// "2.4 GHz", "100 kHz", "9 kHz", "1.5 MHz", "20 Hz": at most `digits`
// significant digits, trailing zeros dropped.
std::string FormatHz(double hz, int digits = 6);

}  // namespace qstool
