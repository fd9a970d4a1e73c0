// Status texts and version strings: need no device, touch no state.
#include "qs_api.h"

extern "C" {

const char* qsGetErrorString(qsStatus code) {
    switch (code) {
        case qsInvalidModeErr: return "Invalid Operational Mode Specified";
        case qsReferenceLevelErr: return "Reference Level Cannot be Above 20dBm";
        case qsInvalidVideoUnitsErr: return "Invalid Video Processing Units Specified";
        case qsInvalidWindowErr: return "Invalid Window Specified";
        case qsInvalidBandwidthTypeErr: return "Invalid Bandwidth Type";
        case qsInvalidSweepTimeErr: return "Invalid Sweep Time";
        case qsBandwidthErr: return "Bandwidth Error";
        case qsInvalidGainErr: return "Invalid Gain";
        case qsAttenuationErr: return "Invalid Attenuation";
        case qsFrequencyRangeErr: return "Frequency Range out of Bounds";
        case qsInvalidSpanErr: return "Invalid Span";
        case qsInvalidScaleErr: return "Invalid Scale Parameter";
        case qsInvalidDetectorErr: return "Invalid Detector Type";
        case qsLibusbError: return "Unable to initialize libusb";
        case qsNotSupportedErr: return "The operation requested is not supported";
        case qsTrackingGeneratorNotFound: return "Tracking generator not found";
        case qsUSBTimeoutErr: return "USB Timeout Error";
        case qsDeviceConnectionErr: return "Device Connection Issues Detected";
        case qsPacketFramingErr: return "Device Packet Framing issues";
        case qsGPSErr: return "GPS Receiver not Found or not Configured Properly";
        case qsGainNotSetErr: return "Gain Cannot be AUTO";
        case qsDeviceNotIdleErr: return "Device is not Idle";
        case qsDeviceInvalidErr: return "Invalid Device";
        case qsBufferTooSmallErr: return "Buffer Provided too Small";
        case qsNullPtrErr: return "Null Parameter Passed";
        case qsAllocationLimitErr: return "Allocation Limit Reached";
        case qsDeviceAlreadyStreamingErr: return "Device is Already Streaming";
        case qsInvalidParameterErr: return "Invalid Configuration Parameter";
        case qsDeviceNotConfiguredErr: return "Device not Configured";
        case qsDeviceNotStreamingErr: return "Device not Streaming";
        case qsDeviceNotOpenErr: return "Device not Open";
        case qsNoError: return "No Error";
        case qsAdjustedParameter: return "Adjusted Parameter";
        case qsADCOverflow: return "ADC Overflow";
        case qsNoTriggerFound: return "No Trigger Found";
        case qsClampedToUpperLimit: return "Value Clamped to Upper Limit";
        case qsClampedToLowerLimit: return "Value Clamped to Lower Limit";
        case qsUncalibratedDevice: return "Device is Uncalibrated";
        case qsDataBreak: return "Break in data";
        case qsUncalSweep: return "Sweep uncalibrated. Data invalid or incomplete.";
    }
    return "Unrecognized Status Code";
}

const char* qsGetAPIVersion(void) { return "4.3.0"; }

const char* qsGetProductID(void) { return "7716-3405"; }

}  // extern "C"
