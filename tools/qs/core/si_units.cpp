#include "core/si_units.h"

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <strings.h>

namespace qstool {

namespace {

// strtod also takes hex, "inf" and "nan"; people mean plain decimals.
bool LooksDecimal(const std::string& text) {
    for (char c : text)
        if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '+' ||
              c == 'e' || c == 'E'))
            return false;
    return !text.empty();
}

// Splits a leading decimal number off text; rest is what follows it.
bool LeadingNumber(const std::string& text, double* value, std::string* rest) {
    size_t end = 0;
    while (end < text.size()) {
        const char c = text[end];
        const bool exponentSign = (c == '-' || c == '+') && end > 0 &&
                                  (text[end - 1] == 'e' || text[end - 1] == 'E');
        const bool exponent = (c == 'e' || c == 'E') && end + 1 < text.size() &&
                              (std::isdigit(static_cast<unsigned char>(text[end + 1])) ||
                               text[end + 1] == '-' || text[end + 1] == '+');
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.' || exponent || exponentSign ||
            ((c == '-' || c == '+') && end == 0))
            ++end;
        else
            break;
    }
    const std::string number = text.substr(0, end);
    if (!LooksDecimal(number)) return false;
    char* stop = nullptr;
    const double v = std::strtod(number.c_str(), &stop);
    if (stop != number.c_str() + number.size() || !std::isfinite(v)) return false;
    *value = v;
    *rest = text.substr(end);
    return true;
}

}  // namespace

bool ParseSi(const std::string& text, double* value) {
    double number = 0.0;
    std::string rest;
    if (!LeadingNumber(text, &number, &rest)) return false;
    size_t pos = 0;
    if (pos < rest.size() && rest[pos] == ' ') ++pos;
    double scale = 1.0;
    if (pos < rest.size()) {
        switch (rest[pos]) {
            case 'k': case 'K': scale = 1e3; ++pos; break;
            case 'M': scale = 1e6; ++pos; break;
            case 'G': case 'g': scale = 1e9; ++pos; break;
            default: break;
        }
    }
    const std::string unit = rest.substr(pos);
    if (!unit.empty() && strcasecmp(unit.c_str(), "hz") != 0) return false;
    // "2.4 " or " Hz" alone is a typing slip, not a number.
    if (pos == 1 && rest[0] == ' ' && unit.empty()) return false;
    const double v = number * scale;
    if (!std::isfinite(v)) return false;
    *value = v;
    return true;
}

bool ParseNumber(const std::string& text, double* value) {
    double v = 0.0;
    std::string rest;
    if (!LeadingNumber(text, &v, &rest) || !rest.empty()) return false;
    *value = v;
    return true;
}

bool ParseCount(const std::string& text, int* value) {
    if (text.empty() || text.size() > 10) return false;
    long long v = 0;
    for (char c : text) {
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
        v = v * 10 + (c - '0');
    }
    if (v > INT_MAX) return false;
    *value = static_cast<int>(v);
    return true;
}

bool ParseDuration(const std::string& text, double* seconds) {
    double v = 0.0;
    std::string rest;
    if (!LeadingNumber(text, &v, &rest) || v < 0.0) return false;
    static const struct {
        const char* unit;
        double scale;
    } kUnits[] = {{"", 1.0}, {"s", 1.0}, {"ms", 1e-3}, {"m", 60.0}, {"min", 60.0}, {"h", 3600.0}};
    for (const auto& u : kUnits)
        if (rest == u.unit) {
            *seconds = v * u.scale;
            return std::isfinite(*seconds);
        }
    return false;
}

std::string FormatExact(double value) {
    // Three decimals hold every bin edge of the analysers to the millihertz
    // (bins are multiples of 80 MHz over a power of two); the zeros after
    // them are dropped so that whole numbers print as such.
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", value);
    std::string s = text;
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s == "-0" ? "0" : s;
}

std::string FormatHz(double hz, int digits) {
    static const struct {
        double scale;
        const char* unit;
    } kUnits[] = {{1e9, "GHz"}, {1e6, "MHz"}, {1e3, "kHz"}, {1.0, "Hz"}};
    const double magnitude = std::fabs(hz);
    for (const auto& u : kUnits) {
        if (magnitude >= u.scale || u.scale == 1.0) {
            char text[64];
            std::snprintf(text, sizeof text, "%.*g %s", digits, hz / u.scale, u.unit);
            return text;
        }
    }
    return {};
}

}  // namespace qstool
