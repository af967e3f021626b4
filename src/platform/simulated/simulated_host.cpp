#include "platform/simulated/simulated_host.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "base/find.h"
#include "base/text.h"
#include "platform/host/adapter_keys.h"
#include "platform/host/exact_wait.h"
#include "platform/host/ipv4.h"

namespace {

constexpr std::string_view NET_TRANS_KEY =
    "System\\CurrentControlSet\\Services\\Class\\NetTrans\\0001";
constexpr char BLANK[] = "0.0.0.0";

MIB_IFROW interface_row(const AdapterDescription& adapter) {
  MIB_IFROW row = {};
  row.dwIndex = adapter.index;
  row.dwType = adapter.type;
  row.dwMtu = 1500;
  row.dwSpeed = 100'000'000;
  row.dwPhysAddrLen = static_cast<DWORD>(adapter.hardware_address.size());
  std::copy(adapter.hardware_address.begin(), adapter.hardware_address.end(), row.bPhysAddr);
  row.dwAdminStatus = MIB_IF_ADMIN_STATUS_UP;
  row.dwOperStatus = MIB_IF_ADMIN_STATUS_UP;
  const std::size_t length = std::min(adapter.description.size(), sizeof row.bDescr);
  row.dwDescrLen = static_cast<DWORD>(length);
  std::memcpy(row.bDescr, adapter.description.data(), length);
  return row;
}

/// Replaces the string at a position of a REG_MULTI_SZ value's data and gives the one that stood
/// there; nothing when the list is shorter.
std::optional<std::string> replace_string(std::string& data, DWORD position,
                                          const std::string& text) {
  std::size_t at = 0;
  for (; at < data.size() && data[at] != '\0'; --position) {
    const std::size_t end = std::min(data.find('\0', at), data.size());
    if (position == 0) {
      std::string before = data.substr(at, end - at);
      data.replace(at, end - at, text);
      return before;
    }
    at = end + 1;
  }
  return std::nullopt;
}

}  // namespace

// ---- Laying out -------------------------------------------------------------------------------

SimulatedHost::SimulatedHost(HostDescription description)
    : version_(std::move(description.version)),
      user_(std::move(description.user)),
      sleeps_(description.sleep),
      libraries_(std::move(description.libraries)) {
  adapters_.reserve(description.adapters.size());
  for (AdapterDescription& adapter : description.adapters) describe_adapter(adapter);
  describe_registry(description);
  for (const FaultDescription& fault : description.faults) scripts_.push_back({fault});
}

void SimulatedHost::describe_adapter(AdapterDescription& adapter) {
  StringListValue addresses;
  StringListValue masks;
  const std::size_t size = INET_ADDRSTRLEN * (adapter.addresses.size() + adapter.blank_slots);
  addresses.reserve(size);
  masks.reserve(size);
  for (const AddressDescription& address : adapter.addresses) {
    insert_address(address.address, address.mask, adapter.index);
    addresses.add(dotted(address.address));
    masks.add(dotted(address.mask));
  }
  for (DWORD i = 0; i < adapter.blank_slots; ++i) {
    addresses.add(BLANK);
    masks.add(BLANK);
  }

  Registry::Key& key = registry_.key(interface_key(adapter.name));
  set_address_lists(key, addresses.take(), masks.take());
  set_gateways(key, adapter.gateways);
  if (adapter.connection) set_connection(registry_, adapter.name, *adapter.connection);
  adapters_.push_back({adapter.name, std::move(adapter.gateways), interface_row(adapter)});
}

void SimulatedHost::describe_registry(HostDescription& description) {
  if (version_.platform_id == VER_PLATFORM_WIN32_WINDOWS) {
    const auto is_bound = [](const AdapterDescription& it) {
      return it.bound && it.type != MIB_IF_TYPE_LOOPBACK && !it.addresses.empty();
    };
    if (const auto* bound = find_where(description.adapters, is_bound)) {
      registry_.key(NET_TRANS_KEY)
          .set("IpAddress", text_value(dotted(bound->addresses.front().address)));
    }
  } else {
    BindingValue bindings;
    for (const AdapterDescription& adapter : description.adapters) {
      if (adapter.bound) bindings.add(adapter.name);
    }
    bindings.set_in(registry_);
  }
  for (const std::string& key : description.registry_keys) registry_.key(key);
  for (RegistryDescription& value : description.registry) {
    Registry::Key& key = registry_.key(value.path);
    if (value.value) {
      key.set(value.name, std::move(*value.value));
    } else {
      key.erase(value.name);
    }
  }
}

// ---- Looking ----------------------------------------------------------------------------------

bool SimulatedHost::has_library(std::string_view library) const {
  return std::ranges::none_of(libraries_,
                              [=](const auto& it) { return it.name == library && !it.present; });
}

bool SimulatedHost::has_function(std::string_view library, std::string_view function) const {
  for (const auto& described : libraries_) {
    if (described.name != library || !described.functions) continue;
    return std::ranges::count(*described.functions, function) != 0;
  }
  return true;
}

DWORD SimulatedHost::read_adapters(HostTable<HostAdapter>& adapters) {
  if (adapter_rows_.generation != adapters_generation_) {
    adapter_rows_ = {std::make_shared<std::vector<HostAdapter>>(adapters_), adapters_generation_};
  }
  adapters = adapter_rows_;
  return NO_ERROR;
}

DWORD SimulatedHost::read_addresses(HostTable<HostAddress>& addresses) {
  if (address_rows_.generation != addresses_generation_) {
    auto rows = std::make_shared<std::vector<HostAddress>>();
    rows->reserve(addresses_.size());
    for (const auto& [key, address] : addresses_) rows->push_back(address);
    address_rows_ = {std::move(rows), addresses_generation_};
  }
  addresses = address_rows_;
  return NO_ERROR;
}

DWORD SimulatedHost::find_key(std::string_view path) { return registry_.find_key(path); }

DWORD SimulatedHost::find_value(std::string_view path, std::string_view name,
                                const RegistryValue*& value) {
  return registry_.find_value(path, name, value);
}

HostAdapter* SimulatedHost::find_adapter(DWORD interface_index) {
  return find_where(adapters_, [=](const auto& it) { return it.row.dwIndex == interface_index; });
}

// ---- Changing ---------------------------------------------------------------------------------

void SimulatedHost::note(const std::string& line) { diary_.push_back(line); }

DWORD SimulatedHost::insert_address(DWORD address, DWORD mask, DWORD interface_index) {
  // One that no address has; 0 would stand for none.
  while (next_context_ == 0 || by_context_.contains(next_context_)) ++next_context_;
  const HostAddress entry = {address, mask, interface_index, next_context_++};
  const auto inserted = addresses_.emplace(ntohl(address), entry);
  try {
    by_context_.emplace(entry.context, inserted);
  } catch (const std::bad_alloc&) {
    addresses_.erase(inserted);
    throw;
  }
  addresses_generation_.advance();
  return entry.context;
}

void SimulatedHost::erase_address(Addresses::iterator address) {
  by_context_.erase(address->second.context);
  addresses_.erase(address);
  addresses_generation_.advance();
}

DWORD SimulatedHost::add_address(DWORD address, DWORD mask, DWORD interface_index, DWORD& context) {
  if (keeps_diary_) {
    note("add " + dotted(address) + "/" + dotted(mask) + " to " + std::to_string(interface_index));
  }
  if (!is_host_address(address) || !is_mask(mask)) return ERROR_INVALID_PARAMETER;
  if (addresses_.contains(ntohl(address))) return ERROR_OBJECT_ALREADY_EXISTS;
  if (find_adapter(interface_index) == nullptr) return ERROR_DEV_NOT_EXIST;
  context = insert_address(address, mask, interface_index);
  return NO_ERROR;
}

DWORD SimulatedHost::delete_address(DWORD context) {
  const auto found = by_context_.find(context);
  if (found == by_context_.end()) {
    if (keeps_diary_) note("delete unknown");
    return ERROR_NOT_FOUND;
  }
  if (keeps_diary_) note("delete " + dotted(found->second->second.address));
  erase_address(found->second);
  return NO_ERROR;
}

DWORD SimulatedHost::set_admin_status(DWORD interface_index, DWORD status) {
  if (keeps_diary_) note("status " + std::to_string(status));
  HostAdapter* adapter = find_adapter(interface_index);
  if (adapter == nullptr) return ERROR_INVALID_DATA;
  adapter->row.dwAdminStatus = status;
  adapters_generation_.advance();
  return NO_ERROR;
}

DWORD SimulatedHost::change_listed_address(std::string_view adapter, DWORD position, DWORD address,
                                           DWORD mask) {
  if (keeps_diary_) {
    note("slot " + std::to_string(position) + " of " + std::string(adapter) + " = " +
         dotted(address) + "/" + dotted(mask));
  }
  const auto* const described =
      find_where(adapters_, [=](const auto& it) { return equals_ignoring_case(it.name, adapter); });
  if (described == nullptr) return ERROR_FILE_NOT_FOUND;
  const RegistryValue* addresses = nullptr;
  const RegistryValue* masks = nullptr;
  std::string key = interface_key(described->name);
  if (registry_.find_value(key, "IPAddress", addresses) != NO_ERROR) {
    key = "SYSTEM\\CurrentControlSet\\Services\\" + described->name + "\\Parameters\\Tcpip";
    if (registry_.find_value(key, "IPAddress", addresses) != NO_ERROR) return ERROR_FILE_NOT_FOUND;
  }
  if (registry_.find_value(key, "SubnetMask", masks) != NO_ERROR) return ERROR_FILE_NOT_FOUND;
  RegistryValue new_addresses = *addresses;
  RegistryValue new_masks = *masks;
  const auto before = replace_string(new_addresses.data, position, dotted(address));
  if (!before || !replace_string(new_masks.data, position, dotted(mask))) {
    return ERROR_INVALID_PARAMETER;
  }
  const DWORD index = described->row.dwIndex;
  const auto [first, last] = addresses_.equal_range(ntohl(inet_addr(before->c_str())));
  const auto old = std::find_if(
      first, last, [=](const auto& entry) { return entry.second.interface_index == index; });
  // What may run out of memory comes first, so that table and lists change together or not at all.
  Registry::Key& lists = registry_.key(key);
  if (address != 0) insert_address(address, mask, index);
  lists.set("IPAddress", std::move(new_addresses));
  lists.set("SubnetMask", std::move(new_masks));
  if (*before != BLANK && old != last) erase_address(old);
  return NO_ERROR;
}

DWORD SimulatedHost::create_key(std::string_view path) {
  if (keeps_diary_) note("create " + std::string(path));
  registry_.key(path);
  return NO_ERROR;
}

DWORD SimulatedHost::set_value(std::string_view path, std::string_view name,
                               RegistryValue&& value) {
  if (keeps_diary_) note("set " + std::string(path) + "\\" + std::string(name));
  registry_.key(path).set(name, std::move(value));
  return NO_ERROR;
}

void SimulatedHost::sleep(DWORD milliseconds) {
  if (keeps_diary_) note("sleep " + std::to_string(milliseconds));
  if (sleeps_) wait_exactly(milliseconds);
}

std::optional<ScriptedFault> SimulatedHost::next_fault(std::string_view function) {
  if (scripts_.empty()) return std::nullopt;
  std::optional<ScriptedFault> failure;
  for (auto& [fault, calls] : scripts_) {
    if (fault.function != function) continue;
    // Each fault counts every call, also those that another one makes fail.
    const std::uint64_t failing = ++calls > fault.skip ? calls - fault.skip : 0;
    const bool active = failing > 0 && (!fault.times || failing <= *fault.times);
    if (active && !failure) failure = fault.fault;
  }
  return failure;
}
