// Stands in for kernel32: the console's title.

#include <windows.h>

#include "platform/hosts/calls.h"
#include "platform/hosts/console.h"

DWORD WINAPI GetConsoleTitleA(LPSTR title, DWORD size) {
  return leaving_code<DWORD>("GetConsoleTitleA", [=]() -> DWORD {
    if (size != 0) title[0] = '\0';
    const std::string& text = console_title();
    if (text.size() >= size) return 0;
    title[text.copy(title, size - 1)] = '\0';
    return static_cast<DWORD>(text.size());
  });
}

BOOL WINAPI SetConsoleTitleA(LPCSTR title) {
  return leaving_code<BOOL>("SetConsoleTitleA", [=]() -> BOOL {
    return set_console_title(title) ? TRUE : refuse<BOOL>(ERROR_INVALID_HANDLE);
  });
}
