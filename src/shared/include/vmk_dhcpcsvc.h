// The DHCP client library, bound at run time so that the tool starts on hosts that lack it.
#pragma once

#include <cstdint>

/// Loads the library and locates its function; keeps a library that is loaded already. Always 0:
/// dhcpcsvc_available tells what was found.
int dhcpcsvc_load();

/// Frees the library and forgets its function. Always 0.
int dhcpcsvc_unload();

/// 1 when the library is loaded and DhcpNotifyConfigChange was located, else 0.
[[nodiscard]] int dhcpcsvc_available();

/// Tells the DHCP client service that the address at position `ip_index` (from 0) of the adapter's
/// address list changes to `address` with `mask` (dotted quads). `adapter_name` is the adapter's
/// binding name in the process's code page, at most 79 characters.
/// Returns 1 on success. On failure returns 0 with the failure begun in the message log, not
/// flushed; a fault inside the library counts as a failure. When the function was not located, the
/// assertion text goes to standard output and the result is 0.
[[nodiscard]] int dhcpcsvc_notify_config_change(const char* adapter_name, std::int32_t ip_index,
                                                const char* address, const char* mask);
