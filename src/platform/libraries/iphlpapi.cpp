// Stands in for the IP Helper library: the size protocol, sort order and records over what the host
// answers.

#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "base/dotted.h"
#include "base/find.h"
#include "base/text.h"
#include "platform/host/calls.h"
#include "platform/host/host.h"

namespace {

/// The size protocol of one function: a call without room for the table says how much is needed,
/// and the next call with a buffer is about that very table, whatever changed in between.
template <typename Tables>
class SizeProtocol {
 public:
  /// The tables whose size was given, when a call with this buffer is to get them.
  [[nodiscard]] std::optional<Tables> kept_for(const void* buffer) {
    std::optional<Tables> kept = std::exchange(kept_, std::nullopt);
    if (buffer == nullptr) kept.reset();
    return kept;
  }

  /// Says how much room is needed; true when the caller's buffer has it.
  [[nodiscard]] bool has_room(const void* buffer, PULONG size, std::size_t needed,
                              const Tables& tables) {
    const ULONG room = buffer != nullptr ? *size : 0;
    *size = static_cast<ULONG>(needed);
    if (room >= needed) return true;
    kept_ = tables;
    return false;
  }

 private:
  std::optional<Tables> kept_;
};

template <typename Row>
using RowProtocol = SizeProtocol<HostTable<Row>>;

/// Gives one of the platform's tables: the rows that `read` asks the host for, each written as a
/// record.
template <typename Row, typename Table, typename Write>
DWORD give_rows(RowProtocol<Row>& protocol, Table* table, PULONG size,
                DWORD (Host::*read)(HostTable<Row>&), Write write) {
  std::optional<HostTable<Row>> source = protocol.kept_for(table);
  if (!source) {
    const DWORD code = (current_host().*read)(source.emplace());
    if (code != NO_ERROR) return code;
  }
  const std::vector<Row>& rows = *source->rows;
  const std::size_t needed = offsetof(Table, table) + rows.size() * sizeof table->table[0];
  if (!protocol.has_room(table, size, needed, *source)) return ERROR_INSUFFICIENT_BUFFER;
  table->dwNumEntries = static_cast<DWORD>(rows.size());
  auto* record = table->table;
  for (const Row& row : rows) write(row, *record++);
  return NO_ERROR;
}

/// Field by field, which is several times as fast as a record made and copied.
void write_address_row(const HostAddress& address, MIB_IPADDRROW& row) {
  row.dwAddr = address.address;
  row.dwIndex = address.interface_index;
  row.dwMask = address.mask;
  row.dwBCastAddr = 1;
  row.dwReasmSize = 65535;
  row.unused1 = 0;
  row.wType = 0;
}

// ---- The adapter information --------------------------------------------------------------------

constexpr char NO_ADDRESS[] = "0.0.0.0";

/// What the adapter information is made of.
struct InformationTables {
  HostTable<HostAdapter> adapters;
  HostTable<HostAddress> addresses;
};

bool is_listed(const HostAdapter& adapter) { return adapter.row.dwType != MIB_IF_TYPE_LOOPBACK; }

/// The address list of each entry, by interface index.
class AddressLists {
 public:
  struct List {
    DWORD interface_index;
    std::size_t count = 0;
    IP_ADAPTER_INFO* entry = nullptr;
    IP_ADDR_STRING* last = nullptr;  ///< null while the entry's own node is free
  };

  explicit AddressLists(const std::vector<HostAdapter>& adapters) {
    lists_.reserve(adapters.size());
    for (const HostAdapter& adapter : adapters) {
      if (is_listed(adapter)) lists_.push_back({adapter.row.dwIndex});
    }
    std::ranges::sort(lists_, {}, &List::interface_index);
  }

  [[nodiscard]] std::size_t size() const { return lists_.size(); }

  /// The list of an interface; null when it is not listed.
  [[nodiscard]] List* find(DWORD interface_index) {
    // In the order of addresses, runs of one interface are long.
    if (last_ != nullptr && last_->interface_index == interface_index) return last_;
    const auto found =
        std::ranges::lower_bound(lists_, interface_index, {}, &List::interface_index);
    const bool is_there = found != lists_.end() && found->interface_index == interface_index;
    return last_ = is_there ? &*found : nullptr;
  }

 private:
  std::vector<List> lists_;
  List* last_ = nullptr;  ///< that was found
};

/// In bytes: the entries, and a node for each address and gateway but the first of its list.
std::size_t size_of_information(const InformationTables& tables) {
  AddressLists lists(*tables.adapters.rows);
  std::size_t nodes = 0;
  for (const HostAdapter& adapter : *tables.adapters.rows) {
    if (is_listed(adapter)) nodes += std::max<std::size_t>(adapter.gateways.size(), 1) - 1;
  }
  for (const HostAddress& address : *tables.addresses.rows) {
    AddressLists::List* const list = lists.find(address.interface_index);
    if (list != nullptr && list->count++ != 0) ++nodes;
  }
  return lists.size() * sizeof(IP_ADAPTER_INFO) + nodes * sizeof(IP_ADDR_STRING);
}

/// Lays the adapter-information list out in the caller's buffer: the entries, then the further
/// nodes of their gateway and address lists.
class InformationWriter {
 public:
  InformationWriter(IP_ADAPTER_INFO* list, const InformationTables& tables)
      : tables_(tables), lists_(*tables.adapters.rows), entry_(list) {}

  void write() {
    const IP_ADAPTER_INFO* const list = entry_;
    const auto& adapters = *tables_.adapters.rows;
    const auto count = std::count_if(adapters.begin(), adapters.end(), is_listed);
    node_ = reinterpret_cast<IP_ADDR_STRING*>(entry_ + count);
    for (const HostAdapter& adapter : adapters) {
      if (is_listed(adapter)) write_entry(adapter);
    }
    if (entry_ != list) std::prev(entry_)->Next = nullptr;
    for (const HostAddress& address : *tables_.addresses.rows) write_address(address);
  }

 private:
  void write_entry(const HostAdapter& adapter) {
    IP_ADAPTER_INFO& entry = *entry_++;
    entry = {};
    entry.Next = entry_;
    copy_cut(entry.AdapterName, adapter.name);
    copy_cut(entry.Description, std::string_view(reinterpret_cast<const char*>(adapter.row.bDescr),
                                                 adapter.row.dwDescrLen));
    entry.AddressLength = adapter.row.dwPhysAddrLen;
    std::copy(std::begin(adapter.row.bPhysAddr), std::end(adapter.row.bPhysAddr), entry.Address);
    entry.Index = adapter.row.dwIndex;
    entry.ComboIndex = adapter.row.dwIndex;
    entry.Type = adapter.row.dwType;
    for (IP_ADDR_STRING* list : {&entry.IpAddressList, &entry.GatewayList, &entry.DhcpServer}) {
      copy_cut(list->IpAddress.String, NO_ADDRESS);
    }
    copy_cut(entry.IpAddressList.IpMask.String, NO_ADDRESS);
    IP_ADDR_STRING* gateway = nullptr;
    for (const std::string& text : adapter.gateways) {
      gateway = gateway != nullptr ? append(*gateway) : &entry.GatewayList;
      copy_cut(gateway->IpAddress.String, text);
    }
    lists_.find(entry.Index)->entry = &entry;
  }

  void write_address(const HostAddress& address) {
    AddressLists::List* const list = lists_.find(address.interface_index);
    if (list == nullptr) return;
    IP_ADDR_STRING*& last = list->last;
    last = last != nullptr ? append(*last) : &list->entry->IpAddressList;
    write_dotted(last->IpAddress.String, address.address);
    if (address.mask != mask_) write_dotted(mask_text_, mask_ = address.mask);
    std::memcpy(last->IpMask.String, mask_text_, sizeof mask_text_);
    last->Context = address.context;
  }

  IP_ADDR_STRING* append(IP_ADDR_STRING& last) {
    last.Next = node_++;
    *last.Next = {};
    return last.Next;
  }

  const InformationTables& tables_;
  AddressLists lists_;
  IP_ADAPTER_INFO* entry_;
  IP_ADDR_STRING* node_ = nullptr;
  // Those of the last address, as most have the same.
  DWORD mask_ = 0;
  char mask_text_[DOTTED_SIZE] = "0.0.0.0";
};

/// The adapter information of the host, and its size while nothing changes.
class AdapterInformation {
 public:
  [[nodiscard]] DWORD give(IP_ADAPTER_INFO* list, PULONG size) {
    std::optional<InformationTables> tables = protocol_.kept_for(list);
    if (!tables) {
      tables.emplace();
      DWORD code = current_host().read_adapters(tables->adapters);
      if (code == NO_ERROR) code = current_host().read_addresses(tables->addresses);
      if (code != NO_ERROR) return code;
    }
    const std::size_t needed = size_of(*tables);
    if (needed == 0) return ERROR_NO_DATA;
    if (!protocol_.has_room(list, size, needed, *tables)) return ERROR_BUFFER_OVERFLOW;
    InformationWriter(list, *tables).write();
    return NO_ERROR;
  }

 private:
  [[nodiscard]] std::size_t size_of(const InformationTables& tables) {
    const std::pair from{tables.adapters.generation, tables.addresses.generation};
    if (size_from_ != from) {
      size_ = size_of_information(tables);
      size_from_ = from;
    }
    return size_;
  }

  SizeProtocol<InformationTables> protocol_;
  std::size_t size_ = 0;
  std::pair<Generation, Generation> size_from_;
};

/// What the functions keep between two calls, of the host that is behind the layer.
struct Kept {
  Generation host;
  RowProtocol<HostAdapter> interfaces;
  RowProtocol<HostAddress> addresses;
  AdapterInformation information;
};

Kept& kept() {
  static Kept kept;
  static_cast<void>(current_host());
  if (kept.host != host_generation()) {
    kept = {};
    kept.host = host_generation();
  }
  return kept;
}

}  // namespace

DWORD WINAPI GetIfTable(PMIB_IFTABLE table, PULONG size, BOOL order) {
  return run_returning_code("GetIfTable", [=]() -> DWORD {
    const DWORD code = give_rows(kept().interfaces, table, size, &Host::read_adapters,
                                 [](const HostAdapter& it, MIB_IFROW& row) { row = it.row; });
    if (code == NO_ERROR && order != FALSE) {
      std::ranges::sort(std::span(table->table, table->dwNumEntries), {}, &MIB_IFROW::dwIndex);
    }
    return code;
  });
}

DWORD WINAPI GetIpAddrTable(PMIB_IPADDRTABLE table, PULONG size, BOOL /*order*/) {
  // The host's order is the sorted one, and as good as any when no order is asked for.
  return run_returning_code("GetIpAddrTable", [=] {
    return give_rows(kept().addresses, table, size, &Host::read_addresses, write_address_row);
  });
}

DWORD WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size) {
  return run_returning_code("GetAdaptersInfo", [=] { return kept().information.give(list, size); });
}

DWORD WINAPI AddIPAddress(ULONG address, ULONG mask, DWORD interface_index, PULONG context,
                          PULONG instance) {
  return run_returning_code("AddIPAddress", [=]() -> DWORD {
    DWORD given = 0;
    const DWORD code = current_host().add_address(address, mask, interface_index, given);
    if (code != NO_ERROR) return code;
    *context = given;
    *instance = given;
    return NO_ERROR;
  });
}

DWORD WINAPI DeleteIPAddress(ULONG context) {
  return run_returning_code("DeleteIPAddress",
                            [=]() -> DWORD { return current_host().delete_address(context); });
}

DWORD WINAPI SetIfEntry(PMIB_IFROW row) {
  return run_returning_code("SetIfEntry", [=]() -> DWORD {
    return current_host().set_admin_status(row->dwIndex, row->dwAdminStatus);
  });
}

DWORD WINAPI GetIfEntry(PMIB_IFROW row) {
  return run_returning_code("GetIfEntry", [=]() -> DWORD {
    HostTable<HostAdapter> adapters;
    if (const DWORD code = current_host().read_adapters(adapters); code != NO_ERROR) return code;
    const auto* const found = find_where(
        *adapters.rows, [=](const HostAdapter& it) { return it.row.dwIndex == row->dwIndex; });
    if (found == nullptr) return ERROR_INVALID_DATA;
    *row = found->row;
    return NO_ERROR;
  });
}
