#include "tg/tg_interface.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dsp/file_paths.h"

namespace qs {

namespace {

constexpr unsigned char SLIP_END = 0xC0;
constexpr unsigned char SLIP_ESC = 0xDB;
constexpr unsigned char SLIP_ESC_END = 0xDC;
constexpr unsigned char SLIP_ESC_ESC = 0xDD;

constexpr char kBridgeDescription[] = "CorvaneLinkTG";
constexpr int kDescriptionChars = 13;
constexpr DWORD kBaud = 25000;  // not a rate of the usual series
constexpr DWORD kTimeoutMs = 1000;
constexpr unsigned char kLatencyMs = 2;

}  // namespace

int slip_encode(const unsigned char* payload, int count, unsigned char* frame) {
    int n = 0;
    for (int i = 0; i < count; ++i) {
        switch (payload[i]) {
            case SLIP_END:
                frame[n++] = SLIP_ESC;
                frame[n++] = SLIP_ESC_END;
                break;
            case SLIP_ESC:
                frame[n++] = SLIP_ESC;
                frame[n++] = SLIP_ESC_ESC;
                break;
            default: frame[n++] = payload[i]; break;
        }
    }
    frame[n++] = SLIP_END;
    return n;
}

TGInterface::TGInterface() : FTTG(ft_no_bridge()) {}

TGInterface::~TGInterface() { Disconnect(); }

bool TGInterface::Connect() {
    if (IsConnected()) return true;
    DWORD count = 0;
    FT_CreateDeviceInfoList(&count);
    if (count == 0) return false;
    int found = -1;
    for (DWORD i = 0; i < count && found < 0; ++i) {
        char serial[16] = {};
        char description[64] = {};
        if (FT_GetDeviceInfoDetail(i, nullptr, nullptr, nullptr, nullptr, serial, description, nullptr) != FT_OK)
            continue;
        // A longer description that starts with the name still matches.
        description[kDescriptionChars] = 0;
        if (std::strcmp(description, kBridgeDescription) == 0) {
            found = static_cast<int>(i);
            std::memcpy(serialNumberString, serial, 9);
            serialNumberString[9] = 0;
        }
    }
    if (found < 0) return false;
    FT_Open(found, &FTTG);
    if (!IsConnected()) return false;
    FT_SetBaudRate(FTTG, kBaud);
    FT_SetTimeouts(FTTG, kTimeoutMs, kTimeoutMs);
    FT_SetLatencyTimer(FTTG, kLatencyMs);
    serialNumber = std::atoi(serialNumberString);
    m_lost = false;
    // Neutral until a table or the user area says otherwise.
    validCal = false;
    isTGRowan = false;
    m_osc = 1.0;
    ReadCalData();
    return true;
}

void TGInterface::MarkLost() {
    if (!IsConnected()) return;
    FT_Close(FTTG);
    FTTG = ft_no_bridge();
    m_lost = true;
}

bool TGInterface::StillThere() {
    if (!IsConnected()) return false;
    DWORD status = 0;
    if (FT_GetModemStatus(FTTG, &status) == FT_OK) return true;
    MarkLost();
    return false;
}

bool TGInterface::Disconnect() {
    if (!IsConnected()) return true;
    SetTGFreq(0.0);
    SetTGAtten(30);
    FT_Close(FTTG);
    FTTG = ft_no_bridge();
    return true;
}

FT_STATUS TGInterface::SendSLIP(int count, int sleepMs) {
    if (!IsConnected()) return FT_INVALID_HANDLE;
    unsigned char frame[2 * sizeof outbuf + 1];
    const int n = slip_encode(outbuf, count, frame);
    DWORD written = 0;
    const FT_STATUS status = FT_Write(FTTG, frame, static_cast<DWORD>(n), &written);
    // A generator that cannot take a command is gone (unplugged, or its
    // bridge broken): closed now, so that the callers and qsIsTgAttached
    // see it at once rather than sweeping on without a source.
    if (status != FT_OK || written != static_cast<DWORD>(n)) {
        MarkLost();
        return status != FT_OK ? status : FT_IO_ERROR;
    }
    usleep(static_cast<useconds_t>(sleepMs) * 1000);
    return status;
}

FT_STATUS TGInterface::SendWord(unsigned char letter, uint32_t word) {
    outbuf[0] = letter;
    for (int i = 0; i < 4; ++i) outbuf[1 + i] = static_cast<unsigned char>(word >> (8 * i));
    return SendSLIP(5, COMMAND_WAIT_MS);
}

FT_STATUS TGInterface::SetTGFreq(double freq) {
    const double m = usingRefOut ? 1.0 : m_osc;
    const double word = std::floor(freq * m * 0.1 + 0.5);
    return SendWord('F', static_cast<uint32_t>(static_cast<int64_t>(word)));
}

FT_STATUS TGInterface::SetTGAtten(unsigned char iAtten) {
    outbuf[0] = 'A';
    outbuf[1] = isTGRowan ? static_cast<unsigned char>(2 * iAtten) : iAtten;
    return SendSLIP(2, COMMAND_WAIT_MS);
}

FT_STATUS TGInterface::TGSweep(double startFreq, double stepFreq, int count) {
    SendWord('S', static_cast<uint32_t>(static_cast<int64_t>(startFreq * 0.1)));
    SendWord('T', static_cast<uint32_t>(static_cast<int64_t>(stepFreq * 0.1)));
    outbuf[0] = 'G';
    outbuf[1] = static_cast<unsigned char>(count);
    outbuf[2] = static_cast<unsigned char>(count >> 8);
    return SendSLIP(3, COMMAND_WAIT_MS);
}

void TGInterface::SetTGRowanRefOff() {
    outbuf[0] = 'R';
    outbuf[1] = 0;
    SendSLIP(2, COMMAND_WAIT_MS);
}

void TGInterface::SetTGRowanRefIn() {
    outbuf[0] = 'R';
    outbuf[1] = 1;
    SendSLIP(2, COMMAND_WAIT_MS);
}

void TGInterface::SetTGRowanRefOut() {
    outbuf[0] = 'R';
    outbuf[1] = 2;
    SendSLIP(2, COMMAND_WAIT_MS);
}

qsStatus TGInterface::SetRef(int ref) {
    if (!IsConnected()) return qsTrackingGeneratorNotFound;
    if (!isTGRowan) {
        // A version-1 generator has no reference port: only the choice of
        // whether its own time base is trimmed.
        if (ref != QS_TG_REF_NONE && ref != QS_TG_REF_OUT) return qsNotSupportedErr;
        usingRefOut = ref == QS_TG_REF_OUT;
        return qsNoError;
    }
    switch (ref) {
        case QS_TG_REF_NONE: SetTGRowanRefOff(); usingRefOut = false; return qsNoError;
        // The generator's byte values run the other way round.
        case QS_TG_REF_OUT: SetTGRowanRefOut(); usingRefOut = true; return qsNoError;
        case QS_TG_REF_IN: SetTGRowanRefIn(); usingRefOut = true; return qsNoError;
        default: return qsInvalidParameterErr;
    }
}

qsStatus TGInterface::SetTgFreqAmpl(double freq, double ampl) {
    if (!IsConnected()) return qsTrackingGeneratorNotFound;
    const double fLo = isTGRowan ? 100000.0 : 10.0;
    const double fHi = isTGRowan ? 1.24e10 : 4.4e9;
    bool clamped = false;
    if (freq < fLo) freq = fLo, clamped = true;
    if (freq > fHi) freq = fHi, clamped = true;
    if (ampl < -30.0) ampl = -30.0, clamped = true;
    if (ampl > -10.0) ampl = -10.0, clamped = true;
    // Already in the generator's units: not doubled on a Rowan.
    const int code = GetBestAttenSetting(freq, ampl, -1);
    if (SetTGFreq(freq) != FT_OK) return qsTrackingGeneratorNotFound;
    outbuf[0] = 'A';
    outbuf[1] = static_cast<unsigned char>(code);
    if (SendSLIP(2, COMMAND_WAIT_MS) != FT_OK) return qsTrackingGeneratorNotFound;
    lastFreq = freq;
    lastAmpl = ampl;
    return clamped ? qsAdjustedParameter : qsNoError;
}

qsStatus TGInterface::GetTgFreqAmpl(double* freq, double* ampl) const {
    if (!IsConnected()) return qsTrackingGeneratorNotFound;
    if (freq) *freq = lastFreq;
    if (ampl) *ampl = lastAmpl;
    return qsNoError;
}

namespace {

int16_t Get16(const unsigned char* at) { return static_cast<int16_t>(at[0] | at[1] << 8); }

// A version-1 level table: its place in the image, its length, and the
// nearest grid point's index for a frequency.
struct LevelTable {
    int offset;
    int entries;
    int index;
};

LevelTable V1LevelTable(double freq) {
    auto nearest = [freq](double first, double step) { return static_cast<int>(std::floor((freq - first) / step + 0.5)); };
    if (freq < 28e6) return {68, 28, static_cast<int>(std::floor(freq * 1e-6 - 0.5))};
    if (freq < 140e6) return {124, 22, nearest(30e6, 5e6)};
    if (freq < 275e6) return {168, 14, nearest(140e6, 10e6)};
    if (freq < 550e6) return {196, 28, nearest(280e6, 10e6)};
    if (freq < 1.1e9) return {252, 56, nearest(550e6, 10e6)};
    if (freq < 2.2e9) return {364, 112, nearest(1.1e9, 10e6)};
    return {588, 222, nearest(2.2e9, 10e6)};
}

constexpr int kV1AttenTables = 1032;  // five i16[222], the 1 dB stage first
constexpr int kV1Columns = 222;
constexpr int kRowanOffsets = 1404;  // u8[130][16]
constexpr int kRowanRows = 130;
constexpr double kBonusDb = 0.7;     // holds the attenuator where it is

}  // namespace

int TGInterface::GetBestAttenSetting(double freq, double ampl, int current) const {
    if (!validCal) return static_cast<int>(-5.0 - ampl);
    if (isTGRowan) return GetBestTGRowanAttenSetting(freq, ampl, current);

    // The level at zero attenuation, from the nearest grid point. The
    // limits only matter outside the clamp of SetTgFreqAmpl; a sweep may
    // pass it.
    LevelTable t = V1LevelTable(freq);
    t.index = t.index < 0 ? 0 : t.index >= t.entries ? t.entries - 1 : t.index;
    double level = Get16(calbuf + t.offset + 2 * t.index) * 0.01;
    if (freq >= 28e6) level -= 0.7 - 1e-10 * freq;

    int column = static_cast<int>(freq / 20e6);
    column = column < 0 ? 0 : column >= kV1Columns ? kV1Columns - 1 : column;
    double stage[5];
    for (int k = 0; k < 5; ++k) stage[k] = Get16(calbuf + kV1AttenTables + 2 * (k * kV1Columns + column)) * 0.01;

    const double d = ampl - level;
    int best = 0;
    double bestScore = 0.0;
    for (int s = 0; s < 32; ++s) {
        double a = 0.0;
        for (int k = 0; k < 5; ++k)
            if (s & (1 << k)) a += stage[k];
        double score = std::fabs(d - a);
        if (s == current) score -= kBonusDb;
        if (s == 0 || score < bestScore) {
            best = s;
            bestScore = score;
        }
    }
    return best;
}

int TGInterface::GetBestTGRowanAttenSetting(double freq, double ampl, int current) const {
    struct RowanTable {
        double below;
        int offset, entries;
        double first, step;
    };
    static const RowanTable kTables[] = {
        {16e6, 68, 16, 0.999999e6, 1e6},  {140e6, 84, 24, 20e6, 5e6},   {275e6, 108, 14, 140e6, 10e6},
        {550e6, 122, 28, 280e6, 10e6},    {1.1e9, 150, 56, 550e6, 10e6}, {2.2e9, 206, 112, 1.1e9, 10e6},
        {4e9, 318, 182, 2.2e9, 10e6},     {7.2e9, 500, 322, 4e9, 10e6},  {1e300, 822, 582, 7.2e9, 10e6},
    };
    const RowanTable* t = kTables;
    while (freq >= t->below) ++t;
    const float position = t == kTables ? static_cast<float>(1e-6 * freq - 0.999999)
                                        : static_cast<float>((freq - t->first) / t->step);
    const int i = static_cast<int>(std::floor(position));
    int lower = 0, upper = 1;
    float fraction = position;
    if (i >= 0) {
        lower = i < t->entries ? i : t->entries - 1;
        upper = i + 1 < t->entries ? i + 1 : t->entries - 1;
        fraction = position - static_cast<float>(i);
    }
    const unsigned char* levels = calbuf + t->offset;
    double level = (levels[lower] * (1.0 - fraction) + levels[upper] * fraction) * -0.1;
    if (freq >= 7.2e9)
        level -= 0.7;
    else if (freq >= 3.2e9)
        level -= 0.3;
    else if (freq >= 2.2e9)
        level -= (3.2e9 - freq) * 0.4 / 1e9 + 0.3;
    else if (freq >= 16e6)
        level -= 0.7;
    else if (freq < 150000.0)
        level += 0.4;
    else if (freq < 250000.0)
        level += 0.2;

    // 64 codes of 0.5 dB, with the errors of the row measured from the
    // 8 dB point (code 16, exact by definition).
    int row = static_cast<int>(std::floor(freq / 1e8));
    row = row < 0 ? 0 : row >= kRowanRows ? kRowanRows - 1 : row;
    double o[9];
    for (int j = 0; j < 9; ++j) o[j] = calbuf[kRowanOffsets + 16 * row + j] * 0.02 - 2.56;
    int best = 0;
    double bestScore = 100.0;
    for (int k = 0; k < 64; ++k) {
        double atten = -0.5 * k;
        if (k == 0)
            atten += o[0];
        else if (k < 8)
            atten += (7 - k) * o[1] / 6 + (k - 1) * o[2] / 6;
        else if (k < 16)
            atten += o[3];
        else if (k < 24)
            atten += (k - 16) * o[3] / 7;
        else
            atten += o[4 + (k - 24) / 8];
        double score = std::fabs(atten + (8.0 + level) - ampl);
        if (k == current) score -= kBonusDb;
        if (score < bestScore) {
            best = k;
            bestScore = score;
        }
    }
    return best;
}

std::string TGInterface::CacheFile() const {
    const std::string dir = getCorrectionFilePath();
    if (dir.empty()) return dir;
    char name[32];
    std::snprintf(name, sizeof name, "%08d.tg", serialNumber);
    return dir + name;
}

void TGInterface::DecodeHeader() {
    const int version = calbuf[0] | calbuf[1] << 8;
    const int trim = calbuf[2] | calbuf[3] << 8;
    isTGRowan = version == 2;
    m_osc = trim >= 28768 && trim <= 36768 ? (trim - 32768) * 1e-9 + 1.0 : 1.0;
}

bool TGInterface::ReadCalData() {
    const std::string file = CacheFile();
    bool cached = false;
    if (FILE* in = file.empty() ? nullptr : std::fopen(file.c_str(), "rb")) {
        const size_t got = std::fread(calbuf, 1, CAL_BYTES, in);
        std::fclose(in);
        // A cache that holds no table (cut short, or written by hand) is
        // no calibration: the generator's own EEPROM is read instead.
        cached = got > 68 && calbuf[4] != 0x80;
    }
    if (cached) {
        validCal = true;
        DecodeHeader();
    } else {
        std::memset(calbuf, 0x80, sizeof calbuf);
        for (int address = 0; address < CAL_BYTES; address += 4) {
            outbuf[0] = 'E';
            outbuf[1] = 0xFF;
            outbuf[2] = 0x01;
            outbuf[3] = static_cast<unsigned char>(address & 0xFF);
            outbuf[4] = static_cast<unsigned char>(address >> 8);
            if (SendSLIP(5, 0) != FT_OK) break;
            DWORD got = 0;
            FT_Read(FTTG, calbuf + address, 4, &got);
            // A generator that does not answer one read will not answer the
            // next thousand either, each worth a second's time-out: stop
            // here, uncalibrated, rather than hang the attach for minutes.
            if (got < 4) break;
        }
        validCal = calbuf[4] != 0x80;
        if (validCal) {
            // A cache that cannot be written costs the next attach a read
            // of the EEPROM, nothing more.
            if (FILE* out = file.empty() ? nullptr : std::fopen(file.c_str(), "wb")) {
                std::fwrite(calbuf, 1, CAL_BYTES, out);
                std::fclose(out);
            }
            DecodeHeader();
        }
    }
    // The bridge's user area, read at every connection, overrides the
    // table's trim.
    if (IsConnected()) {
        unsigned char area[8] = {};
        DWORD got = 0;
        if (FT_EE_UARead(FTTG, area, sizeof area, &got) == FT_OK && got == sizeof area) {
            double timebase = 0.0;
            std::memcpy(&timebase, area, sizeof timebase);
            // Anything but a ratio within 1 % of unity is not a trim but an
            // area someone else wrote: every frequency would be off.
            if (timebase != 0.0 && std::fabs(timebase - 1.0) < 0.01) m_osc = timebase;
        }
    }
    return validCal;
}

int TGInterface::LoadALC(int buffer, double ampl, double startFreq, double stepFreq, int sweepSize) {
    int entry = -1, last = -1, run = 0, a = -1;
    for (int i = 0; i < sweepSize; ++i) {
        // The previous point's code counts as the one in force, so the
        // attenuator does not dither between two near choices.
        a = GetBestAttenSetting(i * stepFreq + startFreq, ampl, last);
        if (entry < MAX_ALC_ENTRIES - 1 && a != last) {
            if (entry != -1) {
                m_CountArray[buffer][entry] = run;
                m_AttenArray[buffer][entry] = last;
            }
            ++entry;
            last = a;
            run = 1;
        } else {
            ++run;
        }
    }
    if (entry < 0) entry = 0;  // sweepSize below 1, outside the contract
    m_AttenArray[buffer][entry] = a;
    m_CountArray[buffer][entry] = run + 1;
    m_ALCReloadPoints[buffer] = sweepSize;
    m_ALCSweepEntryCounts[buffer] = entry + 1;
    return 0;
}

FT_STATUS TGInterface::WriteALC(int buffer) {
    FT_STATUS status = FT_OK;
    for (int i = 0; i < m_ALCSweepEntryCounts[buffer]; ++i) {
        outbuf[0] = 'L';
        outbuf[1] = static_cast<unsigned char>(i);
        outbuf[2] = static_cast<unsigned char>(m_AttenArray[buffer][i]);
        outbuf[3] = static_cast<unsigned char>(m_CountArray[buffer][i] / 256);
        outbuf[4] = static_cast<unsigned char>(m_CountArray[buffer][i] % 256);
        status = SendSLIP(5, COMMAND_WAIT_MS);
    }
    return status;
}

}  // namespace qs
