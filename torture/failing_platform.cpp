#include "torture/failing_platform.h"

#include <iphlpapi.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <type_traits>

namespace {

Treatment treatment = Treatment::FAIL;
constinit Schedule schedule;

bool fails_calls() { return treatment == Treatment::FAIL || treatment == Treatment::RAISE; }

/// Whether a call that worked lies; `lies` are those that make a difference to its answer.
bool lies_next(std::initializer_list<Treatment> lies) {
  return std::find(lies.begin(), lies.end(), treatment) != lies.end() && schedule.strikes();
}

/// Of a call that asks for a size only, or fetches what has it.
bool lies_next(bool asks_size, std::initializer_list<Treatment> lies) {
  return asks_size ? lies_next({Treatment::SHRUNK}) : lies_next(lies);
}

constexpr DWORD LONG_TEXT = 4096;

// ---- Lies, for each kind of answer ------------------------------------------------------------

void leave_unterminated(MIB_IFTABLE& table) {
  for (DWORD i = 0; i < table.dwNumEntries; ++i) {
    MIB_IFROW& row = table.table[i];
    std::memset(row.bDescr, 'x', sizeof row.bDescr);
    row.dwDescrLen = row.dwPhysAddrLen = LONG_TEXT;
  }
}

template <typename Table>
DWORD lie_about_table(Table* table, PULONG size) {
  if (table == nullptr) {
    *size *= 2;
    return ERROR_INSUFFICIENT_BUFFER;
  }
  switch (treatment) {
    case Treatment::GROWN: *size *= 2; return ERROR_INSUFFICIENT_BUFFER;
    case Treatment::SHRUNK: table->dwNumEntries /= 2; break;
    case Treatment::CUT:
      table->dwNumEntries = std::numeric_limits<DWORD>::max();
      *size /= 2;
      break;
    default:
      if constexpr (std::is_same_v<Table, MIB_IFTABLE>) leave_unterminated(*table);
  }
  return NO_ERROR;
}

void leave_unterminated(IP_ADDR_STRING* node) {
  for (; node != nullptr; node = node->Next) {
    std::memset(node->IpAddress.String, '1', sizeof node->IpAddress.String);
    std::memset(node->IpMask.String, '1', sizeof node->IpMask.String);
  }
}

DWORD lie_about_adapters(IP_ADAPTER_INFO* list, PULONG size) {
  if (list == nullptr) {
    *size *= 2;
    return ERROR_BUFFER_OVERFLOW;
  }
  switch (treatment) {
    case Treatment::GROWN: *size *= 2; return ERROR_BUFFER_OVERFLOW;
    case Treatment::SHRUNK: list->Next = nullptr; break;
    default:
      for (IP_ADAPTER_INFO* entry = list; entry != nullptr; entry = entry->Next) {
        std::memset(entry->AdapterName, 'x', sizeof entry->AdapterName);
        leave_unterminated(&entry->IpAddressList);
        leave_unterminated(&entry->GatewayList);
      }
  }
  return NO_ERROR;
}

LSTATUS lie_about_value(LPBYTE data, LPDWORD size) {
  if (data == nullptr) {
    *size *= 2;
    return ERROR_SUCCESS;
  }
  switch (treatment) {
    case Treatment::GROWN: *size *= 2; return ERROR_MORE_DATA;
    case Treatment::SHRUNK: *size /= 2; break;
    default: std::replace(data, data + *size, BYTE{0}, BYTE{'1'});
  }
  return ERROR_SUCCESS;
}

void lie_about_entry(WIN32_FIND_DATAA& entry) {
  if (!lies_next({Treatment::UNTERMINATED})) return;
  // Nothing behind the field ends the text either.
  std::memset(&entry, 'x', sizeof entry);
}

// ---- The IP Helper's functions, as the tool finds them ----------------------------------------

DWORD WINAPI lying_if_table(PMIB_IFTABLE table, PULONG size, BOOL order) {
  const DWORD code = GetIfTable(table, size, order);
  if (code != NO_ERROR && table != nullptr) return code;
  const bool lies = lies_next(table == nullptr, {Treatment::GROWN, Treatment::SHRUNK,
                                                 Treatment::CUT, Treatment::UNTERMINATED});
  return lies ? lie_about_table(table, size) : code;
}

DWORD WINAPI lying_ip_addr_table(PMIB_IPADDRTABLE table, PULONG size, BOOL order) {
  const DWORD code = GetIpAddrTable(table, size, order);
  if (code != NO_ERROR && table != nullptr) return code;
  const bool lies =
      lies_next(table == nullptr, {Treatment::GROWN, Treatment::SHRUNK, Treatment::CUT});
  return lies ? lie_about_table(table, size) : code;
}

DWORD WINAPI lying_adapters_info(PIP_ADAPTER_INFO list, PULONG size) {
  const DWORD code = GetAdaptersInfo(list, size);
  if (code != NO_ERROR && list != nullptr) return code;
  const bool lies =
      lies_next(list == nullptr, {Treatment::GROWN, Treatment::SHRUNK, Treatment::UNTERMINATED});
  return lies ? lie_about_adapters(list, size) : code;
}

template <typename Function>
FARPROC generic(Function* function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

}  // namespace

void choose_treatment(Treatment chosen) { treatment = chosen; }

Schedule& treated_calls() { return schedule; }

std::optional<ScriptedFault> FailingHost::next_fault(Call call) {
  const bool raises = treatment == Treatment::RAISE;
  // A search that can never be closed could not but leak; and one call alone may fault.
  const bool spared = raises ? call != Call::DHCP_NOTIFY_CONFIG_CHANGE
                             : call == Call::FIND_CLOSE && schedule.is_lasting();
  if (!fails_calls() || spared || !schedule.strikes()) return SimulatedHost::next_fault(call);
  return ScriptedFault{ERROR_ACCESS_DENIED, raises};
}

// The link sends calls of the modules here (--wrap) and these names to the layer.
extern "C" {

FARPROC WINAPI __real_GetProcAddress(HMODULE library, LPCSTR name);
LSTATUS WINAPI __real_RegQueryValueExA(HKEY key, LPCSTR value, LPDWORD reserved, LPDWORD type,
                                       LPBYTE data, LPDWORD size);
HANDLE WINAPI __real_FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data);
BOOL WINAPI __real_FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data);
BOOL WINAPI __real_GetVersionExA(LPOSVERSIONINFOA information);

FARPROC WINAPI __wrap_GetProcAddress(HMODULE library, LPCSTR name) {
  const FARPROC found = __real_GetProcAddress(library, name);
  if (found == nullptr) return nullptr;
  const std::string_view wanted = name;
  if (wanted == "GetIfTable") return generic(lying_if_table);
  if (wanted == "GetIpAddrTable") return generic(lying_ip_addr_table);
  if (wanted == "GetAdaptersInfo") return generic(lying_adapters_info);
  return found;
}

LSTATUS WINAPI __wrap_RegQueryValueExA(HKEY key, LPCSTR value, LPDWORD reserved, LPDWORD type,
                                       LPBYTE data, LPDWORD size) {
  const LSTATUS status = __real_RegQueryValueExA(key, value, reserved, type, data, size);
  if (status != ERROR_SUCCESS) return status;
  const bool lies =
      lies_next(data == nullptr, {Treatment::GROWN, Treatment::SHRUNK, Treatment::UNTERMINATED});
  return lies ? lie_about_value(data, size) : status;
}

HANDLE WINAPI __wrap_FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data) {
  const HANDLE found = __real_FindFirstFileA(pattern, data);
  if (found != INVALID_HANDLE_VALUE) lie_about_entry(*data);
  return found;
}

BOOL WINAPI __wrap_FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) {
  const BOOL found = __real_FindNextFileA(find, data);
  if (found != FALSE) lie_about_entry(*data);
  return found;
}

BOOL WINAPI __wrap_GetVersionExA(LPOSVERSIONINFOA information) {
  if (__real_GetVersionExA(information) == FALSE) return FALSE;
  if (lies_next({Treatment::UNTERMINATED})) {
    std::memset(information->szCSDVersion, 'x', sizeof information->szCSDVersion);
  }
  return TRUE;
}

}  // extern "C"
