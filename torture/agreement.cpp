#include "torture/agreement.h"

#include <winsock2.h>

#include <algorithm>
#include <cstring>

#include "platform/hosts/adapter_keys.h"
#include "platform/hosts/ipv4.h"

namespace {

class Comparison {
 public:
  Comparison(const System& system, Host& host, const std::vector<HostAddress>& before)
      : system_(system), host_(host), held_(standing_addresses(host)), before_(before) {}

  std::string lines() {
    for (std::int32_t i = 0; i < system_.adapter_count(); ++i) {
      if (const Adapter* adapter = system_.adapter(i)) compare_adapter(*adapter);
    }
    for (const HostAddress& address : held_) find_claim(address);
    return lines_;
  }

 private:
  void compare_adapter(const Adapter& adapter) {
    const AddressSlot* last = nullptr;
    for (std::int32_t i = 0; i < adapter.address_count(); ++i) {
      const AddressSlot* slot = adapter.address_slot(i);
      if (slot == nullptr) {
        note("DISAGREES: a gap", adapter.description());
        continue;
      }
      if (adapter.mechanism() == MECHANISM_IP_HELPER) {
        compare_row(adapter, *slot);
        if (last != nullptr && ntohl(last->address()) > ntohl(slot->address())) {
          note("DISAGREES: not sorted", slot->address_text());
        }
      }
      if (slot->added_here() != 0) compare_listed(adapter, i, *slot);
      last = slot;
    }
  }

  /// The host must hold what the interface's table has, and what has a context with that.
  void compare_row(const Adapter& adapter, const AddressSlot& slot) {
    const bool held = std::any_of(held_.begin(), held_.end(), [&](const HostAddress& it) {
      return (slot.nte_context() == 0 || it.context == slot.nte_context()) &&
             it.address == slot.address() && it.mask == slot.mask() &&
             it.interface_index == adapter.index();
    });
    if (!held) note("DISAGREES: the host does not hold", slot.address_text());
  }

  /// What was added through the client must be in force, and in the registry at its position.
  void compare_listed(const Adapter& adapter, std::int32_t position, const AddressSlot& slot) {
    const bool held = std::any_of(held_.begin(), held_.end(), [&](const HostAddress& it) {
      return it.address == slot.address() && it.mask == slot.mask();
    });
    if (!slot.is_blank() && !held) note("DISAGREES: not in force", slot.address_text());
    for (const auto& [name, text] :
         {std::pair{"IPAddress", slot.address_text()}, {"SubnetMask", slot.mask_text()}}) {
      if (listed(adapter, name, position) != text) note("DISAGREES: not listed", text);
    }
  }

  std::string listed(const Adapter& adapter, const char* name, std::int32_t position) {
    const RegistryValue* value = nullptr;
    if (host_.find_value(interface_key(adapter.description()), name, value) != NO_ERROR) return "";
    std::size_t at = 0;
    for (std::int32_t i = 0; i < position && at < value->data.size(); ++i) {
      at += std::strlen(&value->data[at]) + 1;
    }
    return at < value->data.size() ? &value->data[at] : "";
  }

  /// An address that stands must be listed, as the tool's own when it came to stand meanwhile.
  void find_claim(const HostAddress& address) {
    const bool stood = std::any_of(before_.begin(), before_.end(), [&](const HostAddress& it) {
      return it.address == address.address && it.mask == address.mask &&
             it.interface_index == address.interface_index;
    });
    bool expected = !stood;
    for (std::int32_t i = 0; i < system_.adapter_count(); ++i) {
      const Adapter* adapter = system_.adapter(i);
      if (adapter == nullptr) continue;
      if (lists(*adapter, address, !stood)) return;
      expected = expected || has_interface(*adapter, address);
    }
    if (expected && address.address != INADDR_ANY)
      note("UNCLAIMED:", dotted(address.address).c_str());
  }

  static bool lists(const Adapter& adapter, const HostAddress& address, bool as_own) {
    for (std::int32_t i = 0; i < adapter.address_count(); ++i) {
      const AddressSlot* slot = adapter.address_slot(i);
      if (slot == nullptr || slot->address() != address.address) continue;
      if (!as_own || slot->nte_context() != 0 || slot->added_here() != 0) return true;
    }
    return false;
  }

  static bool has_interface(const Adapter& adapter, const HostAddress& address) {
    return adapter.mechanism() == MECHANISM_IP_HELPER && adapter.index() == address.interface_index;
  }

  void note(const char* what, const char* which) {
    lines_ += std::string(what) + " " + which + "\n";
  }

  const System& system_;
  Host& host_;
  std::vector<HostAddress> held_;
  const std::vector<HostAddress>& before_;
  std::string lines_;
};

}  // namespace

std::vector<HostAddress> standing_addresses(Host& host) {
  HostTable<HostAddress> addresses;
  if (host.read_addresses(addresses) != NO_ERROR) return {};
  return {addresses.rows.begin(), addresses.rows.end()};
}

std::string disagreements(const System& system, Host& host,
                          const std::vector<HostAddress>& before) {
  return Comparison(system, host, before).lines();
}
