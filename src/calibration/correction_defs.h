// The factory calibration image in flash, byte for byte, and the in-memory
// tables it is spread into.
//
// The image layouts are fixed by the factory: little-endian and packed, with
// offsets that must never move. The packed records below exist to pin those
// offsets at compile time; the image itself is always read with memcpy from
// byte offsets, so a buffer of any alignment is safe to parse.
//
// The table classes own their storage. Deflatten copies a table from the
// image's float order, Flatten is its exact inverse (the library never
// writes tables; Flatten serves image-writing tools and tests).
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the calibration image is little-endian and is read in host order");

namespace qs {

// --- Flash geometry -------------------------------------------------------

constexpr int FLASH_READ_PAGE_SIZE = 65536;   // ReadFlash
constexpr int FLASH_WRITE_PAGE_SIZE = 256;    // WriteFlash
constexpr int FLASH_MAX_READ_PAGE = 48;
constexpr int CAL_FIRST_READ_PAGE = 8;        // the image starts here...
constexpr int CAL_FIRST_WRITE_PAGE = 2048;    // ...which is this write page
constexpr int LARCH_CAL_READ_PAGES = 8;
constexpr int MAPLE_CAL_READ_PAGES = 12;
constexpr size_t LARCH_CAL_BUFFER_SIZE = size_t(LARCH_CAL_READ_PAGES) * FLASH_READ_PAGE_SIZE;
constexpr size_t MAPLE_CAL_BUFFER_SIZE = size_t(MAPLE_CAL_READ_PAGES) * FLASH_READ_PAGE_SIZE;

// --- Image layouts --------------------------------------------------------

#pragma pack(push, 1)

// The Larch's header.
struct flashHeader_t {
    uint32_t sid;
    uint32_t fpgaid;
    uint16_t hardwareVersion;
    uint16_t firmwareVersion;
    uint16_t CorrOnFlashVersion;
    uint16_t reserved;
    char datetime[64];
    char copyright[64];
    uint8_t mix[16];
    uint8_t _pad[96];
};

// The Maple's header: the Larch's without mix.
struct FlashHeaderMaple {
    uint32_t sid;
    uint32_t fpgaid;
    uint16_t hardwareVersion;
    uint16_t firmwareVersion;
    uint16_t CorrOnFlashVersion;
    uint16_t reserved;
    char datetime[64];
    char copyright[64];
    uint8_t _pad[112];
};

// The Larch's image.
struct CorrOnFlash {
    flashHeader_t hdr;
    float band0A[41 * 128];
    float band0B[20 * 128];
    float band0C[197 * 128];
    float band1[116 * 128];
    float band2[166 * 128];
    float band3[160 * 128];
    float IF0[8 * 301];
    float IF1[8 * 301];
    float IF2[8 * 301];
    float IF3[8 * 301];
    float internalTemp[8];
    float triggerDelays[8 * 4];  // [temperature][hardware band]
    double oscRatio;
    uint32_t checksum;
    uint8_t _pad[1024];
    uint8_t _end[4];
};

// The Maple's image.
struct CorrOnFlash_Maple {
    FlashHeaderMaple hdr;
    uint8_t rough_low[310];
    uint8_t rough_high[310];
    float rf_bands[425 * 192];   // ten RF tables, one after another
    float if_bands[10 * 12 * 384];
    float if_curve[12 * 310 * 6];  // [temperature][20 MHz row][coefficient]
    float temps[12];
    float trig_delays[12 * 10];    // [temperature][LO row]
    uint8_t _pad0[4];
    double oscRatio;
    uint32_t crc_value;
    uint8_t _pad1[4];
    double timebase_cals[256];
};

#pragma pack(pop)

static_assert(sizeof(flashHeader_t) == 256, "Larch header size");
static_assert(offsetof(flashHeader_t, firmwareVersion) == 10, "Larch header");
static_assert(offsetof(flashHeader_t, datetime) == 16, "Larch header");
static_assert(offsetof(flashHeader_t, copyright) == 80, "Larch header");
static_assert(offsetof(flashHeader_t, mix) == 144, "Larch header");
static_assert(offsetof(flashHeader_t, _pad) == 160, "Larch header");
static_assert(sizeof(FlashHeaderMaple) == 256, "Maple header size");
static_assert(offsetof(FlashHeaderMaple, firmwareVersion) == 10, "Maple header");
static_assert(offsetof(FlashHeaderMaple, _pad) == 144, "Maple header");

static_assert(offsetof(CorrOnFlash, band0A) == 256, "Larch image");
static_assert(offsetof(CorrOnFlash, band0B) == 21248, "Larch image");
static_assert(offsetof(CorrOnFlash, band0C) == 31488, "Larch image");
static_assert(offsetof(CorrOnFlash, band1) == 132352, "Larch image");
static_assert(offsetof(CorrOnFlash, band2) == 191744, "Larch image");
static_assert(offsetof(CorrOnFlash, band3) == 276736, "Larch image");
static_assert(offsetof(CorrOnFlash, IF0) == 358656, "Larch image");
static_assert(offsetof(CorrOnFlash, IF1) == 368288, "Larch image");
static_assert(offsetof(CorrOnFlash, IF2) == 377920, "Larch image");
static_assert(offsetof(CorrOnFlash, IF3) == 387552, "Larch image");
static_assert(offsetof(CorrOnFlash, internalTemp) == 397184, "Larch image");
static_assert(offsetof(CorrOnFlash, triggerDelays) == 397216, "Larch image");
static_assert(offsetof(CorrOnFlash, oscRatio) == 397344, "Larch image");
static_assert(offsetof(CorrOnFlash, checksum) == 397352, "Larch image");
static_assert(offsetof(CorrOnFlash, _pad) == 397356, "Larch image");
static_assert(sizeof(CorrOnFlash) == 398384, "Larch image size");
static_assert(sizeof(CorrOnFlash) <= LARCH_CAL_BUFFER_SIZE, "Larch image fits its pages");

static_assert(offsetof(CorrOnFlash_Maple, rough_low) == 256, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, rough_high) == 566, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, rf_bands) == 876, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, if_bands) == 327276, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, if_curve) == 511596, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, temps) == 600876, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, trig_delays) == 600924, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, oscRatio) == 601408, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, crc_value) == 601416, "Maple image");
static_assert(offsetof(CorrOnFlash_Maple, timebase_cals) == 601424, "Maple image");
static_assert(sizeof(CorrOnFlash_Maple) == 603472, "Maple image size");
static_assert(sizeof(CorrOnFlash_Maple) <= MAPLE_CAL_BUFFER_SIZE, "Maple image fits its pages");
// A timebase slot never straddles a write page.
static_assert(offsetof(CorrOnFlash_Maple, timebase_cals) % 8 == 0, "timebase slots aligned");

// Size of the Maple image.
constexpr size_t ss = sizeof(CorrOnFlash_Maple);
// Words the Maple's checksum covers; part of the format, unused here.
constexpr int checksum_size_maple = 601164;

constexpr int MAPLE_TIMEBASE_SLOTS = 256;
constexpr int MAPLE_ROUGH_ROWS = 310;  // one per 20 MHz

// A field of the image at a byte offset.
template <class T>
T image_read(const unsigned char* mem, size_t offset) {
    T v;
    std::memcpy(&v, mem + offset, sizeof v);
    return v;
}

// --- Identity in the header ------------------------------------------------

// What the device keeps of the header. A header whose first 8 bytes are
// erased flash belongs to no device: blank is set and the numbers stay 0.
struct FlashIdentity {
    bool blank = true;
    uint32_t sid = 0;
    uint16_t firmwareVersion = 0;
};

// The header is the same on both models up to the firmware version. Fewer
// than 12 bytes read as blank.
FlashIdentity parse_flash_identity(const unsigned char* mem, size_t len);

// --- Timebase slot writes (Maple) -----------------------------------------

// One 256-byte flash write that stores a timebase value: erased flash
// everywhere but the eight bytes of the double.
struct TimebaseFlashWrite {
    int page;  // write page, 2048 + (offset >> 8)
    unsigned char data[FLASH_WRITE_PAGE_SIZE];
};

// The write for a value at an image offset (a slot's, 601,424 + 8 * slot).
TimebaseFlashWrite make_timebase_write(int imageOffset, double value);

// --- Table parameters ------------------------------------------------------

struct RFCorrParams {
    int32_t steps;
    double start;
    double stop;
    double stepSize;  // Hz; row 0 of the Maple counts decades per step
    int32_t ifAssociation;
};

constexpr int MAPLE_RF_ROWS = 10;
constexpr int MAPLE_IF_TABLES = 10;
constexpr int MAPLE_TEMPS = 12;
constexpr int LARCH_TEMPS = 8;
constexpr int MAPLE_RF_STEPS_TOTAL = 425;  // each revision's rows add up to this

// The RF tables of the Maple by LO row: revision 1, and revision 2.
extern const RFCorrParams RFCorrParamsMaple1[MAPLE_RF_ROWS];
extern const RFCorrParams RFCorrParamsMaple2[MAPLE_RF_ROWS];
// Revision 1 is USB product id 2, revision 2 product id 5; any revision but
// 1 takes the second table.
const RFCorrParams* rf_corr_params_maple(int mapleVersion);
// Centres of the Maple's IF tables, Hz.
extern const double IFCentersMaple[MAPLE_IF_TABLES];

// The Larch's six RF tables in image order (B0A, B0B, B0C, B1, B2, B3).
constexpr int LARCH_RF_TABLES = 6;
extern const RFCorrParams RFCorrParamsLarch[LARCH_RF_TABLES];
// Centres of the Larch's four IF tables, Hz.
extern const double IFCentersLarch[4];

// --- Tables ---------------------------------------------------------------

// An RF table: one curve of m_steps values per (attenuation, gain,
// temperature), attenuation slowest and temperature fastest, which is also
// the image's order, so the curves lie in one block.
template <int TEMPS>
class RFCorrTable {
public:
    RFCorrTable(int steps, double start, double stop, double stepSize)
        : m_steps(steps), m_start(start), m_stop(stop), m_stepSize(stepSize),
          m_store(size_t(steps) * CURVES, 0.0f) {
        float* p = m_store.data();
        for (int a = 0; a < 4; ++a)
            for (int g = 0; g < 4; ++g)
                for (int t = 0; t < TEMPS; ++t, p += steps) b[a][g][t] = p;
    }
    RFCorrTable(const RFCorrTable&) = delete;
    RFCorrTable& operator=(const RFCorrTable&) = delete;

    static constexpr int CURVES = 4 * 4 * TEMPS;
    // Floats of the table in the image.
    int FloatCount() const { return m_steps * CURVES; }
    size_t ByteCount() const { return size_t(FloatCount()) * sizeof(float); }

    void Deflatten(const float* src) { DeflattenBytes(reinterpret_cast<const unsigned char*>(src)); }
    void DeflattenBytes(const unsigned char* src) { std::memcpy(m_store.data(), src, ByteCount()); }
    void Flatten(float* dst) const { std::memcpy(dst, m_store.data(), ByteCount()); }
    void Zero() { std::fill(m_store.begin(), m_store.end(), 0.0f); }

    int32_t m_steps;
    double m_start;
    double m_stop;
    double m_stepSize;
    float* b[4][4][TEMPS];  // [atten][gain][temp] -> curve of m_steps

private:
    std::vector<float> m_store;
};

class RFCorrLarch : public RFCorrTable<LARCH_TEMPS> {
public:
    RFCorrLarch(int steps, double start, double stop, double stepSize)
        : RFCorrTable(steps, start, stop, stepSize) {}
};

class RFCorrMaple : public RFCorrTable<MAPLE_TEMPS> {
public:
    explicit RFCorrMaple(const RFCorrParams& p)
        : RFCorrTable(p.steps, p.start, p.stop, p.stepSize), if_band(p.ifAssociation) {}

    int32_t if_band;  // the IF table this row reads
};

// IF tables: one curve per temperature, temperature slowest.
class IFCorrLarch {
public:
    static constexpr int steps = 301;
    explicit IFCorrLarch(double c) : center(c) { Zero(); }

    void Deflatten(const float* src) { DeflattenBytes(reinterpret_cast<const unsigned char*>(src)); }
    void DeflattenBytes(const unsigned char* src) { std::memcpy(b, src, sizeof b); }
    void Flatten(float* dst) const { std::memcpy(dst, b, sizeof b); }
    void Zero() { std::memset(b, 0, sizeof b); }

    double center;  // Hz
    float b[LARCH_TEMPS][steps];
};

class IFCorrMaple {
public:
    static constexpr int steps = 384;
    explicit IFCorrMaple(double c) : RFCenter(c) { Zero(); }

    void Deflatten(const float* src) { DeflattenBytes(reinterpret_cast<const unsigned char*>(src)); }
    void DeflattenBytes(const unsigned char* src) { std::memcpy(b, src, sizeof b); }
    void Flatten(float* dst) const { std::memcpy(dst, b, sizeof b); }
    void Zero() { std::memset(b, 0, sizeof b); }

    double RFCenter;  // Hz
    float b[MAPLE_TEMPS][steps];
};
static_assert(sizeof(IFCorrMaple::b) == 18432, "one Maple IF table in the image");
static_assert(sizeof(IFCorrLarch::b) == 9632, "one Larch IF table in the image");

// Trigger delays of the Larch, [temperature][hardware band], in samples.
// Deflatten takes only plausible values (strictly between 70 and 120);
// when it takes none, temperatures 0 to 5 get the factory's typical values.
class TriggerCorrLarch {
public:
    TriggerCorrLarch() { Zero(); }

    // Returns how many of the 32 values were taken.
    int Deflatten(const float* src) { return DeflattenBytes(reinterpret_cast<const unsigned char*>(src)); }
    int DeflattenBytes(const unsigned char* src);
    void Flatten(float* dst) const { std::memcpy(dst, b, sizeof b); }
    void Zero() { std::memset(b, 0, sizeof b); }

    float b[LARCH_TEMPS][4];
};

// Trigger delays of the Maple, [temperature][LO row], in samples.
class TriggerCorrMaple {
public:
    TriggerCorrMaple() { Zero(); }

    void Deflatten(const float* src) { DeflattenBytes(reinterpret_cast<const unsigned char*>(src)); }
    void DeflattenBytes(const unsigned char* src) { std::memcpy(b, src, sizeof b); }
    void Flatten(float* dst) const { std::memcpy(dst, b, sizeof b); }
    void Zero() { std::memset(b, 0, sizeof b); }

    float b[MAPLE_TEMPS][MAPLE_RF_ROWS];
};

// The IF slope of one temperature and 20 MHz row: a polynomial in
// if_freq / 15 MHz with no constant term.
class SlopePoly_Maple {
public:
    SlopePoly_Maple() { Zero(); }

    void SetCoefficients(const float* src) { std::memcpy(c, src, sizeof c); }
    void Deflatten(const float* src) { SetCoefficients(src); }
    void DeflattenBytes(const unsigned char* src) { std::memcpy(c, src, sizeof c); }
    void Flatten(float* dst) const { std::memcpy(dst, c, sizeof c); }
    void Zero() { std::memset(c, 0, sizeof c); }

    // Horner in float on x = if_freq / 1.5e7.
    float Solve(double if_freq) const;

    float c[6];
};

// Truncation of a double into lo..hi; NaN reads as lo. Converting an
// out-of-range double to int is undefined, so the clamp comes first.
inline int clamp_trunc(double d, int lo, int hi) {
    if (!(d > lo)) return lo;
    if (d >= hi) return hi;
    return static_cast<int>(d);
}

// Nearest integer, halves up; a value beyond int reads as its limit and
// NaN as 0, which only corrupt tables can produce.
inline int round_clamped(float v) {
    if (std::isnan(v)) return 0;
    const double r = std::floor(static_cast<double>(v) + 0.5);
    if (r <= static_cast<double>(INT_MIN)) return INT_MIN;
    if (r >= static_cast<double>(INT_MAX)) return INT_MAX;
    return static_cast<int>(r);
}

}  // namespace qs
