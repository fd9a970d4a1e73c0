// One analyser's USB connection and its interface thread.
//
// Contract: the constructor and destructor run on the caller's thread; the
// constructor returns once the interface thread has opened the device or
// given up (State() is then USB_OPEN or USB_CLOSED). After that, every libusb
// call on this device's handle is made on the interface thread, which hands
// each block it reads to the registered BlockSink. The caller's thread talks
// to it only through the one-slot mailbox (AddCommand, the waits) and the
// flags below, which are atomic because both threads read them; the
// mailbox's mutex guards only the hand-off and is never held across a
// transfer or a sink call.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <thread>

#include "qs_api.h"
#include "transport/block_sink.h"
#include "transport/wire_formats.h"

struct libusb_device;
struct libusb_device_handle;
struct libusb_transfer;

namespace qs {

enum USBState { USB_OPEN = 0, USB_CLOSED = 1, USB_INITIALIZING = 2 };

struct qsusb_device {
    libusb_device* dev = nullptr;
    libusb_device_handle* handle = nullptr;
    uint16_t vid = 0;
    uint16_t pid = 0;
    uint8_t is_open = 0;
    uint8_t busnum = 0;
    uint8_t devaddr = 0;
    uint8_t filler = 0;
};

// A pair of asynchronous bulk reads, one per IN endpoint, that always go
// together: one block of the device's output.
class Transfer {
public:
    Transfer(libusb_device_handle* handle, int timeoutMs);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    uint8_t* DMA1() { return dma[0]; }
    uint8_t* DMA2() { return dma[1]; }

    // Submits both; returns the two libusb results.
    void StartTransfer(int results[2]);
    void CancelTransfer();
    // Cancels what is in flight, also a half whose partner failed to submit,
    // and waits until libusb has given both back; for the end of the thread.
    void Retire();
    // Handles USB events until both halves have completed; libusb ends each
    // by its time-out, so this is bounded.
    void WaitForTransfer();
    // libusb_transfer_status of each half after completion.
    int Status(int channel) const;

    uint8_t* dma[2] = {nullptr, nullptr};
    libusb_transfer* xfr[2] = {nullptr, nullptr};
    bool started = false;
    int completed[2] = {0, 0};
    bool submitted[2] = {false, false};  // the last submit of each half succeeded
    timeval tv{};

private:
    static void Callback(libusb_transfer* xfr);
};

class CypressInterface {
public:
    // Opens the device with this serial number on a new interface thread.
    explicit CypressInterface(int serialNumber);
    ~CypressInterface();
    CypressInterface(const CypressInterface&) = delete;
    CypressInterface& operator=(const CypressInterface&) = delete;

    static constexpr int XFER_COUNT = 8;

    bool IsIdle() const { return idle.load(); }
    USBState State() const { return state.load(); }
    int GetDeviceType() const { return deviceType; }
    int MapleRev() const { return mapleRev; }
    int SerialNumber() const { return desiredSerialNumber; }
    qsStatus TransferStatus() const { return transfer_status.load(); }
    const uint8_t* FlashBuf() const { return flash_buf; }
    int CommandsQueued() const { return dmaState.commandsToStart.load(); }
    const DMAState& GetDMAState() const { return dmaState; }

    // Where the blocks go; registered before the first command. Not owned.
    // With none, blocks are read and dropped.
    void SetSink(BlockSink* blockSink) { sink = blockSink; }

    // Caller's thread: waits until the mailbox is free, that is until the
    // previous command was sent, then leaves the command in it and returns;
    // it does not wait for this one's data.
    void AddCommand(const DeviceCommand& command);
    // Caller's thread: waits until the command in the mailbox was sent.
    // Not bounded: the thread sends within one transfer time-out of the
    // block it is reading.
    void WaitUntilSent();
    // Caller's thread: waits until the mailbox is empty and the thread is
    // back in idle, that is until the data of every command given so far
    // was read and handed to the sink. The thread leaves idle before it
    // takes a command, so a command given before the call is never missed.
    // Not bounded: a sweep ends by its planned blocks (each ended by its
    // time-out), a stream by its stop.
    void WaitUntilIdle();

private:
    void InterfaceThread();
    bool OpenDevice();
    void Init();
    void CleanUp();
    void Idle();
    // Publishes a new state and wakes the constructor waiting for it.
    void SetState(USBState next);
    void SendCommand();
    void ReadFlashPage();
    void GetSweep(int blocks);
    void Streaming();
    void FlushBuffers();
    // Kept for the firmware's synchronous protocol; the sweep and stream
    // paths use the asynchronous ring instead.
    bool SyncBuffers() { return true; }
    // One block read synchronously into dma1 and dma2, eight packets from
    // each endpoint in turn; the last non-zero libusb result, or 0.
    int ReadTransfer();
    // Submits the block of slot dataStartedAccum % 8 and judges the submit.
    void SubmitNext(bool streaming);
    // Waits for a slot's block and notes a failed transfer.
    void WaitAndJudge(Transfer& xfer, bool judge);

    int desiredSerialNumber;
    DeviceCommand cmd;
    DMAState dmaState;
    std::atomic<USBState> state{USB_INITIALIZING};
    int deviceType = 0;
    int mapleRev = 0;
    std::atomic<qsStatus> transfer_status{qsNoError};
    std::atomic<bool> idle{false};
    // Guards the changes of the mailbox count, idle, state and
    // threadRunning that a waiter watches, so that none is missed.
    std::mutex mailboxMutex;
    std::condition_variable mailboxChanged;
    uint8_t* flash_buf = nullptr;
    std::atomic<bool> threadRunning{false};
    std::thread threadHandle;
    // Positions in libusb's device list of the devices open in this process.
    // Written on interface threads, read by GetSerialNumberList; open and
    // close run one at a time, and an open waits for its thread.
    static std::set<int> openDeviceList;
    BlockSink* sink = nullptr;
    qsusb_device usb_device;
    int deviceIndex = -1;
    Transfer* xfers[XFER_COUNT] = {};
    uint8_t* dma1 = nullptr;
    uint8_t* dma2 = nullptr;

    friend qsStatus GetSerialNumberList(int* serial_list, int* list_len);
};

// Lists the serial numbers of the family's attached devices that this
// process has not opened; at most QS_MAX_DEVICES entries.
qsStatus GetSerialNumberList(int* serial_list, int* list_len);

// Runs libusb_init once per process; a failure is retried at the next call.
bool initialize_libusb();

// Text of a libusb transfer status, for diagnostics; nothing prints it.
const char* get_libusb_transfer_err_str(int status);

}  // namespace qs
