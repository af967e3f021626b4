#include "platform/libraries/library_functions.h"

#include <iphlpapi.h>

namespace {

struct LibraryFunction {
  std::string_view library;
  std::string_view name;
  FARPROC function;
};

template <typename Function>
FARPROC generic(Function* function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

}  // namespace

FARPROC library_function(std::string_view library, std::string_view function) {
  static const LibraryFunction FUNCTIONS[] = {
      {"iphlpapi", "GetIfTable", generic(GetIfTable)},
      {"iphlpapi", "GetAdaptersInfo", generic(GetAdaptersInfo)},
      {"iphlpapi", "GetIpAddrTable", generic(GetIpAddrTable)},
      {"iphlpapi", "AddIPAddress", generic(AddIPAddress)},
      {"iphlpapi", "DeleteIPAddress", generic(DeleteIPAddress)},
      {"iphlpapi", "SetIfEntry", generic(SetIfEntry)},
      {"iphlpapi", "GetIfEntry", generic(GetIfEntry)},
      {"kernel32", "GetLongPathNameA", generic(GetLongPathNameA)},
      {"ws2_32", "getaddrinfo", generic(platform_getaddrinfo)},
      {"ws2_32", "freeaddrinfo", generic(platform_freeaddrinfo)},
      {"ws2_32", "getnameinfo", generic(platform_getnameinfo)},
      {"dhcpcsvc", "DhcpNotifyConfigChange", generic(DhcpNotifyConfigChange)},
  };
  for (const LibraryFunction& row : FUNCTIONS) {
    if (row.library == library && row.name == function) return row.function;
  }
  return nullptr;
}
