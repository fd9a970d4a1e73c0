// A calibration image writer for the tests, independent of the library's
// layout records: every offset is written out here as a number, so a moved
// field in the library shows up as a wrong value read back.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

namespace caltest {

class Image {
public:
    explicit Image(size_t size, uint8_t fill = 0) : bytes(size, fill) {}

    template <class T>
    void Put(size_t offset, T v) {
        std::memcpy(bytes.data() + offset, &v, sizeof v);
    }
    void Fill(size_t offset, size_t len, uint8_t v) { std::memset(bytes.data() + offset, v, len); }
    const unsigned char* data() const { return bytes.data(); }
    size_t size() const { return bytes.size(); }

    std::vector<unsigned char> bytes;
};

// --- Maple -------------------------------------------------------------------

constexpr size_t kMapleSize = 603472;
constexpr size_t kMapleRoughLow = 256, kMapleRoughHigh = 566, kMapleRF = 876, kMapleIF = 327276,
                 kMapleSlope = 511596, kMapleTemps = 600876, kMapleTrig = 600924, kMapleOsc = 601408,
                 kMapleTimebase = 601424;

// Steps of the ten RF rows of each revision.
constexpr int kMapleSteps1[10] = {105, 94, 31, 32, 58, 40, 24, 1, 10, 30};
constexpr int kMapleSteps2[10] = {105, 94, 31, 32, 53, 45, 20, 5, 10, 30};

class MapleImage : public Image {
public:
    explicit MapleImage(int rev = 1) : Image(kMapleSize), steps(rev == 1 ? kMapleSteps1 : kMapleSteps2) {
        // Temperatures 0, 10, ..., 110 and a calibrated (non-erased) header.
        for (int t = 0; t < 12; ++t) Temp(t, float(t * 10));
        Put<uint32_t>(0, 0x01020304u);
        Put<double>(kMapleOsc, 1.0);
        Fill(kMapleTimebase, 2048, 0xFF);
    }
    size_t RFOffset(int row, int a, int g, int t, int step) const {
        size_t first = 0;
        for (int r = 0; r < row; ++r) first += size_t(steps[r]) * 192;
        return kMapleRF + 4 * (first + size_t(((a * 4 + g) * 12 + t) * steps[row] + step));
    }
    void RF(int row, int a, int g, int t, int step, float v) { Put(RFOffset(row, a, g, t, step), v); }
    // The same value at every temperature.
    void RFAllTemps(int row, int a, int g, int step, float v) {
        for (int t = 0; t < 12; ++t) RF(row, a, g, t, step, v);
    }
    void IF(int table, int t, int k, float v) { Put(kMapleIF + 4 * size_t(table * 4608 + t * 384 + k), v); }
    void Slope(int t, int r, int c, float v) { Put(kMapleSlope + 4 * size_t((t * 310 + r) * 6 + c), v); }
    void Temp(int t, float v) { Put(kMapleTemps + 4 * size_t(t), v); }
    void Trig(int t, int row, float v) { Put(kMapleTrig + 4 * size_t(t * 10 + row), v); }
    void Timebase(int slot, double v) { Put(kMapleTimebase + 8 * size_t(slot), v); }

    const int* steps;
};

// --- Larch -------------------------------------------------------------------

constexpr size_t kLarchSize = 398384;
constexpr size_t kLarchRF[6] = {256, 21248, 31488, 132352, 191744, 276736};
constexpr int kLarchSteps[6] = {41, 20, 197, 116, 166, 160};
constexpr size_t kLarchIF[4] = {358656, 368288, 377920, 387552};
constexpr size_t kLarchTemps = 397184, kLarchTrig = 397216, kLarchOsc = 397344;

class LarchImage : public Image {
public:
    LarchImage() : Image(kLarchSize) { Put<uint32_t>(0, 0x0A0B0C0Du); }
    void RF(int table, int a, int g, int t, int step, float v) {
        Put(kLarchRF[table] + 4 * size_t(((a * 4 + g) * 8 + t) * kLarchSteps[table] + step), v);
    }
    void IF(int table, int t, int k, float v) { Put(kLarchIF[table] + 4 * size_t(t * 301 + k), v); }
    void Trig(int t, int hw, float v) { Put(kLarchTrig + 4 * size_t(t * 4 + hw), v); }
};

}  // namespace caltest
