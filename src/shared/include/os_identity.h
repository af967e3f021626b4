// The identity of the operating system, as the tool tells releases apart.
#pragma once

/// Six texts of up to 256 characters.
struct OsIdentity {
  char sysname[257];   ///< always "windows"
  char release[257];   ///< "95", "98", "Me", "NT 5.1" and the like, "3.10 (win32s)", or empty
  char version[257];   ///< the service-pack text, empty when there is none
  char machine[257];   ///< always "x86"
  char nodename[257];  ///< always empty
  char domain[257];    ///< always empty
};

/// Fills every field of `identity` from what the platform says of itself. Always returns 0.
int uname(OsIdentity& identity);
