#include "platform/hosts/calls.h"

#include <algorithm>
#include <iterator>

namespace {

struct CallRow {
  std::string_view name;
  std::string_view library = {};  ///< none for the functions that every program is linked with
};

/// In the order of the enumeration.
constexpr CallRow CALLS[] = {
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
static_assert(std::size(CALLS) == static_cast<std::size_t>(Call::WSA_STARTUP) + 1);

}  // namespace

std::string_view call_name(Call call) { return CALLS[static_cast<std::size_t>(call)].name; }

bool is_in_library(Call call, std::string_view library) {
  // The oldest hosts that know IPv6 have the resolver in a library of its own.
  const std::string_view holder = library == "wship6" ? "ws2_32" : library;
  return CALLS[static_cast<std::size_t>(call)].library == holder;
}

std::optional<Call> find_call(std::string_view name) {
  const auto* found = std::find_if(std::begin(CALLS), std::end(CALLS),
                                   [=](const CallRow& row) { return row.name == name; });
  if (found == std::end(CALLS)) return std::nullopt;
  return static_cast<Call>(found - std::begin(CALLS));
}
