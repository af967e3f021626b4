#pragma once

#include <windows.h>

/// Waits, and not the system's customary timer slack longer.
void wait_exactly(DWORD milliseconds);
