// Tracking-generator calls. The generator has its own link, so these do not
// go through the analyser's transport; while a tracking-generator sweep
// runs it owns the generator, and the calls that would talk to it refuse.
#include "api/device_table.h"
#include "device/device.h"

using namespace qs;
using qs::api::Lookup;

extern "C" {

qsStatus qsAttachTg(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->AttachTg();
}

qsStatus qsIsTgAttached(int device, bool* attached) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!attached) return qsNullPtrErr;
    *attached = dev->TG().IsConnected();
    return qsNoError;
}

qsStatus qsStoreTgThru(int device, int flag) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->StoreTgThru(flag);
}

qsStatus qsSetTg(int device, double frequency, double amplitude) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->SetTg(frequency, amplitude);
}

qsStatus qsGetTgFreqAmpl(int device, double* frequency, double* amplitude) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->GetTg(frequency, amplitude);
}

qsStatus qsSetTgReference(int device, int reference) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->SetTgReference(reference);
}

}  // extern "C"
