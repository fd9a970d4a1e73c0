#include "tg/tg_interface.h"

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

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
    // The generator's EEPROM calibration is not read yet: levels come from
    // the uncalibrated estimate and the time base counts as exact.
    validCal = false;
    isTGRowan = false;
    m_osc = 1.0;
    return true;
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
    SetTGFreq(freq);
    // Already in the generator's units: not doubled on a Rowan.
    outbuf[0] = 'A';
    outbuf[1] = static_cast<unsigned char>(GetBestAttenSetting(freq, ampl, -1));
    SendSLIP(2, COMMAND_WAIT_MS);
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

int TGInterface::GetBestAttenSetting(double, double ampl, int) const {
    // validCal is never set while the EEPROM tables are not read (Connect),
    // so the estimate is the whole levelling for now.
    return static_cast<int>(-5.0 - ampl);
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
