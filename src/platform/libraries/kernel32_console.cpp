// Stands in for kernel32: the console's title.

#include <string_view>

#include <windows.h>

#include "platform/host/calls.h"
#include "platform/terminal/terminal.h"

DWORD WINAPI GetConsoleTitleA(LPSTR title, DWORD size) {
  return run_setting_last_error<DWORD>("GetConsoleTitleA", [=]() -> DWORD {
    if (size != 0) title[0] = '\0';
    const std::string_view text = terminal_title();
    if (text.size() >= size) return 0;
    title[text.copy(title, size - 1)] = '\0';
    return static_cast<DWORD>(text.size());
  });
}

BOOL WINAPI SetConsoleTitleA(LPCSTR title) {
  return run_setting_last_error<BOOL>("SetConsoleTitleA", [=]() -> BOOL {
    return set_terminal_title(title) ? TRUE : set_last_error<BOOL>(ERROR_INVALID_HANDLE);
  });
}
