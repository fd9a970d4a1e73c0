// The tracking generator: an optional signal source behind an FTDI serial
// bridge on its own USB cable. The host opens the bridge and sends short
// SLIP-framed commands (RFC 1055, no leading END, no checksum); nothing comes
// back but EEPROM reads. Each Device holds one, so a generator
// belongs to one open analyser.
//
// Threads: no lock. The public calls of the application's thread use it, and
// while the analyser is in tracking-generator mode only the thread inside
// qsFetchTrace does (through the sweep engine); the public calls refuse in
// that mode. Every command but the EEPROM read is followed by a 6 ms pause,
// the only pacing the generator gets.
#pragma once

#include <string>

#include "qs_api.h"
#include "tg/ft_bridge.h"

namespace qs {

// Reference modes of qsSetTgReference.
enum { QS_TG_REF_NONE = 0, QS_TG_REF_OUT = 1, QS_TG_REF_IN = 2 };

// Builds the frame of a payload of count bytes into frame (room for
// 2 x count + 1 bytes): each 0xC0 as 0xDB 0xDC, each 0xDB as 0xDB 0xDD, then
// one END byte 0xC0. Returns the frame's length.
int slip_encode(const unsigned char* payload, int count, unsigned char* frame);

class TGInterface {
public:
    static constexpr int MAX_ALC_ENTRIES = 64;
    static constexpr int CAL_BYTES = 4096;
    static constexpr int COMMAND_WAIT_MS = 6;

    TGInterface();
    ~TGInterface();
    TGInterface(const TGInterface&) = delete;
    TGInterface& operator=(const TGInterface&) = delete;

    // Finds the bridge described "CorvaneLinkTG..." and opens it at 25000
    // baud, then reads its calibration; true if connected (also when it
    // already was, without reading anything again).
    bool Connect();
    // Leaves the generator at 0 Hz behind 30 dB and closes; always true.
    bool Disconnect();
    bool IsConnected() const { return FTTG != ft_no_bridge(); }
    // A generator that was connected and is gone: a write to it failed, or
    // it no longer answers a status poll. Cleared by the next Connect.
    bool Lost() const { return m_lost; }
    // Polls the bridge; false (and Lost) when it does not answer.
    bool StillThere();

    // Sends outbuf[0..count) as one frame and waits sleepMs. With no bridge
    // nothing is written and there is nothing to pace: FT_INVALID_HANDLE at
    // once.
    FT_STATUS SendSLIP(int count, int sleepMs);
    // 'F': the frequency in 10 Hz words, rounded, with the time-base ratio.
    FT_STATUS SetTGFreq(double freq);
    // 'A': attenuation in whole dB (doubled for a Rowan's 0.5 dB steps).
    FT_STATUS SetTGAtten(unsigned char iAtten);
    // 'S', 'T', 'G': a hardware sweep of count points; truncated words, no
    // time-base ratio.
    FT_STATUS TGSweep(double startFreq, double stepFreq, int count);
    void SetTGRowanRefOff();
    void SetTGRowanRefIn();
    void SetTGRowanRefOut();

    // The public calls' doors; qsTrackingGeneratorNotFound with no bridge.
    qsStatus SetRef(int ref);
    qsStatus SetTgFreqAmpl(double freq, double ampl);
    qsStatus GetTgFreqAmpl(double* freq, double* ampl) const;

    // Levelling: the attenuator code for ampl dBm at freq Hz, current being
    // the code in force or -1. Without a calibration the estimate
    // -5 - ampl.
    int GetBestAttenSetting(double freq, double ampl, int currentAttenSetting) const;
    int GetBestTGRowanAttenSetting(double freq, double ampl, int currentAttenSetting) const;

    // The calibration: from the cache file named by the serial number if
    // there is one, else through 'E' reads of the EEPROM (then cached); the
    // bridge's user area may override the time base. Returns validCal.
    bool ReadCalData();
    // Decodes the table's version and time-base trim.
    void DecodeHeader();
    // The cache file of this generator ("<dir>%08d.tg"), empty with no
    // data directory.
    std::string CacheFile() const;
    // Builds ALC buffer 0 or 1: runs of equal attenuation over a sweep of
    // sweepSize (at least 1) points; at most 64 runs, the last counting one
    // point more than it covers. Returns 0.
    int LoadALC(int buffer, double ampl, double startFreq, double stepFreq, int sweepSize);
    // Sends buffer's runs as 'L' commands; the status of the last one, FT_OK
    // when there is none.
    FT_STATUS WriteALC(int buffer);

    int ALCEntryCount(int buffer) const { return m_ALCSweepEntryCounts[buffer]; }
    int ALCCount(int buffer, int entry) const { return m_CountArray[buffer][entry]; }
    int ALCAtten(int buffer, int entry) const { return m_AttenArray[buffer][entry]; }
    bool IsRowan() const { return isTGRowan; }

private:
    // Sends letter and a 32-bit little-endian word.
    FT_STATUS SendWord(unsigned char letter, uint32_t word);
    // Closes a bridge that stopped answering.
    void MarkLost();

    FT_HANDLE FTTG;
    char serialNumberString[16] = {};
    int serialNumber = 0;
    unsigned char outbuf[16] = {};
    unsigned char calbuf[CAL_BYTES] = {};
    int m_ALCReloadPoints[2] = {};
    int m_ALCSweepEntryCounts[2] = {};
    int m_CountArray[2][MAX_ALC_ENTRIES] = {};
    int m_AttenArray[2][MAX_ALC_ENTRIES] = {};
    bool isTGRowan = false;
    double m_osc = 1.0;
    bool validCal = false;
    double lastFreq = 0.0;
    double lastAmpl = 0.0;
    bool usingRefOut = false;
    bool m_lost = false;
};

}  // namespace qs
