#pragma once

#include <windows.h>

/// The platform's text for an error code, without a line end; null when it has none.
[[nodiscard]] const char* error_text(DWORD code);
