// Stands in for the IP Helper library: the size protocol, sort order and records over what the host
// answers.

#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/hosts/calls.h"
#include "platform/hosts/host.h"
#include "platform/hosts/ipv4.h"

namespace {

/// The size protocol of one function: a call without room for the table says how much is needed,
/// and the next call with a buffer is about that very table, whatever changed in between.
class SizeProtocol {
 public:
  /// Whether a call with this buffer is to get the table whose size was given.
  [[nodiscard]] bool keeps_table(const void* buffer) {
    return std::exchange(size_given_, false) && buffer != nullptr;
  }

  /// Says how much room is needed; true when the caller's buffer has it.
  [[nodiscard]] bool has_room(const void* buffer, PULONG size, ULONG needed) {
    const ULONG room = buffer != nullptr ? *size : 0;
    *size = needed;
    size_given_ = room < needed;
    return !size_given_;
  }

 private:
  bool size_given_ = false;
};

/// One of the platform's tables of records, ready to be copied.
template <typename Table, typename Record>
class RecordTable {
 public:
  /// Gives the table of the rows that `read` asks the host for, each made a record.
  template <typename Row, typename Make>
  [[nodiscard]] DWORD give(Table* table, PULONG size, DWORD (Host::*read)(HostTable<Row>&),
                           Make make) {
    if (!protocol_.keeps_table(table)) {
      HostTable<Row> rows;
      if (const DWORD code = (current_host().*read)(rows); code != NO_ERROR) return code;
      if (version_ != rows.version) renew(rows, make);
    }
    const std::size_t needed = offsetof(Table, table) + records_.size() * sizeof(Record);
    if (!protocol_.has_room(table, size, static_cast<ULONG>(needed))) {
      return ERROR_INSUFFICIENT_BUFFER;
    }
    table->dwNumEntries = static_cast<DWORD>(records_.size());
    std::copy(records_.begin(), records_.end(), table->table);
    return NO_ERROR;
  }

 private:
  template <typename Row, typename Make>
  void renew(const HostTable<Row>& rows, Make make) {
    version_.reset();
    records_.resize(rows.rows.size());
    std::transform(rows.rows.begin(), rows.rows.end(), records_.begin(), make);
    version_ = rows.version;
  }

  SizeProtocol protocol_;
  std::optional<std::uint64_t> version_;
  std::vector<Record> records_;
};

MIB_IPADDRROW address_row(const HostAddress& address) {
  MIB_IPADDRROW row = {};
  row.dwAddr = address.address;
  row.dwIndex = address.interface_index;
  row.dwMask = address.mask;
  row.dwBCastAddr = 1;
  row.dwReasmSize = 65535;
  return row;
}

constexpr std::string_view NO_ADDRESS = "0.0.0.0";

/// Copies a text into a zeroed field, cut to leave a NUL.
template <std::size_t SIZE>
void copy_text(char (&field)[SIZE], std::string_view text) {
  text.copy(field, SIZE - 1);
}

/// The adapter-information list: the entries, then the further nodes of their address and gateway
/// lists. It is laid out once for all copies of it.
class InformationList {
 public:
  SizeProtocol protocol;

  /// Lays the list out anew when the host's tables are others than before. The loopback interface
  /// has no entry.
  void renew(const HostTable<HostAdapter>& adapters, const HostTable<HostAddress>& addresses) {
    const std::pair versions{adapters.version, addresses.version};
    if (versions_ == versions) return;
    versions_.reset();
    entries_.clear();
    nodes_.clear();
    // No node moves once it is linked.
    std::size_t nodes = addresses.rows.size();
    for (const HostAdapter& adapter : adapters.rows) nodes += adapter.gateways.size();
    nodes_.reserve(nodes);
    entries_.reserve(adapters.rows.size());
    for (const HostAdapter& adapter : adapters.rows) {
      if (adapter.row.dwType != MIB_IF_TYPE_LOOPBACK) add_entry(adapter);
    }
    add_addresses(addresses.rows);
    versions_ = versions;
  }

  [[nodiscard]] DWORD give(IP_ADAPTER_INFO* list, PULONG size) {
    if (entries_.empty()) return ERROR_NO_DATA;
    const std::size_t needed =
        entries_.size() * sizeof(IP_ADAPTER_INFO) + nodes_.size() * sizeof(IP_ADDR_STRING);
    if (!protocol.has_room(list, size, static_cast<ULONG>(needed))) return ERROR_BUFFER_OVERFLOW;
    copy_to(list);
    return NO_ERROR;
  }

 private:
  void add_entry(const HostAdapter& adapter) {
    IP_ADAPTER_INFO& entry = entries_.emplace_back();
    copy_text(entry.AdapterName, adapter.name);
    copy_text(entry.Description, std::string_view(reinterpret_cast<const char*>(adapter.row.bDescr),
                                                  adapter.row.dwDescrLen));
    entry.AddressLength = adapter.row.dwPhysAddrLen;
    std::copy(std::begin(adapter.row.bPhysAddr), std::end(adapter.row.bPhysAddr), entry.Address);
    entry.Index = adapter.row.dwIndex;
    entry.ComboIndex = adapter.row.dwIndex;
    entry.Type = adapter.row.dwType;
    for (IP_ADDR_STRING* list : {&entry.IpAddressList, &entry.GatewayList, &entry.DhcpServer}) {
      copy_text(list->IpAddress.String, NO_ADDRESS);
    }
    copy_text(entry.IpAddressList.IpMask.String, NO_ADDRESS);
    IP_ADDR_STRING* gateway = nullptr;
    for (const std::string& text : adapter.gateways) {
      gateway = gateway != nullptr ? append(*gateway) : &entry.GatewayList;
      copy_text(gateway->IpAddress.String, text);
    }
  }

  void add_addresses(std::span<const HostAddress> addresses) {
    struct List {
      DWORD index;
      IP_ADDR_STRING* first;
      IP_ADDR_STRING* last;
    };
    std::vector<List> lists;
    lists.reserve(entries_.size());
    for (auto& entry : entries_) lists.push_back({entry.Index, &entry.IpAddressList, nullptr});
    const auto by_index = [](const List& a, const List& b) { return a.index < b.index; };
    std::sort(lists.begin(), lists.end(), by_index);
    for (const HostAddress& address : addresses) {
      const auto list = std::lower_bound(lists.begin(), lists.end(),
                                         List{address.interface_index, nullptr, nullptr}, by_index);
      if (list == lists.end() || list->index != address.interface_index) continue;
      IP_ADDR_STRING*& tail = list->last;
      tail = tail != nullptr ? append(*tail) : list->first;
      write_dotted(tail->IpAddress.String, address.address);
      write_dotted(tail->IpMask.String, address.mask);
      tail->Context = address.context;
    }
  }

  IP_ADDR_STRING* append(IP_ADDR_STRING& last) {
    last.Next = &nodes_.emplace_back();
    return last.Next;
  }

  /// Copies the list, its links pointing into the copy.
  void copy_to(IP_ADAPTER_INFO* list) const {
    auto* const nodes = reinterpret_cast<IP_ADDR_STRING*>(list + entries_.size());
    const std::ptrdiff_t way =
        reinterpret_cast<char*>(nodes) - reinterpret_cast<const char*>(nodes_.data());
    const auto lead_into_copy = [way](IP_ADDR_STRING& node) {
      if (node.Next == nullptr) return;
      node.Next = reinterpret_cast<IP_ADDR_STRING*>(reinterpret_cast<char*>(node.Next) + way);
    };
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      list[i] = entries_[i];
      if (i + 1 < entries_.size()) list[i].Next = &list[i + 1];
      lead_into_copy(list[i].IpAddressList);
      lead_into_copy(list[i].GatewayList);
    }
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      nodes[i] = nodes_[i];
      lead_into_copy(nodes[i]);
    }
  }

  std::optional<std::pair<std::uint64_t, std::uint64_t>> versions_;
  std::vector<IP_ADAPTER_INFO> entries_;
  std::vector<IP_ADDR_STRING> nodes_;
};

/// What the functions remember of the host.
struct Memory final : LibraryMemory {
  RecordTable<MIB_IFTABLE, MIB_IFROW> interfaces;
  RecordTable<MIB_IPADDRTABLE, MIB_IPADDRROW> addresses;
  InformationList information;
};

Memory& memory() {
  std::unique_ptr<LibraryMemory>& kept = current_host().ip_helper_memory();
  if (kept == nullptr) kept = std::make_unique<Memory>();
  return static_cast<Memory&>(*kept);
}

DWORD renew_information(InformationList& list) {
  HostTable<HostAdapter> adapters;
  HostTable<HostAddress> addresses;
  DWORD code = current_host().read_adapters(adapters);
  if (code == NO_ERROR) code = current_host().read_addresses(addresses);
  if (code == NO_ERROR) list.renew(adapters, addresses);
  return code;
}

}  // namespace

DWORD WINAPI GetIfTable(PMIB_IFTABLE table, PULONG size, BOOL order) {
  return answering_code("GetIfTable", [=]() -> DWORD {
    const DWORD code = memory().interfaces.give(table, size, &Host::read_adapters,
                                                [](const HostAdapter& it) { return it.row; });
    if (code == NO_ERROR && order != FALSE) {
      std::sort(table->table, table->table + table->dwNumEntries,
                [](const MIB_IFROW& a, const MIB_IFROW& b) { return a.dwIndex < b.dwIndex; });
    }
    return code;
  });
}

DWORD WINAPI GetIpAddrTable(PMIB_IPADDRTABLE table, PULONG size, BOOL /*order*/) {
  // The host's order is the sorted one, and as good as any when no order is asked for.
  return answering_code("GetIpAddrTable", [=] {
    return memory().addresses.give(table, size, &Host::read_addresses, address_row);
  });
}

DWORD WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size) {
  return answering_code("GetAdaptersInfo", [=]() -> DWORD {
    InformationList& information = memory().information;
    if (!information.protocol.keeps_table(list)) {
      if (const DWORD code = renew_information(information); code != NO_ERROR) return code;
    }
    return information.give(list, size);
  });
}

DWORD WINAPI AddIPAddress(ULONG address, ULONG mask, DWORD interface_index, PULONG context,
                          PULONG instance) {
  return answering_code("AddIPAddress", [=]() -> DWORD {
    DWORD given = 0;
    const DWORD code = current_host().add_address(address, mask, interface_index, given);
    if (code != NO_ERROR) return code;
    *context = given;
    *instance = given;
    return NO_ERROR;
  });
}

DWORD WINAPI DeleteIPAddress(ULONG context) {
  return answering_code("DeleteIPAddress",
                        [=]() -> DWORD { return current_host().delete_address(context); });
}

DWORD WINAPI SetIfEntry(PMIB_IFROW row) {
  return answering_code("SetIfEntry", [=]() -> DWORD {
    return current_host().set_admin_status(row->dwIndex, row->dwAdminStatus);
  });
}

DWORD WINAPI GetIfEntry(PMIB_IFROW row) {
  return answering_code("GetIfEntry", [=]() -> DWORD {
    HostTable<HostAdapter> adapters;
    if (const DWORD code = current_host().read_adapters(adapters); code != NO_ERROR) return code;
    const auto found =
        std::find_if(adapters.rows.begin(), adapters.rows.end(),
                     [=](const HostAdapter& it) { return it.row.dwIndex == row->dwIndex; });
    if (found == adapters.rows.end()) return ERROR_INVALID_DATA;
    *row = found->row;
    return NO_ERROR;
  });
}
