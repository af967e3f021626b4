#include "torture/agreement.h"

#include <winsock2.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "platform/host/adapter_keys.h"
#include "platform/host/ipv4.h"

namespace {

/// What the tool believes: an entry of an adapter's table.
struct TableEntry {
  const Adapter* adapter;
  const AddressSlot* slot;
  std::int32_t position;
};

bool is_managed(const Adapter& adapter) { return adapter.mechanism() == MECHANISM_IP_HELPER; }

/// Whether the host holds what the interface's table has, and what has a context with that; under
/// the client what was added must be in force on any interface.
bool is_held(const TableEntry& entry, const std::vector<HostAddress>& held) {
  const Adapter* adapter = entry.adapter;
  const AddressSlot* slot = entry.slot;
  if (!is_managed(*adapter) && slot->is_blank()) return true;
  return std::any_of(held.begin(), held.end(), [&](const HostAddress& it) {
    const bool is_context = slot->nte_context() == 0 || it.context == slot->nte_context();
    const bool is_place = it.interface_index == adapter->index() && is_context;
    return it.address == slot->address() && it.mask == slot->mask() &&
           (is_place || !is_managed(*adapter));
  });
}

/// The text at an entry's position in a list of the registry.
std::string listed(Host& host, const TableEntry& entry, const char* name) {
  const RegistryValue* value = nullptr;
  const std::string key = interface_key(entry.adapter->description());
  if (host.find_value(key, name, value) != NO_ERROR) return "";
  std::size_t at = 0;
  for (std::int32_t i = 0; i < entry.position && at < value->data.size(); ++i) {
    at += std::strlen(&value->data[at]) + 1;
  }
  return at < value->data.size() ? &value->data[at] : "";
}

bool is_listed(Host& host, const TableEntry& entry) {
  return listed(host, entry, "IPAddress") == entry.slot->address_text() &&
         listed(host, entry, "SubnetMask") == entry.slot->mask_text();
}

bool descends(const TableEntry& a, const TableEntry& b) {
  return a.adapter == b.adapter && is_managed(*a.adapter) &&
         ntohl(a.slot->address()) > ntohl(b.slot->address());
}

bool is_one_of(const std::vector<HostAddress>& addresses, const HostAddress& address) {
  return std::any_of(addresses.begin(), addresses.end(), [&](const HostAddress& it) {
    return it.address == address.address && it.mask == address.mask &&
           it.interface_index == address.interface_index;
  });
}

/// Whether an entry lists the address, for the tool's own unless it stood before.
bool claims(const TableEntry& entry, const HostAddress& address, bool stood) {
  const AddressSlot& slot = *entry.slot;
  return slot.address() == address.address &&
         (stood || slot.nte_context() != 0 || slot.added_here() != 0);
}

}  // namespace

std::vector<HostAddress> standing_addresses(Host& host) {
  HostTable<HostAddress> addresses;
  if (host.read_addresses(addresses) != NO_ERROR) return {};
  return *addresses.rows;
}

std::string disagreements(const System& system, Host& host,
                          const std::vector<HostAddress>& before) {
  std::string lines;
  const auto note = [&lines](const char* what, const std::string& which) {
    lines += std::string(what) + " " + which + "\n";
  };
  std::vector<TableEntry> entries;
  std::set<DWORD> managed;
  for (std::int32_t i = 0; i < system.adapter_count(); ++i) {
    const Adapter* adapter = system.adapter(i);
    if (adapter == nullptr) continue;
    if (is_managed(*adapter)) managed.insert(adapter->index());
    for (std::int32_t k = 0; k < adapter->address_count(); ++k) {
      const AddressSlot* slot = adapter->address_slot(k);
      if (slot != nullptr) {
        entries.push_back({adapter, slot, k});
      } else {
        note("DISAGREES: a gap", adapter->description());
      }
    }
  }
  const std::vector<HostAddress> held = standing_addresses(host);
  for (const TableEntry& entry : entries) {
    const bool is_added = entry.slot->added_here() != 0;
    if (!is_managed(*entry.adapter) && !is_added) continue;
    if (!is_held(entry, held)) note("DISAGREES: not held", entry.slot->address_text());
    if (is_added && !is_listed(host, entry)) {
      note("DISAGREES: not listed", entry.slot->address_text());
    }
  }
  if (std::adjacent_find(entries.begin(), entries.end(), descends) != entries.end()) {
    note("DISAGREES:", "not sorted");
  }
  for (const HostAddress& address : held) {
    const bool stood = is_one_of(before, address);
    const bool is_expected = !stood || managed.contains(address.interface_index);
    const bool is_claimed =
        std::any_of(entries.begin(), entries.end(),
                    [&](const TableEntry& entry) { return claims(entry, address, stood); });
    if (address.address != INADDR_ANY && is_expected && !is_claimed) {
      note("UNCLAIMED:", dotted(address.address));
    }
  }
  return lines;
}
