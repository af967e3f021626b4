#include "brenlo/src/system.h"

#include <rpc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

#include "base/find.h"
#include "brenlo/src/brenlocfg.h"
#include "brenlo/src/ip_tables.h"
#include "brenlo/src/static_state.h"
#include "brenlo/src/utils.h"
#include "shared/include/os_identity.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_dhcpcsvc.h"
#include "shared/include/vmk_errmsg.h"
#include "shared/include/vmk_iphlpapi.h"

namespace {

constexpr int BINDING_LIST_SIZE = 1024;
constexpr std::size_t DEVICE_PREFIX_LENGTH = 8;  // "\Device\"
constexpr char LINKAGE_KEY[] = "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Linkage";
constexpr char FIRST_ACTIVE[] = "first active";

ReportSite here(int line = __builtin_LINE()) { return {".\\system", line}; }

std::int32_t running_adapter_number = 1;
std::int32_t address_operation_count = 0;

/// The TCP/IP service's binding list. Two NULs more than a read may fill end any list.
struct BindingList {
  char text[BINDING_LIST_SIZE + 2] = {};

  [[nodiscard]] int read() {
    std::int32_t capacity = BINDING_LIST_SIZE;
    return read_registry_value(LINKAGE_KEY, "Bind", text, &capacity);
  }
};

/// Calls `visit` with the adapter name of each binding entry, until it returns false. Entries that
/// leave no name behind the device prefix are passed over.
template <typename Visit>
void for_each_binding(const BindingList& list, Visit visit) {
  for (const char* entry = list.text; *entry != '\0'; entry += std::strlen(entry) + 1) {
    if (std::strlen(entry) <= DEVICE_PREFIX_LENGTH) continue;
    if (!visit(entry + DEVICE_PREFIX_LENGTH)) return;
  }
}

bool is_excluded(const Adapter& adapter) {
  return excluded_adapters->excludes_name(adapter.description()) == 1 ||
         excluded_adapters->excludes_address(adapter.hardware_address()) == 1;
}

bool holds_current_address(const Adapter& adapter) {
  char address[ADDRESS_BUFFER_SIZE];
  return adapter.current_ip_address(address, sizeof address) == 0 &&
         adapter.has_address(address) == 1;
}

/// The active test without the probe.
bool is_listed_active(const Adapter& adapter) {
  return holds_current_address(adapter) && !is_excluded(adapter);
}

const char* shown_name(const char* name) { return name != nullptr ? name : FIRST_ACTIVE; }

int fail_not_supported(ReportSite site) {
  return report(BEGIN_ERROR, site, "Functionality not supported on this windows release.");
}

int fail_no_adapter(ReportSite site, const char* name) {
  return report(BEGIN_ERROR, site, "Cannot find <%s> adapter.", shown_name(name));
}

}  // namespace

// ---- Start and end ----------------------------------------------------------------------------

System::System() {
  iphlpapi_load();
  dhcpcsvc_load();
  choose_ip_mechanism();
  discover_adapters();
}

System::~System() {
  release_adapters();
  iphlpapi_unload();
  dhcpcsvc_unload();
}

int System::release_adapters() {
  for (std::int32_t i = 0; i < adapter_count_; ++i) adapters_[i].reset();
  adapter_count_ = 0;
  first_active_ = -1;
  return 0;
}

int System::choose_ip_mechanism() {
  mechanism_ = MECHANISM_NONE;
  const char* forced = std::getenv("ZARVO_IPMGMT_MECHANISM");
  if (forced == nullptr) {
    if (iphlpapi_available() == 1) {
      mechanism_ = MECHANISM_IP_HELPER;
    } else if (dhcpcsvc_available() == 1) {
      mechanism_ = MECHANISM_DHCP_CLIENT;
    }
    return 0;
  }
  const std::int32_t wanted = decimal_value(forced);
  if (wanted == MECHANISM_DHCP_CLIENT && dhcpcsvc_available() == 0) {
    report(WRITE_ERROR, here(), "Cannot force IP management mechanism 1. DHCPCSVC.DLL not loaded.");
  }
  if (wanted == MECHANISM_IP_HELPER && iphlpapi_available() == 0) {
    report(WRITE_ERROR, here(), "Cannot force IP management mechanism 2. IPHLPAPI.DLL not loaded.");
  }
  mechanism_ = wanted;
  write_info("Forcing IP management mechanism = %d", static_cast<int>(mechanism_));
  return 0;
}

// ---- Discovery --------------------------------------------------------------------------------

namespace {

constexpr DWORD LOOPBACK_TYPE = 24;

/// True when the environment asks to pass over interfaces without an address.
bool drops_unaddressed() {
  const char* allow = std::getenv("ZARVO_ALLOW_WIRELESS");
  return allow != nullptr && std::strcmp(allow, "0") == 0;
}

bool is_unaddressed(std::span<const MIB_IPADDRROW> addresses, DWORD index) {
  const auto* const row = find_with(addresses, index, &MIB_IPADDRROW::dwIndex);
  return row != nullptr && row->dwAddr == 0;
}

std::unique_ptr<Adapter> make_interface_adapter(const MIB_IFROW& row) {
  char description[NAME_SIZE] = "";
  std::memcpy(description, row.bDescr,
              std::min<std::size_t>(row.dwDescrLen, sizeof description - 1));
  trim_trailing(description);

  const auto length = std::min<std::size_t>(row.dwPhysAddrLen, sizeof row.bPhysAddr);
  std::uint8_t hardware_address[6] = {};
  const std::size_t kept = std::min(length, sizeof hardware_address);
  std::copy_n(row.bPhysAddr + (length - kept), kept, std::end(hardware_address) - kept);

  return std::unique_ptr<Adapter>(new (std::nothrow) Adapter(
      description, row.dwIndex, row.dwType, hardware_address, MECHANISM_IP_HELPER));
}

}  // namespace

int System::discover_adapters() {
  switch (mechanism_) {
    case MECHANISM_DHCP_CLIENT: return discover_bindings();
    case MECHANISM_IP_HELPER: return discover_interfaces();
    default: return 0;
  }
}

/// An adapter that could not be allocated leaves its slot null, but counted.
void System::take_adapter(std::unique_ptr<Adapter> adapter) {
  adapters_[adapter_count_++] = std::move(adapter);
}

int System::discover_bindings() {
  BindingList list;
  if (list.read() != 0) return report(CLOSE_ERROR, here(), "Cannot determine Tcpip linkage.");
  for_each_binding(list, [this](const char* binding) {
    if (adapter_count_ >= MAX_ADAPTERS) return false;
    char name[NAME_SIZE];
    copy_cut(name, binding);
    const std::uint8_t no_hardware_address[6] = {};
    std::unique_ptr<Adapter> adapter(
        new (std::nothrow) Adapter(name, static_cast<std::uint32_t>(running_adapter_number), 0,
                                   no_hardware_address, MECHANISM_DHCP_CLIENT));
    if (adapter != nullptr) ++running_adapter_number;
    take_adapter(std::move(adapter));
    return true;
  });
  return 0;
}

int System::discover_interfaces() {
  const bool drop = drops_unaddressed();
  auto addresses = fetch_ip_addr_table();
  if (addresses.buffer == nullptr) return report(CLOSE_ERROR, here(), "GetIpAddrTable failed.");
  const auto interfaces = fetch_if_table();
  if (interfaces.buffer == nullptr) return report(CLOSE_ERROR, here(), "GetIfTable failed.");
  // Each adapter fetches the table for itself, and there may be hundreds of thousands of rows.
  if (!drop) addresses = {};
  for (const MIB_IFROW& row : table_rows(interfaces)) {
    if (adapter_count_ >= MAX_ADAPTERS) break;
    if (row.dwType == LOOPBACK_TYPE) continue;
    if (drop && is_unaddressed(table_rows(addresses), row.dwIndex)) continue;
    take_adapter(make_interface_adapter(row));
  }
  return 0;
}

// ---- Selection --------------------------------------------------------------------------------

Adapter* System::find_adapter(const char* name, bool use_first_active) const {
  if (name == nullptr) {
    const std::int32_t slot = use_first_active ? first_active_ : 0;
    return slot >= 0 && slot < adapter_count_ ? adapters_[slot].get() : nullptr;
  }
  const auto begins_with = [](const auto& adapter, const char* text) {
    return adapter != nullptr && begins_ignoring_case(adapter->description(), text);
  };
  for (const auto& adapter : adapters()) {
    if (begins_with(adapter, name)) return adapter.get();
  }
  // A name whose index ending does not fit still selects the only adapter of its description.
  char stem[NAME_SIZE];
  copy_cut(stem, name);
  char* dash = std::strrchr(stem, '-');
  if (dash == nullptr || dash == stem) return nullptr;
  *dash = '\0';
  Adapter* found = nullptr;
  for (const auto& adapter : adapters()) {
    if (!begins_with(adapter, stem)) continue;
    if (found != nullptr) return nullptr;
    found = adapter.get();
  }
  return found;
}

int System::find_first_active_adapter() {
  first_active_ = -1;
  if (mechanism_ != MECHANISM_DHCP_CLIENT && mechanism_ != MECHANISM_IP_HELPER) return -1;
  for (std::int32_t i = 0; i < adapter_count_; ++i) {
    Adapter* adapter = adapters_[i].get();
    if (adapter == nullptr || adapter->probe_address_change() != 0) continue;
    if (!is_listed_active(*adapter)) continue;
    first_active_ = i;
    break;
  }
  return first_active_;
}

void System::list_adapters() {
  if (mechanism_ == MECHANISM_NONE) return;
  write_info("Configured network interfaces:");
  for (std::int32_t i = 0; i < adapter_count_; ++i) {
    const Adapter* adapter = adapters_[i].get();
    if (adapter == nullptr) continue;
    const bool holds_current = holds_current_address(*adapter);
    const char* remark = holds_current ? "" : " [EXCLUDED - NO TCP/IP]";
    if (is_excluded(*adapter)) remark = " [EXCLUDED]";
    write_info(" #%d : %s%s", i + 1, adapter->description(), remark);
  }
  if (first_active_ == -1) find_first_active_adapter();
  if (first_active_ < 0) {
    report(WRITE_ERROR, here(), "No active network interface found among %d configured.",
           static_cast<int>(adapter_count_));
  } else {
    write_info(" first active: \"%s\"", adapters_[first_active_]->description());
  }
}

int System::read_adapter_settings(const char* name, char* buffer, std::size_t size) {
  const Adapter* adapter = find_adapter(name, true);
  if (adapter == nullptr) return fail_no_adapter(here(), name);
  return adapter->current_ip_address(buffer, size);
}

int System::list_active_adapter_names(char* buffer) const {
  *buffer = '\0';
  for (const auto& adapter : adapters()) {
    if (adapter == nullptr || !is_listed_active(*adapter)) continue;
    buffer += std::snprintf(buffer, NAME_SIZE + 4, "{%s} ", adapter->description());
  }
  return 0;
}

// ---- Address commands -------------------------------------------------------------------------

int System::has_address(const char* name, const char* address) const {
  if (name != nullptr) {
    const Adapter* adapter = find_adapter(name, true);
    return adapter != nullptr ? adapter->has_address(address) : 0;
  }
  const auto holds = [=](const auto& it) { return it != nullptr && it->has_address(address) == 1; };
  return std::ranges::any_of(adapters(), holds) ? 1 : 0;
}

int System::refresh_adapters() {
  for (const auto& adapter : adapters()) {
    if (adapter != nullptr) adapter->refresh_addresses();
  }
  return 0;
}

/// Other programs change the host's addresses too: every so many operations look again.
void System::count_operation() {
  if (++address_operation_count < ADAPTER_REFRESH_INTERVAL) return;
  address_operation_count = 0;
  refresh_adapters();
}

int System::add_address(const char* name, const char* address, const char* mask) {
  if (mechanism_ == MECHANISM_NONE) return fail_not_supported(here());
  count_operation();
  if (has_address(nullptr, address) == 1) {
    refresh_adapters();
    if (has_address(nullptr, address) == 1) return 0;
  }
  Adapter* adapter = find_adapter(name, true);
  if (adapter == nullptr) return fail_no_adapter(here(), name);
  if (adapter->add_address(address, mask) == 0) return 0;
  refresh_adapters();
  return adapter->add_address(address, mask) == 0 ? 0 : -1;
}

int System::delete_address(const char* name, const char* address) {
  return remove_address(name, address, &Adapter::delete_address);
}

int System::purge_address(const char* name, const char* address) {
  return remove_address(name, address, &Adapter::purge_address);
}

int System::remove_address(const char* name, const char* address, AdapterOperation operation) {
  if (mechanism_ == MECHANISM_NONE) return fail_not_supported(here());
  count_operation();
  if (has_address(name, address) == 0) {
    return report(BEGIN_ERROR, here(), "Address <%s> not found on %s adapter.", address,
                  shown_name(name));
  }
  Adapter* adapter = find_adapter(name, true);
  if (adapter == nullptr) return fail_no_adapter(here(), name);
  if ((adapter->*operation)(address) == 0) return 0;
  refresh_adapters();
  return (adapter->*operation)(address) == 0 ? 0 : -1;
}

int System::pad_blank_addresses(const char* name, std::int32_t count) {
  if (mechanism_ == MECHANISM_NONE || mechanism_ == MECHANISM_IP_HELPER) {
    return fail_not_supported(here());
  }
  Adapter* adapter = find_adapter(name, false);
  if (adapter == nullptr) return fail_no_adapter(here(), name);
  if (adapter->write_tcpip_settings(count) == -1) {
    return report(ADD_WARN, here(), "Cannot pad blank addresses to <%s> adapter.",
                  shown_name(name));
  }
  return adapter->count_blank_slots();
}

int System::add_ipv6_address(const char* name, const char* address) {
  return change_ipv6_address(name, address, &Adapter::add_ipv6_address);
}

int System::delete_ipv6_address(const char* name, const char* address) {
  return change_ipv6_address(name, address, &Adapter::delete_ipv6_address);
}

int System::change_ipv6_address(const char* name, const char* address, AdapterOperation operation) {
  constexpr int ATTEMPTS = 3;
  Adapter* adapter = find_adapter(name, true);
  if (adapter == nullptr) return fail_no_adapter(here(), name);
  for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
    if ((adapter->*operation)(address) == 0) return 1;
  }
  return 0;
}

// ---- Hardware identity ------------------------------------------------------------------------

namespace {

enum class IdentitySource { NONE, UUID, ADAPTERS };

struct ReleaseRow {
  const char* release;
  std::int32_t service_pack;  ///< the least that the row is about
  IdentitySource source;
};

/// In the order of the releases. NT 4.0 names its adapters' hardware addresses from its fourth
/// service pack on.
constexpr ReleaseRow RELEASES[] = {
    {"95", 0, IdentitySource::UUID},         {"98", 0, IdentitySource::UUID},
    {"Me", 0, IdentitySource::ADAPTERS},     {"NT 4.0", 4, IdentitySource::ADAPTERS},
    {"NT 4.0", 0, IdentitySource::UUID},     {"NT 5.0", 0, IdentitySource::ADAPTERS},
    {"NT 5.1", 0, IdentitySource::ADAPTERS}, {"NT 5.2", 0, IdentitySource::ADAPTERS},
    {"NT 6.0", 0, IdentitySource::ADAPTERS}, {"NT 6.1", 0, IdentitySource::ADAPTERS},
};

/// The number in a text such as "Service Pack 6", whose blanks stand for any white space or none;
/// 0 in any other. Not by sscanf, which is a tenth of the Windows programs.
std::int32_t service_pack_of(const char* version) {
  for (const std::string_view word : {"Service", "Pack"}) {
    if (!std::string_view(version).starts_with(word)) return 0;
    version = skip_blanks(version + word.size());
  }
  return decimal_value(version);
}

IdentitySource identity_source(const OsIdentity& identity) {
  const std::int32_t service_pack = std::max(service_pack_of(identity.version), 0);
  for (const ReleaseRow& row : RELEASES) {
    if (equals_ignoring_case(identity.release, row.release) && service_pack >= row.service_pack) {
      return row.source;
    }
  }
  return IdentitySource::NONE;
}

/// Writes a UUID as text; false when the platform gives none.
bool write_uuid(UUID& uuid, char (&text)[128]) {
  RPC_CSTR own = nullptr;
  if (UuidToStringA(&uuid, &own) != RPC_S_OK || own == nullptr) return false;
  copy_cut(text, reinterpret_cast<const char*>(own));
  RpcStringFreeA(&own);
  return true;
}

}  // namespace

int make_uuid_hardware_address(const std::uint8_t*& address) {
  static std::uint8_t buffer[6];
  UUID uuid = {};
  if (UuidCreate(&uuid) == RPC_S_UUID_NO_ADDRESS)
    return report(BEGIN_ERROR, here(), "UuidCreate failed.");
  char text[128];
  if (!write_uuid(uuid, text)) return report(BEGIN_ERROR, here(), "UuidToString failed.");
  char* const dash = std::strrchr(text, '-');
  if (dash == nullptr) return report(BEGIN_ERROR, here(), "cannot find \"-\" in %s.", text);
  // A group that is too short reads as zeros.
  std::ranges::fill(buffer, std::uint8_t{0});
  std::int32_t length = 0;
  static_cast<void>(hex_to_bytes(dash + 1, length));
  std::memcpy(buffer, dash + 1,
              std::min<std::size_t>(static_cast<std::size_t>(length), sizeof buffer));
  address = buffer;
  return 0;
}

int System::get_system_hardware_addresses(const std::uint8_t* (&addresses)[MAX_ADAPTERS]) const {
  OsIdentity identity;
  uname(identity);
  const IdentitySource source = identity_source(identity);
  if (source == IdentitySource::NONE) {
    return report(WRITE_ERROR, here(),
                  "unsupported windows platform %s - must be 9x, Me, NT4, 2000, XP, 2003, Vista, 7",
                  identity.release);
  }
  if (source == IdentitySource::UUID) {
    if (make_uuid_hardware_address(addresses[0]) == 0) return 1;
    return report(ADD_WARN, here(), "cannot determine the hardware address for system.");
  }
  int count = 0;
  for (const auto& adapter : adapters()) {
    if (adapter != nullptr && !is_excluded(*adapter))
      addresses[count++] = adapter->hardware_address();
  }
  return count;
}

// ---- Report -----------------------------------------------------------------------------------

namespace {

void print_identity(const Adapter& adapter) {
  write_info("  Index       : %d ", static_cast<int>(adapter.index()));
  write_info("  Type        : %d ", static_cast<int>(adapter.type()));
  write_info("  Description : %s ", adapter.description());
  if (adapter.name()[0] != '\0') {
    write_info("  Name        : %s ", adapter.name());
    char address[ADDRESS_BUFFER_SIZE] = "";
    adapter.current_ip_address(address, sizeof address);
    write_info("  IP Address  : %s ", address);
  }
  const auto& mac = adapter.hardware_address();
  write_info("  Mac address : %02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
}

void print_addresses(const Adapter& adapter) {
  write_info("  Addresses (%d) :", static_cast<int>(adapter.address_count()));
  int blank = 0;
  for (std::int32_t j = 0; j < adapter.address_count(); ++j) {
    const AddressSlot* slot = adapter.address_slot(j);
    if (slot == nullptr) continue;
    if (slot->is_blank()) {
      ++blank;
    } else {
      write_info("    [%d] - %s,%s", static_cast<int>(j), slot->address_text(), slot->mask_text());
    }
  }
  if (adapter.mechanism() == MECHANISM_DHCP_CLIENT) {
    write_info("    Rest (%d) Zarvo Addresses.", blank);
    write_info("%s", "");
  }
}

void print_gateways(const Adapter& adapter) {
  write_info("  Gateways (%d) :", static_cast<int>(adapter.gateway_count()));
  if (adapter.gateway_count() == 0) write_info("    None");
  for (std::int32_t j = 0; j < adapter.gateway_count(); ++j) {
    write_info("    - %s", adapter.gateway(j));
  }
}

const char* mechanism_line(std::int32_t mechanism) {
  switch (mechanism) {
    case MECHANISM_DHCP_CLIENT: return "  IP management    : DHCPCSVC.DLL";
    case MECHANISM_IP_HELPER: return "  IP management    : IPHLPAPI.DLL";
    default: return "  IP management    : NONE";
  }
}

}  // namespace

void System::print_report() const {
  write_info("System details");
  OsIdentity identity;
  uname(identity);
  write_info("  Operating system : Windows %s %s", identity.release, identity.version);
  write_info("%s", mechanism_line(mechanism_));
  if (mechanism_ != MECHANISM_DHCP_CLIENT && mechanism_ != MECHANISM_IP_HELPER) return;

  char host_address[200];
  if (get_host_address(host_address) == 0) {
    write_info("  Host Address     : %s", host_address);
  } else {
    report(CLOSE_ERROR, here(), "failed to get host address");
  }
  write_info("  Num adapters     : %d", static_cast<int>(adapter_count_));
  for (std::int32_t i = 0; i < adapter_count_; ++i) {
    const Adapter* adapter = adapters_[i].get();
    if (adapter == nullptr) continue;
    write_info("%s", "");
    write_info("Adapter #%d details", static_cast<int>(i + 1));
    print_identity(*adapter);
    print_addresses(*adapter);
    print_gateways(*adapter);
  }
}

// ---- Host address -----------------------------------------------------------------------------

int System::get_host_address(char (&buffer)[200]) const {
  OsIdentity identity;
  uname(identity);
  const bool nt_family = std::strncmp(identity.release, "NT", 2) == 0;
  return nt_family ? get_host_address_from_bindings(buffer)
                   : get_host_address_from_nettrans(buffer);
}

int get_host_address_from_nettrans(char (&buffer)[200]) {
  char text[1024 + 1] = "";
  std::int32_t capacity = 1024;
  if (read_registry_value("System\\CurrentControlSet\\Services\\Class\\NetTrans\\0001", "IpAddress",
                          text, &capacity) != 0) {
    return report(ADD_WARN, here(), "Cannot determine IP address.");
  }
  copy_cut(buffer, text);
  return 0;
}

namespace {

/// Remote access bindings have no address of their own; of the bindings that begin with N only the
/// one spelled exactly so is looked up.
bool is_passed_over(const char* binding) {
  return binding[0] == 'N' && std::strncmp(binding, "NdisWanIP", 9) != 0;
}

int read_bound_address(const char* binding, char (&address)[256]) {
  const ParameterKeys keys(binding);
  std::uint32_t capacity = sizeof address;
  return read_first_multi_sz(keys.choices[0].text, "IpAddress", address, &capacity) == 0
             ? 0
             : read_first_multi_sz(keys.choices[1].text, "IpAddress", address, &capacity);
}

}  // namespace

int get_host_address_from_bindings(char (&buffer)[200]) {
  BindingList list;
  if (list.read() != 0) return report(ADD_WARN, here(), "Cannot determine Tcpip linkage.");
  bool found = false;
  for_each_binding(list, [&](const char* binding) {
    if (system_debug.is_enabled(__LINE__)) report(WRITE_DEBUG, here(), "adapter = \"%s\"", binding);
    if (is_passed_over(binding)) return true;
    char address[256];
    if (read_bound_address(binding, address) != 0) {
      report(CLOSE_WARN, here(), "Cannot determine IP address. ");
      return true;
    }
    if (address[0] == '0') return true;
    copy_cut(buffer, address);
    found = true;
    return false;
  });
  if (found) return 0;
  return report(BEGIN_ERROR, here(), "no adapter found");
}
