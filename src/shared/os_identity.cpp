#include "shared/include/os_identity.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace {

const char* windows_95_family_release(DWORD minor) {
  switch (minor) {
    case 0: return "95";
    case 10: return "98";
    case 90: return "Me";
    default: return "";
  }
}

/// Puts a text into a field of NULs, cut to leave one.
template <std::size_t SIZE>
void set(char (&field)[SIZE], std::string_view text) {
  text.copy(field, SIZE - 1);
}

}  // namespace

int uname(OsIdentity& identity) {
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  GetVersionExA(&version);

  identity = {};
  set(identity.sysname, "windows");
  switch (version.dwPlatformId) {
    case VER_PLATFORM_WIN32s: set(identity.release, "3.10 (win32s)"); break;
    case VER_PLATFORM_WIN32_WINDOWS:
      set(identity.release, windows_95_family_release(version.dwMinorVersion));
      break;
    case VER_PLATFORM_WIN32_NT:
      std::snprintf(identity.release, sizeof identity.release, "NT %lu.%lu",
                    static_cast<unsigned long>(version.dwMajorVersion),
                    static_cast<unsigned long>(version.dwMinorVersion));
      break;
    default: break;
  }
  const char* end =
      std::find(std::begin(version.szCSDVersion), std::end(version.szCSDVersion), '\0');
  set(identity.version, {std::begin(version.szCSDVersion), end});
  set(identity.machine, "x86");
  return 0;
}
