// The process-wide table of open devices, addressed by handle.
//
// No lock: open and close are called from one thread at a time, and a
// device is used from one thread at a time.
#pragma once

#include "qs_api.h"

namespace qs {
class Device;
class Settings;

namespace api {

// A slot is open exactly when devices[i] is not null; settings[i] is then
// the staging settings of the same model. The table owns both.
extern Device* devices[QS_MAX_DEVICES];
extern Settings* settings[QS_MAX_DEVICES];

// The handle check of nearly every call: the open device, or null.
inline Device* Lookup(int handle) {
    return static_cast<unsigned>(handle) < QS_MAX_DEVICES ? devices[handle] : nullptr;
}

}  // namespace api
}  // namespace qs
