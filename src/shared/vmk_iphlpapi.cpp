#include "shared/include/vmk_iphlpapi.h"

#include <cstdarg>
#include <cstdio>

#include "shared/include/vmk_errmsg.h"

namespace {

constexpr int REASON_BUFFER_SIZE = 16384;

ReportSite here(int line = __builtin_LINE()) { return {".\\vmk_iphlpapi", line}; }

struct Binding {
  HMODULE library;
  decltype(&GetIfTable) get_if_table;
  decltype(&GetAdaptersInfo) get_adapters_info;
  decltype(&GetIpAddrTable) get_ip_addr_table;
  decltype(&AddIPAddress) add_ip_address;
  decltype(&DeleteIPAddress) delete_ip_address;
  decltype(&SetIfEntry) set_if_entry;
  decltype(&GetIfEntry) get_if_entry;
};

Binding binding = {};

template <typename Function>
void locate(Function& function, const char* name) {
  function =
      reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(binding.library, name)));
}

DWORD report_not_located(ReportSite site, const char* function) {
  char reason[128];
  std::snprintf(reason, sizeof reason, "cannot locate function %s in IPHLPAPI.DLL", function);
  write_assertion_text(site, reason);
  return ERROR_PROC_NOT_FOUND;
}

/// Begins a message of the failed call's arguments and the platform's reason; returns the code.
template <typename... Arguments>
[[nodiscard]] DWORD report_failure(ReportSite site, const char* function, DWORD code,
                                   const char* format, Arguments... arguments) {
  char reason[REASON_BUFFER_SIZE];
  reason[0] = '\0';
  FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                 MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reason, sizeof reason, nullptr);
  report(BEGIN_ERROR, site, format, arguments...);
  report(ADD_WARN, site, "%s Failed. Reason=%s", function, reason);
  return code;
}

/// A pointer as the reports show it: its low 32 bits.
unsigned shown(const void* pointer) {
  return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pointer));
}

}  // namespace

int iphlpapi_load() {
  if (binding.library != nullptr) return 0;
  binding.library = LoadLibraryA("iphlpapi");
  if (binding.library == nullptr) return 0;
  locate(binding.get_if_table, "GetIfTable");
  locate(binding.get_adapters_info, "GetAdaptersInfo");
  locate(binding.get_ip_addr_table, "GetIpAddrTable");
  locate(binding.add_ip_address, "AddIPAddress");
  locate(binding.delete_ip_address, "DeleteIPAddress");
  locate(binding.set_if_entry, "SetIfEntry");
  locate(binding.get_if_entry, "GetIfEntry");
  return 0;
}

int iphlpapi_unload() {
  if (binding.library != nullptr) FreeLibrary(binding.library);
  binding = {};
  return 0;
}

int iphlpapi_available() {
  const bool complete = binding.library != nullptr && binding.get_if_table != nullptr &&
                        binding.get_adapters_info != nullptr &&
                        binding.get_ip_addr_table != nullptr && binding.add_ip_address != nullptr &&
                        binding.delete_ip_address != nullptr && binding.set_if_entry != nullptr &&
                        binding.get_if_entry != nullptr;
  return complete ? 1 : 0;
}

DWORD iphlpapi_get_if_table(MIB_IFTABLE* table, ULONG* size, BOOL sort) {
  if (binding.get_if_table == nullptr) return report_not_located(here(), "GetIfTable");
  const DWORD code = binding.get_if_table(table, size, sort);
  if (code == NO_ERROR) return code;
  return report_failure(here(), "GetIfTable", code, "pIfTable=0x%08X, pdwSize=0x%08X, bOrder=%d",
                        shown(table), shown(size), sort);
}

DWORD iphlpapi_get_ip_addr_table(MIB_IPADDRTABLE* table, ULONG* size, BOOL sort) {
  if (binding.get_ip_addr_table == nullptr) return report_not_located(here(), "GetIpAddrTable");
  const DWORD code = binding.get_ip_addr_table(table, size, sort);
  if (code == NO_ERROR) return code;
  return report_failure(here(), "GetIpAddrTable", code,
                        "pIpAddrTable=0x%08X, pdwSize=0x%08X, bOrder=%d", shown(table), shown(size),
                        sort);
}

DWORD iphlpapi_get_adapters_info(IP_ADAPTER_INFO* list, ULONG* size) {
  if (binding.get_adapters_info == nullptr) return report_not_located(here(), "GetAdaptersInfo");
  const DWORD code = binding.get_adapters_info(list, size);
  if (code == NO_ERROR) return code;
  return report_failure(here(), "GetAdaptersInfo", code, "pAdapterInfo=0x%08X, pOutBufLen=0x%08X",
                        shown(list), shown(size));
}

DWORD iphlpapi_add_ip_address(std::uint32_t address, std::uint32_t mask, DWORD index,
                              ULONG* nte_context, ULONG* nte_instance) {
  if (binding.add_ip_address == nullptr) return report_not_located(here(), "AddIPAddress");
  const DWORD code = binding.add_ip_address(address, mask, index, nte_context, nte_instance);
  if (code == NO_ERROR) return code;
  return report_failure(
      here(), "AddIPAddress", code,
      "Address=0x%08X, IpMask=0x%08X, IfIndex=%lu, NTEContext=0x%08X, NTEInstance=0x%08X",
      static_cast<unsigned>(address), static_cast<unsigned>(mask),
      static_cast<unsigned long>(index), shown(nte_context), shown(nte_instance));
}

DWORD iphlpapi_delete_ip_address(ULONG nte_context) {
  if (binding.delete_ip_address == nullptr) return report_not_located(here(), "DeleteIPAddress");
  const DWORD code = binding.delete_ip_address(nte_context);
  if (code == NO_ERROR) return code;
  return report_failure(here(), "DeleteIPAddress", code, "NTEContext=%lu",
                        static_cast<unsigned long>(nte_context));
}

DWORD iphlpapi_set_if_entry(MIB_IFROW* row) {
  if (binding.set_if_entry == nullptr) return report_not_located(here(), "SetIfEntry");
  const DWORD code = binding.set_if_entry(row);
  if (code == NO_ERROR) return code;
  return report_failure(here(), "SetIfEntry", code, "dwIndex=%lu, dwAdminStatus=%lu",
                        static_cast<unsigned long>(row->dwIndex),
                        static_cast<unsigned long>(row->dwAdminStatus));
}

DWORD iphlpapi_get_if_entry(MIB_IFROW* row) {
  if (binding.get_if_entry == nullptr) return report_not_located(here(), "GetIfEntry");
  const DWORD code = binding.get_if_entry(row);
  if (code == NO_ERROR) return code;
  return report_failure(here(), "GetIfEntry", code, "dwIndex=%lu",
                        static_cast<unsigned long>(row->dwIndex));
}
