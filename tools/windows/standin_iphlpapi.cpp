// An IP Helper library for the tests on a Windows runtime, where the runtime's own changes nothing:
// the adapter of host.toml, whose address table can be changed. Built with LACKS_GET_IF_ENTRY it
// lacks one function.

#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#define EXPORTED extern "C" __declspec(dllexport)

namespace {

struct Address {
  DWORD address;
  DWORD mask;
  ULONG context;
};

std::vector<Address> addresses = {{0x0A01A8C0, 0x00FFFFFF, 1}, {0xC801A8C0, 0x00FFFFFF, 2}};
ULONG next_context = 3;

void write_dotted(char* text, DWORD value) {
  std::sprintf(text, "%lu.%lu.%lu.%lu", value & 0xFF, value >> 8 & 0xFF, value >> 16 & 0xFF,
               value >> 24);
}

DWORD host_order(const Address& address) { return ntohl(address.address); }

}  // namespace

EXPORTED DWORD WINAPI GetIfTable(PMIB_IFTABLE table, PULONG size, BOOL /*order*/) {
  const ULONG needed = sizeof(MIB_IFTABLE);
  const ULONG room = table != nullptr ? *size : 0;
  *size = needed;
  if (room < needed) return ERROR_INSUFFICIENT_BUFFER;
  *table = {};
  table->dwNumEntries = 1;
  MIB_IFROW& row = table->table[0];
  row.dwIndex = 2;
  row.dwType = 6;
  row.dwPhysAddrLen = 6;
  std::memcpy(row.bPhysAddr, "\x00\x0C\x29\x3A\x5B\x7C", 6);
  row.dwDescrLen = 22;
  std::memcpy(row.bDescr, "Fast Ethernet Adapter", 22);
  return NO_ERROR;
}

EXPORTED DWORD WINAPI GetIpAddrTable(PMIB_IPADDRTABLE table, PULONG size, BOOL /*order*/) {
  const ULONG needed = static_cast<ULONG>(sizeof(DWORD) + addresses.size() * sizeof(MIB_IPADDRROW));
  const ULONG room = table != nullptr ? *size : 0;
  *size = needed;
  if (room < needed) return ERROR_INSUFFICIENT_BUFFER;
  std::sort(addresses.begin(), addresses.end(),
            [](const Address& a, const Address& b) { return host_order(a) < host_order(b); });
  table->dwNumEntries = static_cast<DWORD>(addresses.size());
  MIB_IPADDRROW* row = table->table;
  for (const Address& address : addresses) {
    *row = {};
    row->dwAddr = address.address;
    row->dwMask = address.mask;
    row->dwIndex = 2;
    ++row;
  }
  return NO_ERROR;
}

EXPORTED DWORD WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size) {
  const ULONG needed = static_cast<ULONG>(sizeof *list + addresses.size() * sizeof(IP_ADDR_STRING));
  const ULONG room = list != nullptr ? *size : 0;
  *size = needed;
  if (room < needed) return ERROR_BUFFER_OVERFLOW;
  std::memset(static_cast<void*>(list), 0, needed);
  std::strcpy(list->AdapterName, "{6D3C51E2-7A0B-4C1F-9E44-2B5A10C3D7F8}");
  list->Index = 2;
  std::strcpy(list->GatewayList.IpAddress.String, "192.168.1.1");
  IP_ADDR_STRING* node = &list->IpAddressList;
  auto* next = reinterpret_cast<IP_ADDR_STRING*>(list + 1);
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    if (i > 0) node = node->Next = next++;
    write_dotted(node->IpAddress.String, addresses[i].address);
    write_dotted(node->IpMask.String, addresses[i].mask);
    node->Context = addresses[i].context;
  }
  return NO_ERROR;
}

EXPORTED DWORD WINAPI AddIPAddress(ULONG address, ULONG mask, DWORD index, PULONG context,
                                   PULONG instance) {
  if (index != 2) return ERROR_DEV_NOT_EXIST;
  if (address == INADDR_NONE) return ERROR_INVALID_PARAMETER;
  addresses.push_back({address, mask, next_context});
  *context = *instance = next_context++;
  return NO_ERROR;
}

EXPORTED DWORD WINAPI DeleteIPAddress(ULONG context) {
  const auto found = std::find_if(addresses.begin(), addresses.end(), [=](const Address& address) {
    return address.context == context;
  });
  if (found == addresses.end()) return ERROR_NOT_FOUND;
  addresses.erase(found);
  return NO_ERROR;
}

EXPORTED DWORD WINAPI SetIfEntry(PMIB_IFROW /*row*/) { return NO_ERROR; }

#ifndef LACKS_GET_IF_ENTRY
EXPORTED DWORD WINAPI GetIfEntry(PMIB_IFROW /*row*/) { return NO_ERROR; }
#endif
