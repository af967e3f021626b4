#include "platform/libraries/library_functions.h"

#include <iphlpapi.h>

#include "platform/hosts/calls.h"

namespace {

struct LibraryFunction {
  Call call;
  FARPROC pointer;
};

template <typename Pointer>
FARPROC generic(Pointer* function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

}  // namespace

FARPROC library_function(std::string_view library, std::string_view function) {
  static const LibraryFunction POINTERS[] = {
      {"GetIfTable", generic(GetIfTable)},
      {"GetAdaptersInfo", generic(GetAdaptersInfo)},
      {"GetIpAddrTable", generic(GetIpAddrTable)},
      {"AddIPAddress", generic(AddIPAddress)},
      {"DeleteIPAddress", generic(DeleteIPAddress)},
      {"SetIfEntry", generic(SetIfEntry)},
      {"GetIfEntry", generic(GetIfEntry)},
      {"GetLongPathNameA", generic(GetLongPathNameA)},
      {"getaddrinfo", generic(platform_getaddrinfo)},
      {"freeaddrinfo", generic(platform_freeaddrinfo)},
      {"getnameinfo", generic(platform_getnameinfo)},
      {"DhcpNotifyConfigChange", generic(DhcpNotifyConfigChange)},
  };
  for (const auto& [call, pointer] : POINTERS) {
    if (call->name == function && call->is_in(library)) return pointer;
  }
  return nullptr;
}
