#include "shared/include/os_identity.h"

#include <windows.h>

#include <cstdio>

#include "base/text.h"

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
  copy_cut(identity.sysname, "windows");
  switch (version.dwPlatformId) {
    case VER_PLATFORM_WIN32s: copy_cut(identity.release, "3.10 (win32s)"); break;
    case VER_PLATFORM_WIN32_WINDOWS:
      copy_cut(identity.release, windows_95_family_release(version.dwMinorVersion));
      break;
    case VER_PLATFORM_WIN32_NT:
      std::snprintf(identity.release, sizeof identity.release, "NT %lu.%lu",
                    static_cast<unsigned long>(version.dwMajorVersion),
                    static_cast<unsigned long>(version.dwMinorVersion));
      break;
    default: break;
  }
  copy_cut(identity.version, field_text(version.szCSDVersion));
  copy_cut(identity.machine, "x86");
  return 0;
}
