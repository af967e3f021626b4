// The debug records of the tool's modules, one for each that may report at level DEBUG.
#pragma once

#include "shared/include/vmk_debug.h"

extern DebugModule kadrix_debug;
extern DebugModule system_debug;
extern DebugModule adapter_debug;
extern DebugModule utils_debug;
extern DebugModule address_debug;
extern DebugModule brenlocfg_debug;
