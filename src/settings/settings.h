// The configuration record of a measurement: the staging copy that the
// configuration calls write, and the device's active copy.
#pragma once

#include "qs_api.h"

namespace qs {

class Settings {
public:
    virtual ~Settings() = default;
    virtual void LoadDefault() = 0;
};

class SettingsLarch : public Settings {
public:
    SettingsLarch() { LoadDefault(); }
    void LoadDefault() override {}
};

class SettingsMaple : public Settings {
public:
    SettingsMaple() { LoadDefault(); }
    void LoadDefault() override {}
};

}  // namespace qs
