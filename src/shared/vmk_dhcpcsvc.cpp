#include "shared/include/vmk_dhcpcsvc.h"

#include <windows.h>

#include "shared/include/guarded_call.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr int ADAPTER_NAME_WIDE_CHARS = 80;

ReportSite here(int line = __builtin_LINE()) { return {".\\vmk_dhcpcsvc", line}; }

/// The platform's headers do not declare it.
using DhcpNotifyConfigChange = DWORD(WINAPI*)(LPWSTR server, LPWSTR adapter, BOOL new_address,
                                              DWORD ip_index, DWORD address, DWORD mask,
                                              INT dhcp_action);

struct Binding {
  HMODULE library;
  DhcpNotifyConfigChange notify;
};

Binding binding = {};

/// The low 8 bits of the quad's numbers as four bytes in memory order, missing numbers 0.
DWORD network_value(const char* quad) {
  std::int32_t numbers[4] = {};
  scan_quad(quad, numbers);
  DWORD value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | (static_cast<DWORD>(numbers[i]) & 0xFF);
  return value;
}

struct Notification {
  WCHAR adapter[ADAPTER_NAME_WIDE_CHARS];
  DWORD ip_index;
  DWORD address;
  DWORD mask;
  DWORD result;
};

void notify_service(void* argument) {
  auto& notification = *static_cast<Notification*>(argument);
  notification.result = binding.notify(nullptr, notification.adapter, TRUE, notification.ip_index,
                                       notification.address, notification.mask, 0);
}

}  // namespace

int dhcpcsvc_load() {
  if (binding.library != nullptr) return 0;
  binding.library = LoadLibraryA("dhcpcsvc");
  if (binding.library == nullptr) return 0;
  binding.notify = reinterpret_cast<DhcpNotifyConfigChange>(
      reinterpret_cast<void*>(GetProcAddress(binding.library, "DhcpNotifyConfigChange")));
  return 0;
}

int dhcpcsvc_unload() {
  if (binding.library != nullptr) FreeLibrary(binding.library);
  binding = {};
  return 0;
}

int dhcpcsvc_available() { return binding.library != nullptr && binding.notify != nullptr ? 1 : 0; }

int dhcpcsvc_notify_config_change(const char* adapter_name, std::int32_t ip_index,
                                  const char* address, const char* mask) {
  if (binding.notify == nullptr) {
    if (errmsg_enabled()) errmsg_begin();
    write_assertion_text(here(), "cannot locate function DhcpNotifyConfigChange in DHCPCSVC.DLL");
    return 0;
  }
  Notification notification = {};
  if (MultiByteToWideChar(CP_ACP, 0, adapter_name, -1, notification.adapter,
                          ADAPTER_NAME_WIDE_CHARS) == 0) {
    report(BEGIN_ERROR, here(), "Cannot convert Adapter name to Wide chars.");
    return 0;
  }
  notification.ip_index = static_cast<DWORD>(ip_index);
  notification.address = network_value(address);
  notification.mask = network_value(mask);
  if (!guarded_call(notify_service, &notification)) {
    report(BEGIN_ERROR, here(), "Exception in DhcpNotifyConfigChange.");
    return 0;
  }
  if (notification.result != NO_ERROR) {
    report(BEGIN_ERROR, here(), "Failed DhcpNotifyConfigChange.");
    return 0;
  }
  return 1;
}
