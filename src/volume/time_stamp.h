// Layer: time stamps. Stands on the device clock; the stamp's bytes are in volume/layout.h.
#pragma once

#include "volume/layout.h"

namespace orba {

// Fills a stamp with the current UTC time. The eighth, reserved byte is left alone.
void GetTime(TimeStamp* stamp);

}  // namespace orba
