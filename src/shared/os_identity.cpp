#include "shared/include/os_identity.h"

#include <windows.h>

#include <cstdio>

namespace {

const char* windows_95_family_release(DWORD minor) {
  switch (minor) {
    case 0: return "95";
    case 10: return "98";
    case 90: return "Me";
    default: return "";
  }
}

}  // namespace

int uname(OsIdentity& identity) {
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  GetVersionExA(&version);

  identity = {};
  std::snprintf(identity.sysname, sizeof identity.sysname, "windows");
  switch (version.dwPlatformId) {
    case VER_PLATFORM_WIN32s:
      std::snprintf(identity.release, sizeof identity.release, "3.10 (win32s)");
      break;
    case VER_PLATFORM_WIN32_WINDOWS:
      std::snprintf(identity.release, sizeof identity.release, "%s",
                    windows_95_family_release(version.dwMinorVersion));
      break;
    case VER_PLATFORM_WIN32_NT:
      std::snprintf(identity.release, sizeof identity.release, "NT %lu.%lu",
                    static_cast<unsigned long>(version.dwMajorVersion),
                    static_cast<unsigned long>(version.dwMinorVersion));
      break;
    default: break;
  }
  std::snprintf(identity.version, sizeof identity.version, "%.*s",
                static_cast<int>(sizeof version.szCSDVersion), version.szCSDVersion);
  std::snprintf(identity.machine, sizeof identity.machine, "x86");
  return 0;
}
