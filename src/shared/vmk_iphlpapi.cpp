#include "shared/include/vmk_iphlpapi.h"

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

/// The message that it begins holds nothing, so that nothing older passes for its cause.
DWORD report_not_located(ReportSite site, const char* function) {
  char reason[128];
  std::snprintf(reason, sizeof reason, "cannot locate function %s in IPHLPAPI.DLL", function);
  if (errmsg_enabled()) errmsg_begin();
  write_assertion_text(site, reason);
  return ERROR_PROC_NOT_FOUND;
}

/// A failed call's code with the platform's text for it. The wrapper begins a message of the call's
/// arguments and adds the reason.
struct Failure {
  DWORD code;
  char reason[REASON_BUFFER_SIZE];

  explicit Failure(DWORD failed) : code(failed) {
    reason[0] = '\0';
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                   MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reason, sizeof reason, nullptr);
  }

  [[nodiscard]] DWORD add_reason(ReportSite site, const char* function) const {
    report(ADD_WARN, site, "%s Failed. Reason=%s", function, reason);
    return code;
  }
};

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
  const Failure failure(code);
  report(BEGIN_ERROR, here(), "pIfTable=0x%08X, pdwSize=0x%08X, bOrder=%d", shown(table),
         shown(size), sort);
  return failure.add_reason(here(), "GetIfTable");
}

DWORD iphlpapi_get_ip_addr_table(MIB_IPADDRTABLE* table, ULONG* size, BOOL sort) {
  if (binding.get_ip_addr_table == nullptr) return report_not_located(here(), "GetIpAddrTable");
  const DWORD code = binding.get_ip_addr_table(table, size, sort);
  if (code == NO_ERROR) return code;
  const Failure failure(code);
  report(BEGIN_ERROR, here(), "pIpAddrTable=0x%08X, pdwSize=0x%08X, bOrder=%d", shown(table),
         shown(size), sort);
  return failure.add_reason(here(), "GetIpAddrTable");
}

DWORD iphlpapi_get_adapters_info(IP_ADAPTER_INFO* list, ULONG* size) {
  if (binding.get_adapters_info == nullptr) return report_not_located(here(), "GetAdaptersInfo");
  const DWORD code = binding.get_adapters_info(list, size);
  if (code == NO_ERROR) return code;
  const Failure failure(code);
  report(BEGIN_ERROR, here(), "pAdapterInfo=0x%08X, pOutBufLen=0x%08X", shown(list), shown(size));
  return failure.add_reason(here(), "GetAdaptersInfo");
}

DWORD iphlpapi_add_ip_address(std::uint32_t address, std::uint32_t mask, DWORD index,
                              ULONG* nte_context, ULONG* nte_instance) {
  if (binding.add_ip_address == nullptr) return report_not_located(here(), "AddIPAddress");
  const DWORD code = binding.add_ip_address(address, mask, index, nte_context, nte_instance);
  if (code == NO_ERROR) return code;
  const Failure failure(code);
  report(BEGIN_ERROR, here(),
         "Address=0x%08X, IpMask=0x%08X, IfIndex=%lu, NTEContext=0x%08X, NTEInstance=0x%08X",
         static_cast<unsigned>(address), static_cast<unsigned>(mask),
         static_cast<unsigned long>(index), shown(nte_context), shown(nte_instance));
  return failure.add_reason(here(), "AddIPAddress");
}

DWORD iphlpapi_delete_ip_address(ULONG nte_context) {
  if (binding.delete_ip_address == nullptr) return report_not_located(here(), "DeleteIPAddress");
  const DWORD code = binding.delete_ip_address(nte_context);
  if (code == NO_ERROR) return code;
  const Failure failure(code);
  report(BEGIN_ERROR, here(), "NTEContext=%lu", static_cast<unsigned long>(nte_context));
  return failure.add_reason(here(), "DeleteIPAddress");
}

DWORD iphlpapi_set_if_entry(MIB_IFROW* row) {
  if (binding.set_if_entry == nullptr) return report_not_located(here(), "SetIfEntry");
  const DWORD code = binding.set_if_entry(row);
  if (code == NO_ERROR) return code;
  const Failure failure(code);
  report(BEGIN_ERROR, here(), "dwIndex=%lu, dwAdminStatus=%lu",
         static_cast<unsigned long>(row->dwIndex), static_cast<unsigned long>(row->dwAdminStatus));
  return failure.add_reason(here(), "SetIfEntry");
}

DWORD iphlpapi_get_if_entry(MIB_IFROW* row) {
  if (binding.get_if_entry == nullptr) return report_not_located(here(), "GetIfEntry");
  const DWORD code = binding.get_if_entry(row);
  if (code == NO_ERROR) return code;
  const Failure failure(code);
  report(BEGIN_ERROR, here(), "dwIndex=%lu", static_cast<unsigned long>(row->dwIndex));
  return failure.add_reason(here(), "GetIfEntry");
}
