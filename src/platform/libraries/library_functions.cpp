#include "platform/libraries/library_functions.h"

#include <iphlpapi.h>

#include "platform/hosts/calls.h"

namespace {

struct LibraryFunction {
  Call call;
  FARPROC function;
};

template <typename Function>
FARPROC generic(Function* function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

}  // namespace

FARPROC library_function(std::string_view library, std::string_view function) {
  static const LibraryFunction FUNCTIONS[] = {
      {Call::GET_IF_TABLE, generic(GetIfTable)},
      {Call::GET_ADAPTERS_INFO, generic(GetAdaptersInfo)},
      {Call::GET_IP_ADDR_TABLE, generic(GetIpAddrTable)},
      {Call::ADD_IP_ADDRESS, generic(AddIPAddress)},
      {Call::DELETE_IP_ADDRESS, generic(DeleteIPAddress)},
      {Call::SET_IF_ENTRY, generic(SetIfEntry)},
      {Call::GET_IF_ENTRY, generic(GetIfEntry)},
      {Call::GET_LONG_PATH_NAME, generic(GetLongPathNameA)},
      {Call::GET_ADDR_INFO, generic(platform_getaddrinfo)},
      {Call::FREE_ADDR_INFO, generic(platform_freeaddrinfo)},
      {Call::GET_NAME_INFO, generic(platform_getnameinfo)},
      {Call::DHCP_NOTIFY_CONFIG_CHANGE, generic(DhcpNotifyConfigChange)},
  };
  for (const auto& [call, pointer] : FUNCTIONS) {
    if (call_name(call) == function && is_in_library(call, library)) return pointer;
  }
  return nullptr;
}
