// The byte link to a tracking generator's FTDI serial bridge: the handful of
// FT_... operations the generator needs (list, open, line set-up, write,
// read, close, user EEPROM area), written on libftdi1.
//
// The bridges are listed by FT_CreateDeviceInfoList, which keeps the list
// that FT_GetDeviceInfoDetail and FT_Open index, as the FTDI driver does.
// The list is process-wide and guarded by a lock: two open analysers may
// look for their generators from two threads. A handle is used from one
// thread at a time (TGInterface has no lock of its own).
//
// Only the default FTDI product ids are searched; the generator's bridge is
// told apart by its description, not by its USB ids.
#pragma once

#include <cstdint>

namespace qs {

using FT_STATUS = unsigned long;
using DWORD = uint32_t;
using FT_HANDLE = struct FTBridge*;

// The value of a handle with no bridge behind it.
inline FT_HANDLE ft_no_bridge() { return reinterpret_cast<FT_HANDLE>(uintptr_t{0xFFFFFFFF}); }

enum : FT_STATUS {
    FT_OK = 0,
    FT_INVALID_HANDLE = 1,
    FT_DEVICE_NOT_FOUND = 2,
    FT_DEVICE_NOT_OPENED = 3,
    FT_IO_ERROR = 4,
    FT_INSUFFICIENT_RESOURCES = 5,
    FT_INVALID_PARAMETER = 6,
    FT_OTHER_ERROR = 18,
};

// Lists the attached bridges; *count is 0 when none (or when USB cannot be
// reached at all, which is also reported as a status).
FT_STATUS FT_CreateDeviceInfoList(DWORD* count);
// Entry index of the last list: serial number and description, each
// written with a terminator into 16 and 64 bytes. flags, type, id, locId
// and handle may be null; id is vendor << 16 | product, locId bus << 8 |
// address, handle is always written as the no-bridge value.
FT_STATUS FT_GetDeviceInfoDetail(DWORD index, DWORD* flags, DWORD* type, DWORD* id, DWORD* locId,
                                 char* serialNumber, char* description, FT_HANDLE* handle);
// Opens entry index of the last list; *handle is the no-bridge value on
// failure.
FT_STATUS FT_Open(int index, FT_HANDLE* handle);
FT_STATUS FT_SetBaudRate(FT_HANDLE handle, DWORD baud);
FT_STATUS FT_SetTimeouts(FT_HANDLE handle, DWORD readMs, DWORD writeMs);
FT_STATUS FT_SetLatencyTimer(FT_HANDLE handle, unsigned char ms);
FT_STATUS FT_Write(FT_HANDLE handle, const void* data, DWORD len, DWORD* written);
// Reads until len bytes came or the read time-out passed.
FT_STATUS FT_Read(FT_HANDLE handle, void* data, DWORD len, DWORD* got);
FT_STATUS FT_Close(FT_HANDLE handle);
// The bridge's modem and line status (two bytes, low first); a bridge that
// is gone fails with FT_IO_ERROR.
FT_STATUS FT_GetModemStatus(FT_HANDLE handle, DWORD* status);
// The bridge's user EEPROM area: the bytes after its string descriptors, up
// to the checksum word. *got is the count copied (at most len).
FT_STATUS FT_EE_UARead(FT_HANDLE handle, unsigned char* data, DWORD len, DWORD* got);

// Where the user area of an FTDI EEPROM image of size bytes begins: after
// the string descriptors that the header's three pointers (bytes 14, 16 and
// 18, offset | 0x80, with their lengths in the next byte) place. For tests.
int ft_user_area_start(const unsigned char* eeprom, int size);

}  // namespace qs
