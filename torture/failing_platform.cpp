#include "torture/failing_platform.h"

#include <iphlpapi.h>

#include <algorithm>
#include <cstring>

#include "torture/disturbance.h"

namespace {

constexpr DWORD LONG_TEXT = 4096;

bool strikes(Treatment treatment) { return disturbance.strikes(treatment); }

// ---- Lies, for each kind of answer ------------------------------------------------------------

void halve(auto& table) { table.dwNumEntries /= 2; }

void halve(IP_ADAPTER_INFO& list) { list.Next = nullptr; }

void claim_more(auto& table, ULONG& size) {
  table.dwNumEntries = ~DWORD{0};
  size /= 2;
}

void leave_unterminated(MIB_IFTABLE& table) {
  for (DWORD i = 0; i < table.dwNumEntries; ++i) {
    MIB_IFROW& row = table.table[i];
    std::memset(row.bDescr, 'x', sizeof row.bDescr);
    row.dwDescrLen = row.dwPhysAddrLen = LONG_TEXT;
  }
}

void leave_unterminated(IP_ADAPTER_INFO& list) {
  for (IP_ADAPTER_INFO* entry = &list; entry != nullptr; entry = entry->Next) {
    std::memset(entry->AdapterName, 'x', sizeof entry->AdapterName);
    for (IP_ADDR_STRING* node : {&entry->IpAddressList, &entry->GatewayList}) {
      for (; node != nullptr; node = node->Next) {
        std::memset(node->IpAddress.String, '1', sizeof node->IpAddress.String);
        std::memset(node->IpMask.String, '1', sizeof node->IpMask.String);
      }
    }
  }
}

/// What a table's function answered, falsified.
template <typename Table>
DWORD falsified(DWORD code, Table* table, PULONG size, DWORD too_small) {
  if (table == nullptr) {
    if (strikes(Treatment::SHRUNK)) *size *= 2;
    return code;
  }
  if (code != NO_ERROR) return code;
  if (strikes(Treatment::GROWN)) {
    *size *= 2;
    return too_small;
  }
  if (strikes(Treatment::SHRUNK)) halve(*table);
  if constexpr (requires { table->dwNumEntries; }) {
    if (strikes(Treatment::CUT)) claim_more(*table, *size);
  }
  if constexpr (requires { leave_unterminated(*table); }) {
    if (strikes(Treatment::UNTERMINATED)) leave_unterminated(*table);
  }
  return code;
}

}  // namespace

std::optional<ScriptedFault> FailingHost::next_fault(std::string_view function) {
  // A search that can never be closed could not but leak; and one call alone may fault.
  const bool spared = function == "FindClose" && disturbance.lasting;
  const bool raises = function == "DhcpNotifyConfigChange" && strikes(Treatment::RAISE);
  if (raises || (!spared && strikes(Treatment::FAIL))) {
    return ScriptedFault{ERROR_ACCESS_DENIED, raises};
  }
  return SimulatedHost::next_fault(function);
}

// The link sends calls of the modules here (--wrap) and these names to the layer.
extern "C" {

DWORD WINAPI __real_GetIfTable(PMIB_IFTABLE table, PULONG size, BOOL order);
DWORD WINAPI __real_GetIpAddrTable(PMIB_IPADDRTABLE table, PULONG size, BOOL order);
DWORD WINAPI __real_GetAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size);
LSTATUS WINAPI __real_RegQueryValueExA(HKEY key, LPCSTR value, LPDWORD reserved, LPDWORD type,
                                       LPBYTE data, LPDWORD size);
HANDLE WINAPI __real_FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data);
BOOL WINAPI __real_FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data);
BOOL WINAPI __real_GetVersionExA(LPOSVERSIONINFOA information);

DWORD WINAPI __wrap_GetIfTable(PMIB_IFTABLE table, PULONG size, BOOL order) {
  return falsified(__real_GetIfTable(table, size, order), table, size, ERROR_INSUFFICIENT_BUFFER);
}

DWORD WINAPI __wrap_GetIpAddrTable(PMIB_IPADDRTABLE table, PULONG size, BOOL order) {
  const DWORD code = __real_GetIpAddrTable(table, size, order);
  return falsified(code, table, size, ERROR_INSUFFICIENT_BUFFER);
}

DWORD WINAPI __wrap_GetAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size) {
  return falsified(__real_GetAdaptersInfo(list, size), list, size, ERROR_BUFFER_OVERFLOW);
}

LSTATUS WINAPI __wrap_RegQueryValueExA(HKEY key, LPCSTR value, LPDWORD reserved, LPDWORD type,
                                       LPBYTE data, LPDWORD size) {
  const LSTATUS status = __real_RegQueryValueExA(key, value, reserved, type, data, size);
  if (status != ERROR_SUCCESS) return status;
  if (data == nullptr) {
    if (strikes(Treatment::SHRUNK)) *size *= 2;
    return status;
  }
  if (strikes(Treatment::GROWN)) {
    *size *= 2;
    return ERROR_MORE_DATA;
  }
  if (strikes(Treatment::SHRUNK)) *size /= 2;
  if (strikes(Treatment::UNTERMINATED)) std::replace(data, data + *size, BYTE{0}, BYTE{'1'});
  return status;
}

// Nothing behind the field of a name ends it either.

HANDLE WINAPI __wrap_FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data) {
  const HANDLE found = __real_FindFirstFileA(pattern, data);
  const bool lies = found != INVALID_HANDLE_VALUE && strikes(Treatment::UNTERMINATED);
  if (lies) std::memset(data, 'x', sizeof *data);
  return found;
}

BOOL WINAPI __wrap_FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) {
  const BOOL found = __real_FindNextFileA(find, data);
  if (found != FALSE && strikes(Treatment::UNTERMINATED)) std::memset(data, 'x', sizeof *data);
  return found;
}

BOOL WINAPI __wrap_GetVersionExA(LPOSVERSIONINFOA information) {
  if (__real_GetVersionExA(information) == FALSE) return FALSE;
  if (strikes(Treatment::UNTERMINATED)) {
    std::memset(information->szCSDVersion, 'x', sizeof information->szCSDVersion);
  }
  return TRUE;
}

}  // extern "C"
