/* Public interface of libqs_api: USB real-time spectrum analysers
 * (Larch and Maple), 9 kHz to 6.4 GHz.
 *
 * Every call returns a qsStatus: 0 is success, negative an error (nothing
 * happened), positive a warning (the call went on with a qualification).
 * Devices are addressed by a small integer handle, 0 to QS_MAX_DEVICES - 1.
 */
#ifndef QS_API_H
#define QS_API_H

#ifdef __cplusplus
extern "C" {
#else
#include <stdbool.h>
#endif

#if defined(__GNUC__)
#define QS_API __attribute__((visibility("default")))
#else
#define QS_API
#endif

/* In C++ the enumerations are int-based, as in C, so that any int a caller
 * passes is a value of the type (a status code from elsewhere, a bad data
 * type) and can be checked rather than be undefined. */
#ifdef __cplusplus
#define QS_ENUM_INT : int
#else
#define QS_ENUM_INT
#endif

typedef enum qsStatus QS_ENUM_INT {
    qsInvalidModeErr = -112,
    qsReferenceLevelErr = -111,
    qsInvalidVideoUnitsErr = -110,
    qsInvalidWindowErr = -109,
    qsInvalidBandwidthTypeErr = -108,
    qsInvalidSweepTimeErr = -107,
    qsBandwidthErr = -106,
    qsInvalidGainErr = -105,
    qsAttenuationErr = -104,
    qsFrequencyRangeErr = -103,
    qsInvalidSpanErr = -102,
    qsInvalidScaleErr = -101,
    qsInvalidDetectorErr = -100,

    qsLibusbError = -18,
    qsNotSupportedErr = -17,
    qsTrackingGeneratorNotFound = -16,
    qsUSBTimeoutErr = -15,
    qsDeviceConnectionErr = -14,
    qsPacketFramingErr = -13,
    qsGPSErr = -12,
    qsGainNotSetErr = -11,
    qsDeviceNotIdleErr = -10,
    qsDeviceInvalidErr = -9,
    qsBufferTooSmallErr = -8,
    qsNullPtrErr = -7,
    qsAllocationLimitErr = -6,
    qsDeviceAlreadyStreamingErr = -5,
    qsInvalidParameterErr = -4,
    qsDeviceNotConfiguredErr = -3,
    qsDeviceNotStreamingErr = -2,
    qsDeviceNotOpenErr = -1,

    qsNoError = 0,

    qsAdjustedParameter = 1,
    qsADCOverflow = 2,
    qsNoTriggerFound = 3,
    qsClampedToUpperLimit = 4,
    qsClampedToLowerLimit = 5,
    qsUncalibratedDevice = 6,
    qsDataBreak = 7,
    qsUncalSweep = 8
} qsStatus;

typedef enum qsDataType QS_ENUM_INT {
    qsDataType32fc = 0, /* complex of two 32-bit floats */
    qsDataType16sc = 1  /* complex of two 16-bit signed integers */
} qsDataType;

typedef struct qsIQPacket {
    void* iqData;      /* in: room for iqCount samples of the configured type */
    int iqCount;       /* in: complex samples wanted */
    int* triggers;     /* in: trigger positions out, may be null */
    int triggerCount;  /* in: capacity of triggers */
    int purge;         /* in: non-zero drops all held data first */
    int dataRemaining; /* out: samples still held after this read */
    int sampleLoss;    /* out: non-zero when samples were lost */
    int sec;           /* out: time stamp of the first sample, seconds */
    int nano;          /* out: and nanoseconds */
} qsIQPacket;

/* Modes of qsInitiate */
#define QS_MODE_IDLE (-1)
#define QS_MODE_SWEEP 0
#define QS_MODE_REAL_TIME 1
#define QS_MODE_STREAMING 4
#define QS_MODE_AUDIO 7
#define QS_MODE_TG_SWEEP 8

/* Detectors */
#define QS_DETECTOR_MIN_MAX 0
#define QS_DETECTOR_AVERAGE 1

/* Scales */
#define QS_SCALE_LOG 0
#define QS_SCALE_LINEAR 1
#define QS_SCALE_LOG_FULL 2
#define QS_SCALE_LINEAR_FULL 3

/* Output units of the video stage */
#define QS_OUT_DBM 0
#define QS_OUT_MV 1
#define QS_OUT_MW 2

/* RBW shapes */
#define QS_RBW_SHAPE_NATIVE 0
#define QS_RBW_SHAPE_LOWPASS 1
#define QS_RBW_SHAPE_GAUSSIAN 2

/* Rejection */
#define QS_REJECTION_NONE 0
#define QS_REJECTION_IMAGE 1

/* Windows, used with QS_RBW_SHAPE_NATIVE */
#define QS_WINDOW_NUTTALL 0
#define QS_WINDOW_BLACKMAN 1
#define QS_WINDOW_HAMMING 2
#define QS_WINDOW_FLAT_TOP 3

/* Video processing units */
#define QS_VIDEO_LOG 0
#define QS_VIDEO_VOLTAGE 1
#define QS_VIDEO_POWER 2
#define QS_VIDEO_SAMPLE 3

/* Automatic gain and attenuation */
#define QS_GAIN_AUTO (-1)
#define QS_ATTEN_AUTO (-1.0)

/* Port bits of qsConfigureIO */
#define QS_PORT1_EXT_REF 0x08
#define QS_PORT_TRIGGER_IN 0x40

/* Demodulation types */
#define QS_DEMOD_AM 0
#define QS_DEMOD_FM 1
#define QS_DEMOD_USB 2
#define QS_DEMOD_LSB 3
#define QS_DEMOD_CW 4

/* Flags of qsInitiate */
#define QS_SWEEP_FLAG_BAND_ZERO_ONLY 0x80000000u
#define QS_STREAM_FLAG_DIRECT 0x1u
#define QS_STREAM_FLAG_BAND_ZERO 0x2u
#define QS_STREAM_FLAG_TIME_STAMP 0x10u

/* Device types */
#define QS_DEVICE_TYPE_LARCH 1
#define QS_DEVICE_TYPE_MAPLE 2

/* Limits */
#define QS_MAX_DEVICES 8
#define QS_MIN_FREQ 9000.0
#define QS_MAX_FREQ 6.4e9
#define QS_MIN_SPAN 20.0
#define QS_MIN_RBW 0.602006912
#define QS_MAX_RBW 10100000.0
#define QS_MIN_SWEEP_TIME 1e-5
#define QS_MAX_SWEEP_TIME 1.0
#define QS_MAX_REFERENCE 50.0
#define QS_MIN_REFERENCE (-150.0)
#define QS_MAX_ATTENUATION 30.0
#define QS_MAX_DECIMATION 8192
#define MIN_RT_FRAME_SCALE 10.0
#define MAX_RT_FRAME_SCALE 200.0

/* Further fixed numbers */
#define QS_MIN_RT_FRAME_RATE 4
#define QS_MAX_RT_FRAME_RATE 30
#define QS_MIN_RT_ADVANCE_RATE 0.5
#define QS_MAX_RT_ADVANCE_RATE 10.0
#define QS_RT_FRAME_HEIGHT 256
#define QS_RT_MAX_FRAME_WIDTH 1023
#define QS_AUDIO_SAMPLES 4096
#define QS_MIN_TG_SWEEP_SIZE 10
#define QS_MAX_TG_SWEEP_SIZE 1024
#define QS_MAX_IQ_SAMPLE_RATE 4e7

/* qsStoreTgThru flags */
#define QS_TG_THRU_0DB 1
#define QS_TG_THRU_20DB 2

/* Status text and versions; need no device */
QS_API const char* qsGetErrorString(qsStatus code);
QS_API const char* qsGetAPIVersion(void);
QS_API const char* qsGetProductID(void);

/* Device list and life */
QS_API qsStatus qsGetSerialNumberList(int* serialNumbers, int* deviceCount);
QS_API qsStatus qsOpenDevice(int* device);
QS_API qsStatus qsOpenDeviceBySerialNumber(int* device, int serialNumber);
QS_API qsStatus qsCloseDevice(int device);
QS_API qsStatus qsPreset(int device);
QS_API qsStatus qsPresetFull(int* device);

/* Configuration: writes the staging settings, touches no hardware.
 * Every call here (and qsSetTg, qsSetIFOffset, the time-base calls) refuses
 * a NaN or infinite argument with qsInvalidParameterErr and stores nothing. */
QS_API qsStatus qsConfigureAcquisition(int device, unsigned int detector, unsigned int scale);
QS_API qsStatus qsConfigureCenterSpan(int device, double center, double span);
QS_API qsStatus qsConfigureIQCenter(int device, double centerFreq);
QS_API qsStatus qsConfigureLevel(int device, double ref, double atten);
QS_API qsStatus qsConfigureGain(int device, int gain);
QS_API qsStatus qsConfigureSweepCoupling(int device, double rbw, double vbw, double sweepTime,
                                         unsigned int rbwShape, unsigned int rejection);
QS_API qsStatus qsConfigureWindow(int device, unsigned int window);
QS_API qsStatus qsConfigureProcUnits(int device, unsigned int units);
QS_API qsStatus qsConfigureIQ(int device, int downsampleFactor, double bandwidth);
QS_API qsStatus qsConfigureIQDataType(int device, qsDataType iqDataType);
QS_API qsStatus qsConfigureRealTime(int device, double frameScale, int frameRate);
QS_API qsStatus qsConfigureRealTimeOverlap(int device, double advanceRate);
QS_API qsStatus qsConfigureIO(int device, unsigned int port1, unsigned int port2);
QS_API qsStatus qsConfigureDemod(int device, int modulationType, double freq, float IFBW,
                                 float audioLowPassFreq, float audioHighPassFreq,
                                 float FMDeemphasis);
QS_API qsStatus qsConfigTgSweep(int device, int sweepSize, bool highDynamicRange,
                                bool passiveDevice);

/* Measurement */
QS_API qsStatus qsInitiate(int device, unsigned int mode, unsigned int flag);
QS_API qsStatus qsAbort(int device);
QS_API qsStatus qsFetchTrace_32f(int device, int arraySize, float* min, float* max);
QS_API qsStatus qsFetchTrace(int device, int arraySize, double* min, double* max);
QS_API qsStatus qsFetchRealTimeFrame(int device, float* minSweep, float* maxSweep,
                                     float* colorFrame, float* alphaFrame);
QS_API qsStatus qsFetchAudio(int device, float* audio);
QS_API qsStatus qsFetchRaw(int device, float* buffer, int* triggers);
QS_API qsStatus qsGetIQ(int device, qsIQPacket* pkt);
QS_API qsStatus qsGetIQUnpacked(int device, void* iqData, int iqCount, int* triggers,
                                int triggerCount, int purge, int* dataRemaining,
                                int* sampleLoss, int* sec, int* nano);

/* Queries */
QS_API qsStatus qsQueryTraceInfo(int device, unsigned int* traceLen, double* binSize,
                                 double* start);
QS_API qsStatus qsQueryRealTimeInfo(int device, int* frameWidth, int* frameHeight);
QS_API qsStatus qsQueryRealTimePoi(int device, double* poi);
QS_API qsStatus qsQueryStreamInfo(int device, int* return_len, double* bandwidth,
                                  int* samples_per_sec);
QS_API qsStatus qsGetIQCorrection(int device, float* correction);
QS_API qsStatus qsGetDeviceDiagnostics(int device, float* temperature, float* usbVoltage,
                                       float* usbCurrent);

/* Identity */
QS_API qsStatus qsGetDeviceType(int device, int* type);
QS_API qsStatus qsGetSerialNumber(int device, unsigned int* sid);
QS_API qsStatus qsGetFirmwareVersion(int device, int* version);
QS_API qsStatus qsGetMapleRev(int device, int* rev);
QS_API qsStatus qsGetFPGAid(int device, unsigned int* id);

/* Self-calibration, time base, IF offset, rough gain */
QS_API qsStatus qsSelfCal(int device);
QS_API qsStatus qsSetTimebaseCorrection(int device, double correction);
QS_API qsStatus qsGetTimebaseCorrection(int device, double* correction);
QS_API qsStatus qsAddTimebaseCorrection(int device, double ppm);
QS_API qsStatus qsSetIFOffset(int device, double LTMoffset, double secondLOOffset,
                              bool manualOffset);
QS_API qsStatus qsApplyRoughGain(int device, unsigned char* low_gains,
                                 unsigned char* high_gains);

/* Flash service */
QS_API qsStatus qsReadFlash(int device, int page, unsigned char* data);
QS_API qsStatus qsWriteFlash(int device, int page, unsigned char* data);
QS_API qsStatus qsClearFlash(int device);

/* Tracking generator */
QS_API qsStatus qsAttachTg(int device);
QS_API qsStatus qsIsTgAttached(int device, bool* attached);
QS_API qsStatus qsStoreTgThru(int device, int flag);
QS_API qsStatus qsSetTg(int device, double frequency, double amplitude);
QS_API qsStatus qsGetTgFreqAmpl(int device, double* frequency, double* amplitude);
QS_API qsStatus qsSetTgReference(int device, int reference);

/* Sample converters; need no device */
QS_API void qsConvert_32f16s(const float* src, short* dst, int scaleFactor, int len);
QS_API void qsConvert_16s32f(const short* src, float* dst, int scaleFactor, int len);

/* GPS time; not supported on this platform */
QS_API qsStatus qsSyncCPUtoGPS(int comPort, int baudRate);

#ifdef __cplusplus
}
#endif

#endif /* QS_API_H */
