// The IP Helper library, bound at run time so that the tool starts on hosts that lack it or one of
// its functions.
//
// Each wrapper passes its arguments unchanged to the platform's function of the same name and
// returns its result: 0, or the platform's error code. After a failure the message log holds a new
// message of the call's arguments (ERROR) and the platform's reason (WARN), not flushed. A wrapper
// whose function was not located writes the assertion text to standard output and returns
// ERROR_PROC_NOT_FOUND.
#pragma once

#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>

#include <cstdint>

/// Loads the library and locates its functions; keeps a library that is loaded already. Always 0:
/// iphlpapi_available tells what was found.
int iphlpapi_load();

/// Frees the library and forgets its functions. Always 0.
int iphlpapi_unload();

/// 1 when the library is loaded and all seven functions were located, else 0.
[[nodiscard]] int iphlpapi_available();

/// The tables: `size` is the buffer's size in bytes on entry and the size needed on return. With no
/// buffer, or one too small, the platform answers an error and only sets the size.
[[nodiscard]] DWORD iphlpapi_get_if_table(MIB_IFTABLE* table, ULONG* size, BOOL sort);
[[nodiscard]] DWORD iphlpapi_get_ip_addr_table(MIB_IPADDRTABLE* table, ULONG* size, BOOL sort);
[[nodiscard]] DWORD iphlpapi_get_adapters_info(IP_ADAPTER_INFO* list, ULONG* size);

/// Adds an address (address and mask in network byte order) to an interface; `nte_context` names
/// the added address from then on.
[[nodiscard]] DWORD iphlpapi_add_ip_address(std::uint32_t address, std::uint32_t mask, DWORD index,
                                            ULONG* nte_context, ULONG* nte_instance);

/// Deletes the address that the context names.
[[nodiscard]] DWORD iphlpapi_delete_ip_address(ULONG nte_context);

/// Change and read one interface row, which `dwIndex` selects.
[[nodiscard]] DWORD iphlpapi_set_if_entry(MIB_IFROW* row);
[[nodiscard]] DWORD iphlpapi_get_if_entry(MIB_IFROW* row);
