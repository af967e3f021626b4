#include "brenlo/src/adapter.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "base/find.h"
#include "brenlo/src/ip_tables.h"
#include "brenlo/src/netsh.h"
#include "brenlo/src/utils.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_dhcpcsvc.h"
#include "shared/include/vmk_errmsg.h"
#include "shared/include/vmk_iphlpapi.h"

namespace {

constexpr int TABLE_STEP = 128;
constexpr int MAX_LIST_ENTRIES = 10010;
/// Slots below are the administrator's and never take an added address.
constexpr int FIRST_USABLE_SLOT = 5;
constexpr std::size_t MAX_DOTTED_LENGTH = 15;
constexpr char PROBE_ADDRESS[] = "0.0.255.255";
constexpr char PROBE_MASK[] = "255.255.0.0";

ReportSite here(int line = __builtin_LINE()) { return {".\\adapter", line}; }

int fail_memory(ReportSite site) {
  report(BEGIN_ERROR, site, "out of memory");
  return -1;
}

int fail_no_room(ReportSite site) { return report(ADD_WARN, site, "Cannot add address"); }

/// Makes room for one more entry in an array of owned pointers.
template <typename Slot>
int grow_table(std::unique_ptr<Slot*[]>& slots, std::int32_t count, std::int32_t& capacity) {
  if (count < capacity) return 0;
  const std::int32_t grown_capacity = capacity + TABLE_STEP;
  std::unique_ptr<Slot*[]> grown(new (std::nothrow)
                                     Slot*[static_cast<std::size_t>(grown_capacity)]);
  if (grown == nullptr) return fail_memory(here());
  std::copy_n(slots.get(), count, grown.get());
  slots = std::move(grown);
  capacity = grown_capacity;
  return 0;
}

template <typename Slot>
void clear_table(std::unique_ptr<Slot*[]>& slots, std::int32_t& count) {
  for (std::int32_t i = 0; i < count; ++i) {
    delete slots.get()[i];
    slots.get()[i] = nullptr;
  }
  count = 0;
}

/// Takes an entry out of an array of owned pointers and closes the gap.
template <typename Slot>
void remove_from_table(std::unique_ptr<Slot*[]>& slots, std::int32_t& count,
                       std::int32_t position) {
  Slot** const at = slots.get() + position;
  delete *at;
  std::move(at + 1, slots.get() + count, at);
  slots.get()[--count] = nullptr;
}

struct MaskByClass {
  std::int32_t first;
  std::int32_t last;
  const char* mask;
};

constexpr MaskByClass DEFAULT_MASKS[] = {
    {1, 126, "255.0.0.0"}, {128, 191, "255.255.0.0"}, {192, 223, "255.255.255.0"}};

/// The mask that stands for "0.0.0.0" with this address.
const char* default_mask(const char* address_text) {
  const bool numeric = *address_text >= '0' && *address_text <= '9';
  const std::int32_t number = numeric ? decimal_value(address_text) : 0;
  for (const MaskByClass& row : DEFAULT_MASKS) {
    if (number >= row.first && number <= row.last) return row.mask;
  }
  return nullptr;
}

const char* effective_mask(const char* address_text, const char* mask_text) {
  if (std::strcmp(mask_text, "0.0.0.0") != 0) return mask_text;
  if (const char* mask = default_mask(address_text)) return mask;
  report(BEGIN_ERROR, here(), "Address [%s], Mask [%s]", address_text, mask_text);
  report(CLOSE_WARN, here(), "Address not Class A/B/C. Defaulting to Class-C mask 255.255.255.0");
  return "255.255.255.0";
}

}  // namespace

// ---- Construction -----------------------------------------------------------------------------

Adapter::Adapter(const char* text, std::uint32_t index, std::uint32_t type,
                 const std::uint8_t (&hardware_address)[6], std::uint32_t mechanism)
    : mechanism_(mechanism), name_(""), connection_name_(""), index_(index), type_(type) {
  if (mechanism_ == MECHANISM_DHCP_CLIENT) {
    copy_cut(description_, text);
  } else {
    std::snprintf(description_, sizeof description_, "%s-%d", text, static_cast<int>(index));
  }
  std::copy(std::begin(hardware_address), std::end(hardware_address), hardware_address_);
  if (read_tcpip_settings() != 0) report(CLOSE_ERROR, here(), "Cannot read IP address settings.");
  if (read_gateways() != 0) report(CLOSE_ERROR, here(), "Cannot read gateway settings.");
  read_connection_name(name_, connection_name_, sizeof connection_name_);
}

Adapter::~Adapter() {
  clear_addresses();
  clear_ipv6_addresses();
}

// ---- Reading and writing the address table ----------------------------------------------------

int Adapter::read_tcpip_settings() {
  clear_addresses();
  int result = 0;
  if (mechanism_ == MECHANISM_DHCP_CLIENT) result = read_registry_addresses();
  if (mechanism_ == MECHANISM_IP_HELPER) result = read_interface_addresses();
  if (result != 0) clear_addresses();
  return result;
}

int Adapter::append_slot(std::unique_ptr<AddressSlot> entry) {
  if (grow_address_table() != 0) return fail_no_room(here());
  if (entry == nullptr) {
    fail_memory(here());
    return fail_no_room(here());
  }
  addresses_.get()[address_count_++] = entry.release();
  return 0;
}

int Adapter::read_registry_addresses() {
  StringList addresses;
  StringList masks;
  if (!addresses.allocated() || !masks.allocated()) {
    fail_memory(here());
    return report(ADD_WARN, here(), "Cannot get Tcpip parms for Adapter <%s>.", description_);
  }
  const ParameterKeys keys(description_);
  const auto* const key = find_where(keys.choices, [&](const KeyPath& choice) {
    return addresses.read(choice.text, "IPAddress") == 0;
  });
  if (key == nullptr)
    return report(ADD_WARN, here(), "Cannot get Tcpip parms for Adapter <%s>.", description_);
  if (masks.read(key->text, "SubnetMask") != 0) {
    return report(ADD_WARN, here(), "Cannot get Tcpip settings for Adapter <%s>.", description_);
  }
  const char* address = addresses.data();
  const char* mask = masks.data();
  while (*address != '\0' && *mask != '\0') {
    std::unique_ptr<AddressSlot> slot(new (std::nothrow) AddressSlot(address, mask, 0));
    if (append_slot(std::move(slot)) != 0) return -1;
    address = StringList::after(address);
    mask = StringList::after(mask);
  }
  return 0;
}

int Adapter::read_interface_addresses() {
  const auto table = fetch_ip_addr_table();
  if (table.buffer == nullptr) return report(CLOSE_ERROR, here(), "GetIpAddrTable failed.");
  for (const MIB_IPADDRROW& row : table_rows(table)) {
    if (row.dwIndex != index_) continue;
    if (grow_address_table() != 0) return fail_no_room(here());
    if (row.dwAddr == 0) continue;
    std::unique_ptr<AddressSlot> slot(new (std::nothrow) AddressSlot(row.dwAddr, row.dwMask, 0));
    if (append_slot(std::move(slot)) != 0) return -1;
  }
  return 0;
}

int Adapter::write_tcpip_settings(std::int32_t blank_count) {
  if (mechanism_ != MECHANISM_DHCP_CLIENT) return 0;
  const auto fail = [this](ReportSite site) {
    return report(ADD_WARN, site, "Cannot set Tcpip parms for Adapter <%s>.", description_);
  };
  StringList addresses;
  StringList masks;
  if (!addresses.allocated() || !masks.allocated()) {
    fail_memory(here());
    return fail(here());
  }
  std::int32_t written = 0;
  for (std::int32_t i = 0; i < address_count_; ++i) {
    const AddressSlot& entry = *slot(i);
    if (entry.is_blank()) continue;
    if (written == MAX_LIST_ENTRIES || !addresses.add(entry.address_text()) ||
        !masks.add(entry.mask_text())) {
      // A list cut short would take addresses off the adapter.
      report(BEGIN_ERROR, here(), "more than %d addresses", written);
      return fail(here());
    }
    ++written;
  }
  const std::int32_t blanks = std::min(blank_count, MAX_LIST_ENTRIES - written);
  for (std::int32_t i = 0; i < blanks; ++i) {
    // There is room for so many entries of any length.
    static_cast<void>(addresses.add(blank_address(written + i)));
    static_cast<void>(masks.add(blank_mask(written + i)));
  }
  const ParameterKeys keys(description_);
  const auto write = [](const KeyPath& key, const char* value, const StringList& list) {
    return write_multi_sz_value(key.text, value, list.data(), list.size()) == 0;
  };
  const auto* const key = find_where(
      keys.choices, [&](const KeyPath& choice) { return write(choice, "IPAddress", addresses); });
  if (key == nullptr || !write(*key, "SubnetMask", masks)) return fail(here());
  return read_tcpip_settings();
}

int Adapter::refresh_addresses() {
  if (mechanism_ != MECHANISM_IP_HELPER) return 0;
  std::unique_ptr<SavedContext[]> saved;
  std::int32_t count = 0;
  save_contexts(saved, count);
  if (saved == nullptr) {
    // Without the contexts a re-read would disown every address that the tool added.
    fail_memory(here());
    report(CLOSE_ERROR, here(), "Cannot read IP address settings.");
    return 0;
  }
  if (read_tcpip_settings() != 0) report(CLOSE_ERROR, here(), "Cannot read IP address settings.");
  restore_contexts(std::move(saved), count);
  return 0;
}

int Adapter::save_contexts(std::unique_ptr<SavedContext[]>& saved, std::int32_t& count) const {
  count = address_count_;
  saved.reset(new (std::nothrow) SavedContext[static_cast<std::size_t>(count)]);
  if (saved == nullptr) return 0;
  for (std::int32_t i = 0; i < count; ++i) {
    saved.get()[i] = {slot(i)->address(), slot(i)->nte_context()};
  }
  return 0;
}

int Adapter::restore_contexts(std::unique_ptr<SavedContext[]> saved, std::int32_t count) {
  if (saved == nullptr) return -1;
  for (std::int32_t i = 0; i < count; ++i) {
    std::int32_t position = 0;
    const auto& [address, nte_context] = saved.get()[i];
    if (find_address_slot(address, position) != 0) continue;
    slot(position)->set_address_value(address);
    slot(position)->set_nte_context(nte_context);
  }
  return 0;
}

// ---- Gateways and names -----------------------------------------------------------------------

int Adapter::read_gateways() {
  clear_gateways();
  switch (mechanism_) {
    case MECHANISM_DHCP_CLIENT: return read_registry_gateways();
    case MECHANISM_IP_HELPER: return read_interface_gateways();
    default: return 0;
  }
}

int Adapter::append_gateway(std::string_view text) {
  std::unique_ptr<char[]> copy(new (std::nothrow) char[text.size() + 1]);
  if (copy == nullptr) return fail_memory(here());
  copy_cut(copy.get(), text.size() + 1, text);
  gateways_[gateway_count_++] = std::move(copy);
  return 0;
}

int Adapter::read_registry_gateways() {
  StringList list;
  const ParameterKeys keys(description_);
  if (!list.allocated()) {
    fail_memory(here());
  } else if (list.read(keys.choices[0].text, "DefaultGateway") == 0 ||
             list.read(keys.choices[1].text, "DefaultGateway") == 0) {
    for (const char* text = list.data(); *text != '\0' && gateway_count_ < MAX_GATEWAYS;
         text = StringList::after(text)) {
      if (append_gateway(text) != 0) return -1;
    }
    return 0;
  }
  return report(ADD_WARN, here(), "Cannot get the default gateway for Adapter <%s>.", description_);
}

int Adapter::read_interface_gateways() {
  const auto list = fetch_adapters_info(WhenEmpty::GIVE_UP);
  for (const IP_ADAPTER_INFO* entry = list.get(); entry != nullptr; entry = entry->Next) {
    if (entry->Index != index_) continue;
    copy_cut(name_, field_text(entry->AdapterName));
    for (const IP_ADDR_STRING* gateway = &entry->GatewayList;
         gateway != nullptr && gateway_count_ < MAX_GATEWAYS; gateway = gateway->Next) {
      if (append_gateway(field_text(gateway->IpAddress.String)) != 0) return -1;
    }
  }
  return 0;
}

int Adapter::current_ip_address(char* buffer, std::size_t size) const {
  if (name_[0] == '\0') return report(BEGIN_ERROR, here(), "Adapter Key not found");
  const ParameterKeys keys(name_);
  const char* const first = keys.choices[0].text;
  const char* const second = keys.choices[1].text;
  // One byte more than a read may fill, so that a value without its NUL ends there.
  char text[ADDRESS_BUFFER_SIZE + 1];
  const auto usable = [&text](int result) {
    return result == 0 && text[0] != '\0' && text[0] != '0';
  };
  const auto read_list = [&text](const char* key) {
    std::uint32_t capacity = 256;
    return read_first_multi_sz(key, "IpAddress", text, &capacity);
  };
  const auto read_raw = [&text](const char* key, const char* value, std::int32_t capacity) {
    std::fill(std::begin(text), std::end(text), '\0');
    return read_registry_value(key, value, text, &capacity);
  };
  if (usable(read_list(first)) || usable(read_raw(first, "DhcpIPAddress", ADDRESS_BUFFER_SIZE)) ||
      usable(read_raw(second, "IpAddress", 256)) ||
      usable(read_raw(second, "DhcpIPAddress", ADDRESS_BUFFER_SIZE))) {
    copy_cut(buffer, size, text);
    return 0;
  }
  return report(ADD_WARN, here(), "Cannot determine IP address. ");
}

int read_connection_name(const char* system_name, char* buffer, std::uint32_t capacity) {
  const KeyPath path(
      "SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-BFC1-08002BE10318}"
      "\\%s\\Connection",
      system_name);
  const RegistryKey key = open_key(path.text, KEY_QUERY_VALUE);
  if (key == nullptr) return -1;
  // One byte more than a read may fill, so that a value without its NUL ends there.
  const ErrnoKeeper kept;
  const std::size_t room = std::size_t{capacity} + 1;
  const TextBlock text(room != 0 ? static_cast<char*>(std::calloc(room, 1)) : nullptr);
  DWORD size = capacity;
  const LSTATUS status = text == nullptr
                             ? ERROR_NOT_ENOUGH_MEMORY
                             : RegQueryValueExA(key.get(), "Name", nullptr, nullptr,
                                                reinterpret_cast<BYTE*>(text.get()), &size);
  if (status != ERROR_SUCCESS || capacity == 0) return -1;
  copy_cut(buffer, capacity, text.get());
  return 0;
}

// ---- The address table ------------------------------------------------------------------------

int Adapter::has_address(const char* address_text) const {
  const std::uint32_t address = inet_addr(address_text);
  std::int32_t position = 0;
  switch (mechanism_) {
    case MECHANISM_NONE:
    case MECHANISM_DHCP_CLIENT: return find_listed(address, position) != nullptr ? 1 : 0;
    case MECHANISM_IP_HELPER: return find_address_slot(address, position) == 0 ? 1 : 0;
    default: return 0;
  }
}

std::int32_t Adapter::count_blank_slots() const {
  if (mechanism_ != MECHANISM_DHCP_CLIENT) return 0;
  std::int32_t blank = 0;
  for (std::int32_t i = 0; i < address_count_; ++i) {
    if (slot(i) != nullptr && slot(i)->is_blank()) ++blank;
  }
  return blank;
}

/// The first entry with the address, by a walk: the registry's lists have no order.
AddressSlot* Adapter::find_listed(std::uint32_t address, std::int32_t& position) const {
  for (position = 0; position < address_count_; ++position) {
    AddressSlot* entry = slot(position);
    if (entry != nullptr && entry->address() == address) return entry;
  }
  return nullptr;
}

int Adapter::find_address_slot(std::uint32_t address, std::int32_t& position) const {
  const std::uint32_t wanted = ntohl(address);
  position = 0;
  std::int32_t low = 0;
  std::int32_t high = address_count_ - 1;
  while (low <= high) {
    const std::int32_t middle = low + (high - low) / 2;
    const std::uint32_t key = ntohl(slot(middle)->address());
    if (key == wanted) {
      position = middle;
      return 0;
    }
    if (wanted > key) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
    position = low;
  }
  return -1;
}

int Adapter::grow_address_table() {
  return grow_table(addresses_, address_count_, address_capacity_);
}

int Adapter::grow_ipv6_table() { return grow_table(ipv6_addresses_, ipv6_count_, ipv6_capacity_); }

void Adapter::clear_addresses() { clear_table(addresses_, address_count_); }

void Adapter::clear_ipv6_addresses() { clear_table(ipv6_addresses_, ipv6_count_); }

void Adapter::clear_gateways() {
  for (std::int32_t i = 0; i < gateway_count_; ++i) gateways_[i].reset();
  gateway_count_ = 0;
}

int Adapter::probe_address_change() {
  if (mechanism_ != MECHANISM_DHCP_CLIENT) return 0;
  if (add_address(PROBE_ADDRESS, PROBE_MASK) != 0) return -1;
  static_cast<void>(delete_address(PROBE_ADDRESS));
  return 0;
}

// ---- Adding -----------------------------------------------------------------------------------

int Adapter::add_address(const char* address_text, const char* mask_text) {
  if (mechanism_ != MECHANISM_DHCP_CLIENT && mechanism_ != MECHANISM_IP_HELPER) return -1;
  const char* mask = effective_mask(address_text, mask_text);
  return mechanism_ == MECHANISM_DHCP_CLIENT ? add_through_service(address_text, mask_text, mask)
                                             : add_to_interface(address_text, mask);
}

int Adapter::add_through_service(const char* address_text, const char* mask_text,
                                 const char* effective_mask) {
  std::int32_t position = 0;
  if (const AddressSlot* listed = find_listed(inet_addr(address_text), position)) {
    if (listed->added_here() != 1) return 0;
    return report(BEGIN_ERROR, here(), "IPAddress <%s> already configured", address_text);
  }
  for (position = FIRST_USABLE_SLOT; position < address_count_; ++position) {
    if (slot(position) != nullptr && slot(position)->is_blank()) break;
  }
  if (position >= address_count_)
    return report(BEGIN_ERROR, here(), "Cannot find unused slot to add %s", address_text);
  if (fits_in(address_text, SLOT_TEXT_SIZE) == 0 || fits_in(effective_mask, SLOT_TEXT_SIZE) == 0) {
    // The slot would hold another text than the service was told.
    report(BEGIN_ERROR, here(), "address or mask longer than %d characters", SLOT_TEXT_SIZE - 1);
    return report(ADD_WARN, here(), "Cannot add IPAddress <%s> with mask <%s>", address_text,
                  mask_text);
  }
  if (dhcpcsvc_notify_config_change(description_, position, address_text, effective_mask) != 1) {
    return report(ADD_WARN, here(), "Cannot add IPAddress <%s> with mask <%s>", address_text,
                  mask_text);
  }
  AddressSlot& entry = *slot(position);
  entry.set_address(address_text);
  entry.set_mask(effective_mask);
  entry.set_added_here(1);
  return 0;
}

int Adapter::add_to_interface(const char* address_text, const char* effective_mask) {
  const std::uint32_t address = inet_addr(address_text);
  const std::uint32_t mask = inet_addr(effective_mask);
  if (grow_address_table() != 0) return fail_no_room(here());
  ULONG nte_context = 0;
  ULONG nte_instance = 0;
  if (iphlpapi_add_ip_address(address, mask, index_, &nte_context, &nte_instance) != NO_ERROR)
    return report(ADD_WARN, here(), "cannot add address <%s>.", address_text);
  if (insert_added(address, mask, nte_context) != 0) return -1;
  Sleep(1);
  return 0;
}

/// Enters an address that is on the interface already; without memory for its entry it is taken
/// off again, so that table and interface agree.
int Adapter::insert_added(std::uint32_t address, std::uint32_t mask, std::uint32_t nte_context) {
  std::unique_ptr<AddressSlot> entry(new (std::nothrow) AddressSlot(address, mask, 0));
  if (entry == nullptr) {
    static_cast<void>(iphlpapi_delete_ip_address(nte_context));
    fail_memory(here());
    return fail_no_room(here());
  }
  entry->set_nte_context(nte_context);
  std::int32_t position = 0;
  static_cast<void>(find_address_slot(address, position));
  AddressSlot** const slots = addresses_.get();
  std::move_backward(slots + position, slots + address_count_, slots + address_count_ + 1);
  slots[position] = entry.release();
  ++address_count_;
  return 0;
}

// ---- Deleting and purging ---------------------------------------------------------------------

int Adapter::delete_address(const char* address_text) {
  return remove_address(address_text, false);
}

int Adapter::purge_address(const char* address_text) { return remove_address(address_text, true); }

int Adapter::remove_address(const char* address_text, bool any_owner) {
  if (mechanism_ == MECHANISM_DHCP_CLIENT) return delete_through_service(address_text);
  if (mechanism_ == MECHANISM_IP_HELPER) return delete_from_interface(address_text, any_owner);
  return -1;
}

int Adapter::delete_through_service(const char* address_text) {
  std::int32_t position = 0;
  AddressSlot* entry = find_listed(inet_addr(address_text), position);
  if (entry == nullptr)
    return report(BEGIN_ERROR, here(), "Cannot find address <%s> to delete.", address_text);
  if (entry->added_here() == 0) return 0;
  const char* const address = blank_address(position);
  const char* const mask = blank_mask(position);
  if (dhcpcsvc_notify_config_change(description_, position, address, mask) != 1)
    return report(ADD_WARN, here(), "Cannot delete IPAddress <%s>", address_text);
  entry->set_address(address);
  entry->set_mask(mask);
  return 0;
}

int Adapter::delete_from_interface(const char* address_text, bool any_owner) {
  std::int32_t position = 0;
  if (find_address_slot(inet_addr(address_text), position) != 0)
    return report(BEGIN_ERROR, here(), "Cannot find address <%s> to delete.", address_text);
  std::uint32_t nte_context = slot(position)->nte_context();
  if (nte_context == 0 && !any_owner) {
    return report(BEGIN_ERROR, here(), "address <%s> was created by another application.",
                  address_text);
  }
  if (nte_context == 0) nte_context = find_nte_context(address_text);
  if (nte_context == 0)
    return report(ADD_WARN, here(), "Cannot identify context for IPAddress <%s>", address_text);
  if (iphlpapi_delete_ip_address(nte_context) != NO_ERROR) {
    return report(ADD_WARN, here(), "cannot delete address <%s>.", address_text);
  }
  remove_from_table(addresses_, address_count_, position);
  Sleep(1);
  return 0;
}

std::uint32_t find_nte_context(const char* address_text) {
  if (std::strlen(address_text) > MAX_DOTTED_LENGTH) return 0;
  const auto list = fetch_adapters_info(WhenEmpty::FETCH);
  for (const IP_ADAPTER_INFO* entry = list.get(); entry != nullptr; entry = entry->Next) {
    for (const IP_ADDR_STRING* address = &entry->IpAddressList; address != nullptr;
         address = address->Next) {
      if (field_text(address->IpAddress.String) == address_text) return address->Context;
    }
  }
  return 0;
}

// ---- IPv6 -------------------------------------------------------------------------------------

bool Adapter::has_ipv6_key(const char* address_text) const {
  DynStore path;
  for (const char* piece : {"SYSTEM\\CurrentControlSet\\Services\\Tcpip6\\Parameters\\Interfaces\\",
                            static_cast<const char*>(name_), "\\Addresses\\", address_text}) {
    path.append_str(piece);
  }
  return open_key(path.str(), KEY_QUERY_VALUE) != nullptr;
}

int Adapter::add_ipv6_address(const char* address_text) {
  const bool is_new = !has_ipv6_key(address_text);
  const CommandResult result = run_netsh("add", connection_name_, address_text);
  if (result == CommandResult::FAILED) {
    read_connection_name(name_, connection_name_, sizeof connection_name_);
  }
  if (result != CommandResult::SUCCEEDED) return -1;
  if (is_new) record_ipv6_address(address_text);
  return 0;
}

/// Enters an address that the tool added; without memory for its entry it is the tool's no longer.
void Adapter::record_ipv6_address(const char* address_text) {
  std::uint16_t groups[8];
  parse_ipv6_groups(address_text, groups);
  if (grow_ipv6_table() != 0) {
    fail_no_room(here());
    return;
  }
  auto* const slot = new (std::nothrow) Ipv6Slot(groups);
  if (slot == nullptr) {
    fail_memory(here());
    fail_no_room(here());
    return;
  }
  ipv6_addresses_.get()[ipv6_count_++] = slot;
}

int Adapter::delete_ipv6_address(const char* address_text) {
  std::uint16_t groups[8];
  parse_ipv6_groups(address_text, groups);
  std::int32_t position = 0;
  if (find_ipv6_slot(groups, position) == 0) return 0;
  const CommandResult result = run_netsh("del", connection_name_, address_text);
  if (result == CommandResult::NOT_STARTED) return -1;
  remove_from_table(ipv6_addresses_, ipv6_count_, position);
  if (result == CommandResult::FAILED) {
    read_connection_name(name_, connection_name_, sizeof connection_name_);
    return -1;
  }
  Sleep(1);
  return 0;
}

int Adapter::find_ipv6_slot(const std::uint16_t (&groups)[8], std::int32_t& position) const {
  for (std::int32_t i = 0; i < ipv6_count_; ++i) {
    if (std::memcmp(ipv6_addresses_.get()[i]->groups(), groups, sizeof groups) != 0) continue;
    position = i;
    return 1;
  }
  return 0;
}
