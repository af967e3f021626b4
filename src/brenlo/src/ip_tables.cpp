#include "brenlo/src/ip_tables.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "shared/include/vmk_errmsg.h"

namespace {

ReportSite here(int line = __builtin_LINE()) { return {".\\ip_tables", line}; }

template <typename Table, typename Call>
FetchedTable<Table> fetch(Call call, WhenEmpty when_empty) {
  ULONG size = 0;
  static_cast<void>(call(nullptr, &size));
  if (size == 0 && when_empty == WhenEmpty::GIVE_UP) return {};
  // At least one record, and nothing but zeros where the platform does not say that it filled it.
  FetchedTable<Table> fetched;
  const std::size_t records = size / sizeof(Table) + (size % sizeof(Table) != 0 || size == 0);
  fetched.buffer.reset(new (std::nothrow) Table[records]);
  if (fetched.buffer == nullptr) {
    report(BEGIN_ERROR, here(), "out of memory");
    return {};
  }
  const ULONG room = size;
  if (call(fetched.buffer.get(), &size) != NO_ERROR) return {};
  if (errmsg_enabled()) errmsg_begin();
  fetched.size = std::min(room, size);
  std::memset(reinterpret_cast<char*>(fetched.buffer.get()) + fetched.size, 0,
              records * sizeof(Table) - fetched.size);
  return fetched;
}

}  // namespace

FetchedTable<MIB_IPADDRTABLE> fetch_ip_addr_table() {
  return fetch<MIB_IPADDRTABLE>(
      [](MIB_IPADDRTABLE* table, ULONG* size) {
        return iphlpapi_get_ip_addr_table(table, size, TRUE);
      },
      WhenEmpty::FETCH);
}

FetchedTable<MIB_IFTABLE> fetch_if_table() {
  return fetch<MIB_IFTABLE>(
      [](MIB_IFTABLE* table, ULONG* size) { return iphlpapi_get_if_table(table, size, TRUE); },
      WhenEmpty::FETCH);
}

FetchedTable<IP_ADAPTER_INFO> fetch_adapters_info(WhenEmpty when_empty) {
  return fetch<IP_ADAPTER_INFO>(iphlpapi_get_adapters_info, when_empty);
}
