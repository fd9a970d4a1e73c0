#include "engines/engine.h"

#include <vector>

namespace qs {

// A fetch that the running mode does not offer: nothing of that kind runs.
qsStatus Engine::GetSweep(float*, float*, const VecDouble&) { return qsDeviceNotConfiguredErr; }
qsStatus Engine::GetSweep(double*, double*, const VecDouble&) { return qsDeviceNotConfiguredErr; }
qsStatus Engine::GetFrame(float*, float*, float*, float*) { return qsDeviceNotConfiguredErr; }
qsStatus Engine::GetPoi(double&) const { return qsDeviceNotConfiguredErr; }
qsStatus Engine::GetIQ(float*, int*) { return qsDeviceNotConfiguredErr; }
qsStatus Engine::GetIQ(qsIQPacket*) { return qsDeviceNotConfiguredErr; }
qsStatus Engine::GetAudio(float*) { return qsDeviceNotConfiguredErr; }
qsStatus Engine::UpdateAudio(const AudioConfig&) { return qsDeviceNotStreamingErr; }

}  // namespace qs
