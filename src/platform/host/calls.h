// The functions that the layer offers, by the platform's names, and what every call of one does: a
// host description may let it fail, errno stays as it was, memory that runs out becomes a code.
#pragma once

#include <algorithm>
#include <iterator>
#include <new>
#include <optional>
#include <string_view>

#include <windows.h>

#include <iphlpapi.h>

#include "base/errno_keeper.h"
#include "base/find.h"

struct addrinfo;
struct sockaddr;

// What the platform's headers do not declare, and the resolver under names of our own: its own are
// the system's.
extern "C" {
DWORD WINAPI DhcpNotifyConfigChange(LPWSTR server, LPWSTR adapter, BOOL new_address, DWORD position,
                                    DWORD address, DWORD mask, INT dhcp_action);
int WINAPI platform_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                                addrinfo** answer);
void WINAPI platform_freeaddrinfo(addrinfo* answer);
int WINAPI platform_getnameinfo(const sockaddr* address, unsigned length, char* host,
                                unsigned host_size, char* service, unsigned service_size,
                                int flags);
}

template <auto FUNCTION>
FARPROC address_of() {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(FUNCTION));
}

struct Function {
  std::string_view name;
  /// The library that it is found in at run time, in lower case, and how; none for the functions
  /// that every program is linked with.
  std::string_view library = {};
  FARPROC (*address)() = nullptr;

  [[nodiscard]] constexpr bool is_in(std::string_view other) const {
    // The oldest hosts that know IPv6 have the resolver in a library of its own.
    return library == (other == "wship6" ? "ws2_32" : other);
  }
};

inline constexpr Function FUNCTIONS[] = {
    {"AddIPAddress", "iphlpapi", address_of<AddIPAddress>},
    {"CloseHandle"},
    {"CreatePipe"},
    {"CreateProcessA"},
    {"DeleteIPAddress", "iphlpapi", address_of<DeleteIPAddress>},
    {"DhcpNotifyConfigChange", "dhcpcsvc", address_of<DhcpNotifyConfigChange>},
    {"FindClose"},
    {"FindFirstFileA"},
    {"FindNextFileA"},
    {"FormatMessageA"},
    {"freeaddrinfo", "ws2_32", address_of<platform_freeaddrinfo>},
    {"FreeLibrary"},
    {"GetAdaptersInfo", "iphlpapi", address_of<GetAdaptersInfo>},
    {"getaddrinfo", "ws2_32", address_of<platform_getaddrinfo>},
    {"GetConsoleTitleA"},
    {"GetCurrentDirectoryA"},
    {"GetFullPathNameA"},
    {"GetIfEntry", "iphlpapi", address_of<GetIfEntry>},
    {"GetIfTable", "iphlpapi", address_of<GetIfTable>},
    {"GetIpAddrTable", "iphlpapi", address_of<GetIpAddrTable>},
    {"GetLastError"},
    {"GetLongPathNameA", "kernel32", address_of<GetLongPathNameA>},
    {"getnameinfo", "ws2_32", address_of<platform_getnameinfo>},
    {"GetProcAddress"},
    {"GetSystemDirectoryA"},
    {"GetUserNameA"},
    {"GetVersionExA"},
    {"LoadLibraryA"},
    {"MultiByteToWideChar"},
    {"ReadFile"},
    {"RegCloseKey"},
    {"RegCreateKeyExA"},
    {"RegOpenKeyExA"},
    {"RegQueryValueExA"},
    {"RegSetValueExA"},
    {"RpcStringFreeA"},
    {"SetConsoleTitleA"},
    {"SetHandleInformation"},
    {"SetIfEntry", "iphlpapi", address_of<SetIfEntry>},
    {"Sleep"},
    {"UuidCreate"},
    {"UuidToStringA"},
    {"WSAStartup"},
};

/// The function of a name; null when the layer has none.
[[nodiscard]] constexpr const Function* find_function(std::string_view name) {
  return find_with(FUNCTIONS, name, &Function::name);
}

/// A call of a function. A name that is none of the functions' does not compile.
class Call {
 public:
  consteval Call(const char* name) : function_(&*find_function(name)) {}

  const Function* operator->() const { return function_; }

 private:
  const Function* function_;
};

/// Asks the current host's script about a call that is being made. Returns the code with which it
/// is to fail, or nothing; a scripted access violation is raised here.
[[nodiscard]] std::optional<DWORD> scripted_failure(Call call);

/// Runs the body of a call that returns a code, and leaves the last error alone.
template <typename Body>
[[nodiscard]] DWORD run_returning_code(Call call, Body body) {
  const ErrnoKeeper keeper;
  try {
    const std::optional<DWORD> failure = scripted_failure(call);
    return failure ? *failure : body();
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

/// Sets the last error to a code, and gives the result that tells of a failure.
template <typename Result>
[[nodiscard]] Result set_last_error(DWORD code, Result failure = {}) {
  SetLastError(code);
  return failure;
}

/// Runs the body of a call that sets the last error when its result is `failure`.
template <typename Result, typename Body>
[[nodiscard]] Result run_setting_last_error(Call call, Body body, Result failure = {}) {
  const ErrnoKeeper keeper;
  try {
    const std::optional<DWORD> scripted = scripted_failure(call);
    return scripted ? set_last_error(*scripted, failure) : body();
  } catch (const std::bad_alloc&) {
    return set_last_error(DWORD{ERROR_NOT_ENOUGH_MEMORY}, failure);
  }
}
