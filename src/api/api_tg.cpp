// Tracking-generator calls. The generator has its own link, so these do not
// go through the analyser's transport; while a tracking-generator sweep
// runs it owns the generator, and the calls that would talk to it refuse.
#include <cmath>

#include "api/device_table.h"
#include "device/device.h"
#include "tg/tg_interface.h"

using namespace qs;
using qs::api::Lookup;

namespace {

bool InTgSweep(const Device* dev) { return dev->GetMode() == QS_MODE_TG_SWEEP; }

}  // namespace

extern "C" {

qsStatus qsAttachTg(int device) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    return dev->TG().Connect() ? qsNoError : qsDeviceConnectionErr;
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
    if (InTgSweep(dev)) return qsDeviceNotConfiguredErr;
    if (!std::isfinite(frequency) || !std::isfinite(amplitude)) return qsInvalidParameterErr;
    return dev->TG().SetTgFreqAmpl(frequency, amplitude);
}

qsStatus qsGetTgFreqAmpl(int device, double* frequency, double* amplitude) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (InTgSweep(dev)) return qsDeviceNotConfiguredErr;
    return dev->TG().GetTgFreqAmpl(frequency, amplitude);
}

qsStatus qsSetTgReference(int device, int reference) {
    Device* dev = Lookup(device);
    if (!dev) return qsDeviceNotOpenErr;
    if (!dev->TG().IsConnected()) return qsTrackingGeneratorNotFound;
    if (InTgSweep(dev)) return qsDeviceNotConfiguredErr;
    return dev->TG().SetRef(reference);
}

}  // extern "C"
