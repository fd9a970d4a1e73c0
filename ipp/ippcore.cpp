#include "ippcore.h"

IppStatus ippInit() { return ippStsNoErr; }
