#include "brenlo/src/ip_tables.h"

#include <algorithm>
#include <new>

#include "shared/include/vmk_errmsg.h"

namespace {

ReportSite here(int line = __builtin_LINE()) { return {".\\ip_tables", line}; }

template <typename Table, typename Call>
FetchedTable<Table> fetch(Call call, bool ask_for_none) {
  FetchedTable<Table> fetched;
  static_cast<void>(call(nullptr, &fetched.size));
  if (fetched.size == 0 && !ask_for_none) return {};
  // At least one record, and nothing but zeros, whatever the platform then fills in.
  const std::size_t records =
      std::max<std::size_t>(1, (fetched.size + sizeof(Table) - 1) / sizeof(Table));
  fetched.buffer.reset(new (std::nothrow) Table[records]());
  if (fetched.buffer == nullptr) {
    report(BEGIN_ERROR, here(), "out of memory");
    return {};
  }
  if (call(fetched.buffer.get(), &fetched.size) != NO_ERROR) return {};
  return fetched;
}

}  // namespace

FetchedTable<MIB_IPADDRTABLE> fetch_ip_addr_table() {
  return fetch<MIB_IPADDRTABLE>(
      [](MIB_IPADDRTABLE* table, ULONG* size) {
        return iphlpapi_get_ip_addr_table(table, size, TRUE);
      },
      true);
}

FetchedTable<MIB_IFTABLE> fetch_if_table() {
  return fetch<MIB_IFTABLE>(
      [](MIB_IFTABLE* table, ULONG* size) { return iphlpapi_get_if_table(table, size, TRUE); },
      true);
}

FetchedTable<IP_ADAPTER_INFO> fetch_adapters_info(bool ask_for_none) {
  return fetch<IP_ADAPTER_INFO>(iphlpapi_get_adapters_info, ask_for_none);
}
