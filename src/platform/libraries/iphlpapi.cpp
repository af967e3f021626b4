// Stands in for the IP Helper library: the size protocol, sort order and records over what the host
// answers.

#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/hosts/calls.h"
#include "platform/hosts/host.h"

namespace {

template <typename Table>
ULONG table_size(std::size_t rows) {
  return static_cast<ULONG>(offsetof(Table, table) + rows * sizeof(Table::table[0]));
}

/// The size protocol of one function: a call without room for the table says how much is needed,
/// and the next call with room gets that very table, whatever changed in between.
class SizeProtocol {
 public:
  [[nodiscard]] Reading reading(const void* buffer) {
    return std::exchange(size_given_, false) && buffer != nullptr ? Reading::AS_BEFORE
                                                                  : Reading::FRESH;
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

/// Lays an adapter-information list out in the caller's buffer: the entries first, then the further
/// nodes of their address and gateway lists.
class InformationList {
 public:
  InformationList(IP_ADAPTER_INFO* entries, std::size_t count)
      : entries_(entries),
        count_(count),
        node_(reinterpret_cast<IP_ADDR_STRING*>(entries + count)) {}

  void fill(std::span<const HostAdapter> adapters, std::span<const HostAddress> addresses) {
    for (std::size_t i = 0; i < count_; ++i) {
      fill_entry(entries_[i], adapters[i]);
      if (i + 1 < count_) entries_[i].Next = &entries_[i + 1];
    }
    // The entry's CurrentIpAddress serves as the tail of its address list meanwhile.
    for (const HostAddress& address : addresses) {
      IP_ADAPTER_INFO* entry = find_entry(address.interface_index);
      if (entry == nullptr) continue;
      IP_ADDR_STRING*& tail = entry->CurrentIpAddress;
      tail = tail != nullptr ? append(*tail) : &entry->IpAddressList;
      std::memcpy(tail->IpAddress.String, address.address_text, sizeof tail->IpAddress.String);
      std::memcpy(tail->IpMask.String, address.mask_text, sizeof tail->IpMask.String);
      tail->Context = address.context;
    }
    for (std::size_t i = 0; i < count_; ++i) entries_[i].CurrentIpAddress = nullptr;
  }

  /// The number of bytes that `fill` takes.
  static ULONG size(std::span<const HostAdapter> adapters, std::span<const HostAddress> addresses) {
    // Room for a node per address and gateway, although the first of each list needs none: counting
    // exactly would cost a walk for what a few bytes do.
    std::size_t nodes = addresses.size();
    for (const HostAdapter& adapter : adapters) nodes += adapter.gateways.size();
    return static_cast<ULONG>(adapters.size() * sizeof(IP_ADAPTER_INFO) +
                              nodes * sizeof(IP_ADDR_STRING));
  }

 private:
  IP_ADAPTER_INFO* find_entry(DWORD interface_index) {
    for (std::size_t i = 0; i < count_; ++i) {
      if (entries_[i].Index == interface_index) return &entries_[i];
    }
    return nullptr;
  }

  void fill_entry(IP_ADAPTER_INFO& entry, const HostAdapter& adapter) {
    entry = {};
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

  IP_ADDR_STRING* append(IP_ADDR_STRING& last) {
    *node_ = {};
    last.Next = node_;
    return node_++;
  }

  IP_ADAPTER_INFO* entries_;
  std::size_t count_;
  IP_ADDR_STRING* node_;
};

/// The adapter with an interface index; null, with the code to answer, when there is none.
const HostAdapter* find_adapter(DWORD interface_index, DWORD& code) {
  std::span<const HostAdapter> adapters;
  code = current_host().read_adapters(Reading::FRESH, adapters);
  if (code != NO_ERROR) return nullptr;
  const auto found = std::find_if(adapters.begin(), adapters.end(), [=](const HostAdapter& it) {
    return it.row.dwIndex == interface_index;
  });
  if (found != adapters.end()) return &*found;
  code = ERROR_INVALID_DATA;
  return nullptr;
}

}  // namespace

DWORD WINAPI GetIfTable(PMIB_IFTABLE table, PULONG size, BOOL order) {
  return answering_code([=]() -> DWORD {
    if (const auto code = scripted_failure(Call::GET_IF_TABLE)) return *code;
    static SizeProtocol protocol;
    std::span<const HostAdapter> adapters;
    const DWORD code = current_host().read_adapters(protocol.reading(table), adapters);
    if (code != NO_ERROR) return code;
    if (!protocol.has_room(table, size, table_size<MIB_IFTABLE>(adapters.size()))) {
      return ERROR_INSUFFICIENT_BUFFER;
    }
    MIB_IFROW* const rows = table->table;
    std::transform(adapters.begin(), adapters.end(), rows,
                   [](const HostAdapter& adapter) { return adapter.row; });
    table->dwNumEntries = static_cast<DWORD>(adapters.size());
    if (order != FALSE) {
      std::sort(rows, rows + adapters.size(),
                [](const MIB_IFROW& a, const MIB_IFROW& b) { return a.dwIndex < b.dwIndex; });
    }
    return NO_ERROR;
  });
}

DWORD WINAPI GetIpAddrTable(PMIB_IPADDRTABLE table, PULONG size, BOOL /*order*/) {
  return answering_code([=]() -> DWORD {
    if (const auto code = scripted_failure(Call::GET_IP_ADDR_TABLE)) return *code;
    static SizeProtocol protocol;
    std::span<const HostAddress> addresses;
    const DWORD code = current_host().read_addresses(protocol.reading(table), addresses);
    if (code != NO_ERROR) return code;
    if (!protocol.has_room(table, size, table_size<MIB_IPADDRTABLE>(addresses.size()))) {
      return ERROR_INSUFFICIENT_BUFFER;
    }
    // The host's order is the sorted one, and as good as any when no order is asked for.
    std::transform(addresses.begin(), addresses.end(), table->table, address_row);
    table->dwNumEntries = static_cast<DWORD>(addresses.size());
    return NO_ERROR;
  });
}

DWORD WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO list, PULONG size) {
  return answering_code([=]() -> DWORD {
    if (const auto code = scripted_failure(Call::GET_ADAPTERS_INFO)) return *code;
    static SizeProtocol protocol;
    const Reading reading = protocol.reading(list);
    std::span<const HostAdapter> adapters;
    std::span<const HostAddress> addresses;
    DWORD code = current_host().read_adapters(reading, adapters);
    if (code == NO_ERROR) code = current_host().read_addresses(reading, addresses);
    if (code != NO_ERROR) return code;
    if (adapters.empty()) return ERROR_NO_DATA;
    if (!protocol.has_room(list, size, InformationList::size(adapters, addresses))) {
      return ERROR_BUFFER_OVERFLOW;
    }
    InformationList(list, adapters.size()).fill(adapters, addresses);
    return NO_ERROR;
  });
}

DWORD WINAPI AddIPAddress(ULONG address, ULONG mask, DWORD interface_index, PULONG context,
                          PULONG instance) {
  return answering_code([=]() -> DWORD {
    if (const auto code = scripted_failure(Call::ADD_IP_ADDRESS)) return *code;
    DWORD given = 0;
    const DWORD code = current_host().add_address(address, mask, interface_index, given);
    if (code != NO_ERROR) return code;
    *context = given;
    *instance = given;
    return NO_ERROR;
  });
}

DWORD WINAPI DeleteIPAddress(ULONG context) {
  return answering_code([=]() -> DWORD {
    if (const auto code = scripted_failure(Call::DELETE_IP_ADDRESS)) return *code;
    return current_host().delete_address(context);
  });
}

DWORD WINAPI SetIfEntry(PMIB_IFROW row) {
  return answering_code([=]() -> DWORD {
    if (const auto code = scripted_failure(Call::SET_IF_ENTRY)) return *code;
    return current_host().set_admin_status(row->dwIndex, row->dwAdminStatus);
  });
}

DWORD WINAPI GetIfEntry(PMIB_IFROW row) {
  return answering_code([=]() -> DWORD {
    if (const auto code = scripted_failure(Call::GET_IF_ENTRY)) return *code;
    DWORD code = NO_ERROR;
    const HostAdapter* adapter = find_adapter(row->dwIndex, code);
    if (adapter != nullptr) *row = adapter->row;
    return code;
  });
}
