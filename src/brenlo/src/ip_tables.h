// The IP Helper's tables in buffers of their own, fetched by its size protocol: a call without a
// buffer to learn the size, then a call with a buffer of that size. The first call's result is not
// looked at, nor is it ever shown: the message log is begun anew once the second call succeeds.
// What that one's wrapper reports stays held in the log.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "shared/include/vmk_iphlpapi.h"

template <typename Table>
struct FetchedTable {
  std::unique_ptr<Table[]> buffer;  ///< null when the table could not be fetched
  std::size_t size = 0;             ///< bytes of the buffer that the platform says it filled

  [[nodiscard]] const Table* get() const { return buffer.get(); }
};

/// What becomes of a fetch when the platform says that no room is needed.
enum class WhenEmpty { GIVE_UP, FETCH };

/// Both sorted: addresses in ascending order, interfaces by index.
[[nodiscard]] FetchedTable<MIB_IPADDRTABLE> fetch_ip_addr_table();
[[nodiscard]] FetchedTable<MIB_IFTABLE> fetch_if_table();

[[nodiscard]] FetchedTable<IP_ADAPTER_INFO> fetch_adapters_info(WhenEmpty when_empty);

/// The rows of a fetched table: as many as it claims, and no more than its buffer holds.
template <typename Table>
[[nodiscard]] auto table_rows(const FetchedTable<Table>& fetched) {
  const Table& table = *fetched.get();
  const std::size_t offset = offsetof(Table, table);
  const std::size_t room =
      fetched.size > offset ? (fetched.size - offset) / sizeof table.table[0] : 0;
  const std::size_t count = table.dwNumEntries;
  return std::span(&table.table[0], count < room ? count : room);
}
