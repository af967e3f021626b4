// The functions that the layer offers, by the platform's names, and what every call of one does: a
// host description may let it fail, errno stays as it was, memory that runs out becomes a code.
#pragma once

#include <algorithm>
#include <iterator>
#include <new>
#include <optional>
#include <string_view>

#include <windows.h>

#include "platform/hosts/errno_keeper.h"

struct Function {
  std::string_view name;
  std::string_view library = {};  ///< none for the functions that every program is linked with

  /// Whether it is found at run time in a library, which is named in lower case.
  [[nodiscard]] constexpr bool is_in(std::string_view other) const {
    // The oldest hosts that know IPv6 have the resolver in a library of its own.
    return library == (other == "wship6" ? "ws2_32" : other);
  }
};

inline constexpr Function FUNCTIONS[] = {
    {"AddIPAddress", "iphlpapi"},
    {"CloseHandle"},
    {"CreatePipe"},
    {"CreateProcessA"},
    {"DeleteIPAddress", "iphlpapi"},
    {"DhcpNotifyConfigChange", "dhcpcsvc"},
    {"FindClose"},
    {"FindFirstFileA"},
    {"FindNextFileA"},
    {"FormatMessageA"},
    {"freeaddrinfo", "ws2_32"},
    {"FreeLibrary"},
    {"GetAdaptersInfo", "iphlpapi"},
    {"getaddrinfo", "ws2_32"},
    {"GetConsoleTitleA"},
    {"GetCurrentDirectoryA"},
    {"GetFullPathNameA"},
    {"GetIfEntry", "iphlpapi"},
    {"GetIfTable", "iphlpapi"},
    {"GetIpAddrTable", "iphlpapi"},
    {"GetLastError"},
    {"GetLongPathNameA", "kernel32"},
    {"getnameinfo", "ws2_32"},
    {"GetProcAddress"},
    {"GetSystemDirectoryA"},
    {"GetUserNameA"},
    {"GetVersionExA"},
    {"GlobalMemoryStatus"},
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
    {"SetIfEntry", "iphlpapi"},
    {"Sleep"},
    {"UuidCreate"},
    {"UuidToStringA"},
    {"WSAStartup"},
};

/// The function of a name; null when the layer has none.
[[nodiscard]] constexpr const Function* find_function(std::string_view name) {
  const auto* found = std::find_if(std::begin(FUNCTIONS), std::end(FUNCTIONS),
                                   [=](const Function& it) { return it.name == name; });
  return found != std::end(FUNCTIONS) ? found : nullptr;
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

/// Runs the body of a call that answers a code.
template <typename Body>
[[nodiscard]] DWORD answering_code(Call call, Body body) {
  const ErrnoKeeper keeper;
  try {
    const std::optional<DWORD> failure = scripted_failure(call);
    return failure ? *failure : body();
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

/// Leaves a code as last error, and answers what says so.
template <typename Result>
[[nodiscard]] Result refuse(DWORD code, Result answer = {}) {
  SetLastError(code);
  return answer;
}

/// Runs the body of a call that leaves its code as last error when it answers `failure`.
template <typename Result, typename Body>
[[nodiscard]] Result leaving_code(Call call, Body body, Result failure = {}) {
  const ErrnoKeeper keeper;
  try {
    const std::optional<DWORD> scripted = scripted_failure(call);
    return scripted ? refuse(*scripted, failure) : body();
  } catch (const std::bad_alloc&) {
    return refuse(DWORD{ERROR_NOT_ENOUGH_MEMORY}, failure);
  }
}
