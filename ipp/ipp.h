// The whole vector layer in one include.
#pragma once

#include "ippcore.h"
#include "ippi.h"
#include "ipps.h"
