#include "platform/linux/linux_host.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/ip.h>
#include <malloc.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <memory>

#include "base/dotted.h"
#include "base/find.h"
#include "base/text.h"
#include "platform/host/adapter_keys.h"
#include "platform/host/exact_wait.h"
#include "platform/host/ipv4.h"

namespace {

/// As many bindings as the list's readers take, and have room for.
constexpr int MAX_BINDINGS = 32;
/// In bytes.
constexpr int KEPT_MEMORY = 32 << 20;
constexpr int KEPT_AT_ONCE = 1 << 20;

struct CodeOfError {
  int error;
  DWORD code;
};

constexpr CodeOfError CODES[] = {
    {0, NO_ERROR},
    {EPERM, ERROR_ACCESS_DENIED},
    {EACCES, ERROR_ACCESS_DENIED},
    {EAGAIN, ERROR_TIMEOUT},
    {EADDRINUSE, ERROR_OBJECT_ALREADY_EXISTS},
    {EADDRNOTAVAIL, ERROR_NOT_FOUND},
    {EAFNOSUPPORT, ERROR_NOT_SUPPORTED},
    {EBUSY, ERROR_BUSY},
    {EEXIST, ERROR_OBJECT_ALREADY_EXISTS},
    {EINTR, ERROR_RETRY},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENOBUFS, ERROR_NO_SYSTEM_RESOURCES},
    {ENODEV, ERROR_DEV_NOT_EXIST},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {EOPNOTSUPP, ERROR_NOT_SUPPORTED},
    {EPROTONOSUPPORT, ERROR_NOT_SUPPORTED},
    {ENOSPC, ERROR_OUTOFMEMORY},
    {ERANGE, ERROR_INVALID_PARAMETER},
};

DWORD code_of(int error) {
  const auto* const found = find_with(CODES, error, &CodeOfError::error);
  return found != nullptr ? found->code : ERROR_UNEXP_NET_ERR;
}

/// The name that the machine's own list has for the effective user, or its number. Not asked of the
/// system's name services: they do not survive memory that ends.
std::string effective_user() {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> list(std::fopen("/etc/passwd", "re"),
                                                             std::fclose);
  const uid_t user = geteuid();
  while (list != nullptr) {
    const passwd* const entry = fgetpwent(list.get());
    if (entry == nullptr) break;
    if (entry->pw_uid == user) return entry->pw_name;
  }
  return std::to_string(user);
}

HostVersion kernel_version() {
  utsname kernel = {};
  uname(&kernel);
  HostVersion version;
  unsigned major = 0;
  unsigned minor = 0;
  std::sscanf(kernel.release, "%u.%u", &major, &minor);
  version.major = major;
  version.minor = minor;
  version.service_pack = std::string("Linux ") + kernel.release;
  return version;
}

}  // namespace

LinuxHost::LinuxHost() : version_(kernel_version()) {
  // Tables of megabytes are made and released at each reading: what goes back to the system in
  // between must be had from it again, page by page.
  mallopt(M_MMAP_THRESHOLD, KEPT_MEMORY);
  mallopt(M_TRIM_THRESHOLD, KEPT_MEMORY);
  mallopt(M_TOP_PAD, KEPT_AT_ONCE);
}

const std::string& LinuxHost::user_name() {
  if (user_.empty()) user_ = effective_user();
  return user_;
}

bool LinuxHost::has_library(std::string_view library) const { return library != "dhcpcsvc"; }

// ---- Looking ----------------------------------------------------------------------------------

DWORD LinuxHost::read_adapters(HostTable<HostAdapter>& adapters) {
  std::vector<DefaultGateway> gateways = gateways_;
  int error = network_.follow();
  if (error == 0) error = follow_gateways(gateways);
  if (error != 0) return code_of(error);
  if (adapters_from_ != network_.link_generation() || gateways_ != gateways) {
    lay_out_adapters(std::move(gateways));
  }
  adapters = adapters_;
  return NO_ERROR;
}

/// Reads the gateways again when any route may have changed since. Those that go with a link, with
/// the last address of one, or with the address that they prefer as their source go without a
/// notification.
int LinuxHost::follow_gateways(std::vector<DefaultGateway>& gateways) {
  bool changed = gateways_depend_on_addresses_ ? gateways_from_ != network_.generation()
                                               : gateways_links_from_ != network_.link_generation();
  int error = ENOBUFS;
  if (route_notifications_.is_open()) {
    error = route_notifications_.receive_all(
        [&changed](const nlmsghdr& /*message*/) { changed = true; });
  }
  if (error != 0) {
    changed = true;
    error = route_notifications_.listen();
  }
  if (error != 0 || changed) gateways_from_ = gateways_links_from_ = {};
  if (error != 0 || !changed) return error;
  error = read_default_gateways(requests_, gateways, gateways_depend_on_addresses_);
  if (error == 0) {
    gateways_from_ = network_.generation();
    gateways_links_from_ = network_.link_generation();
  }
  return error;
}

void LinuxHost::lay_out_adapters(std::vector<DefaultGateway> gateways) {
  auto laid_out = std::make_shared<std::vector<HostAdapter>>();
  for (const auto& [index, link] : network_.links()) {
    HostAdapter& adapter = laid_out->emplace_back(link.adapter);
    for (const DefaultGateway& way : gateways) {
      if (way.interface_index == index) adapter.gateways.push_back(dotted(way.gateway));
    }
  }
  adapters_.rows = std::move(laid_out);
  adapters_.generation.advance();
  gateways_ = std::move(gateways);
  adapters_from_ = network_.link_generation();
}

DWORD LinuxHost::read_addresses(HostTable<HostAddress>& addresses) {
  if (const int error = network_.follow(); error != 0) return code_of(error);
  if (addresses_.generation != network_.generation()) lay_out_rows();
  addresses = addresses_;
  return NO_ERROR;
}

/// A row for each address, and before them one 0.0.0.0 for each interface that holds none.
void LinuxHost::lay_out_rows() {
  addresses_ = {};
  auto rows = std::make_shared<std::vector<HostAddress>>();
  rows->reserve(network_.addresses().size() + network_.links().size());
  for (const auto& [index, link] : network_.links()) {
    if (network_.address_count(index) == 0) rows->push_back({.interface_index = index});
  }
  for (const LinuxNetwork::Entry& entry : network_.addresses()) {
    // Addresses that differ in their peers alone stand in the order in which they came.
    auto at = rows->end();
    const auto precedes = [&entry](const HostAddress& row) {
      return row.address == entry.address && row.mask == entry.mask &&
             row.interface_index == entry.interface_index && row.context > entry.context;
    };
    while (at != rows->begin() && precedes(*std::prev(at))) --at;
    rows->insert(at, entry);
  }
  addresses_ = {std::move(rows), network_.generation()};
}

// ---- Changing ---------------------------------------------------------------------------------

RtOutcome LinuxHost::change_address(std::uint16_t type, unsigned flags,
                                    const LinuxNetwork::Entry& entry) {
  RtRequest request(type, flags);
  auto& part = request.part<ifaddrmsg>();
  part.ifa_family = AF_INET;
  part.ifa_prefixlen = static_cast<std::uint8_t>(std::popcount(entry.mask));
  part.ifa_index = entry.interface_index;
  request.put(IFA_LOCAL, entry.address);
  request.put(IFA_ADDRESS, entry.peer);
  return requests_.change(request);
}

DWORD LinuxHost::add_address(DWORD address, DWORD mask, DWORD interface_index, DWORD& context) {
  if (!is_host_address(address) || !is_mask(mask)) return ERROR_INVALID_PARAMETER;
  if (const int error = network_.follow(); error != 0) return code_of(error);
  if (network_.has_address(address)) return ERROR_OBJECT_ALREADY_EXISTS;
  // The entry stands first: once the kernel has added the address nothing may fail.
  const LinuxNetwork::Entry added = network_.add_unconfirmed({address, mask, interface_index});
  RtOutcome outcome = change_address(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, added);
  network_.expect_notification(requests_.last());
  if (!outcome.answered && network_.follow() == 0) {
    // The kernel's notification, or what it shows now, tells what became of it.
    const LinuxNetwork::Entry* const entry = network_.find_context(added.context);
    if (entry != nullptr && entry->confirmed) outcome.error = 0;
  }
  if (outcome.error == 0) {
    context = added.context;
    return NO_ERROR;
  }
  network_.remove_unconfirmed(added.context);
  // The kernel keeps addresses only for interfaces that IPv4 runs on.
  return has_ipv4(interface_index) ? code_of(outcome.error) : ERROR_NOT_SUPPORTED;
}

DWORD LinuxHost::delete_address(DWORD context) {
  if (const int error = network_.follow(); error != 0) return code_of(error);
  const LinuxNetwork::Entry* const found = network_.find_context(context);
  if (found == nullptr) return ERROR_NOT_FOUND;
  const LinuxNetwork::Entry entry = *found;
  // A primary address alone takes others with it. Somebody may have undone what was told before.
  const int error = entry.secondary ? 0 : promote_secondaries(entry.interface_index);
  if (error != 0) return code_of(error);
  const RtOutcome outcome = change_address(RTM_DELADDR, 0, entry);
  if (outcome.answered) return code_of(outcome.error);
  const bool is_gone = network_.follow() == 0 && network_.find_context(context) == nullptr;
  return is_gone ? NO_ERROR : code_of(outcome.error);
}

/// Tells the kernel to promote a secondary address when the primary of its subnet goes.
int LinuxHost::promote_secondaries(DWORD interface_index) {
  RtRequest request(RTM_SETLINK, NLM_F_ACK);
  request.part<ifinfomsg>().ifi_index = static_cast<int>(interface_index);
  nlattr* families = request.begin_nest(IFLA_AF_SPEC);
  nlattr* family = request.begin_nest(AF_INET);
  nlattr* settings = request.begin_nest(IFLA_INET_CONF);
  request.put(IPV4_DEVCONF_PROMOTE_SECONDARIES, 1);
  request.end_nest(settings);
  request.end_nest(family);
  request.end_nest(families);
  return requests_.ask(request, [](const nlmsghdr& /*message*/) { return true; });
}

bool LinuxHost::has_ipv4(DWORD interface_index) {
  RtRequest request(RTM_GETLINK, NLM_F_ACK);
  request.part<ifinfomsg>().ifi_index = static_cast<int>(interface_index);
  bool found = false;
  const int error = requests_.ask(request, [&](const nlmsghdr& message) {
    if (part_of<ifinfomsg>(message) == nullptr) return true;
    const auto attributes = attributes_of<IFLA_MAX, ifinfomsg>(message);
    found = attributes_in<AF_INET>(attributes[IFLA_AF_SPEC])[AF_INET] != nullptr;
    return true;
  });
  return error != 0 || found;
}

DWORD LinuxHost::set_admin_status(DWORD interface_index, DWORD status) {
  RtRequest request(RTM_SETLINK, NLM_F_ACK);
  auto& part = request.part<ifinfomsg>();
  part.ifi_index = static_cast<int>(interface_index);
  part.ifi_change = IFF_UP;
  part.ifi_flags = status == MIB_IF_ADMIN_STATUS_UP ? IFF_UP : 0;
  return code_of(requests_.ask(request, [](const nlmsghdr& /*message*/) { return true; }));
}

// ---- Registry ---------------------------------------------------------------------------------

/// Makes the registry anew when interfaces, or whether they hold addresses, changed since. The
/// lists of an interface are set when they are asked for.
DWORD LinuxHost::lay_out_registry() {
  if (const int error = network_.follow(); error != 0) return code_of(error);
  if (registry_from_ == network_.link_generation()) return NO_ERROR;
  Registry registry;
  BindingValue bindings;
  int bound = 0;
  for (const auto& [index, link] : network_.links()) {
    const HostAdapter& adapter = link.adapter;
    registry.key(interface_key(adapter.name));
    set_connection(registry, adapter.name, adapter.name);
    const bool is_bound =
        adapter.row.dwType != MIB_IF_TYPE_LOOPBACK && network_.address_count(index) != 0;
    if (is_bound && ++bound <= MAX_BINDINGS) bindings.add(adapter.name);
  }
  bindings.set_in(registry);
  registry_ = std::move(registry);
  lists_interface_ = 0;
  registry_from_ = network_.link_generation();
  return NO_ERROR;
}

/// Sets the lists of an interface's addresses in the order in which they came to stand.
void LinuxHost::set_address_lists(const HostAdapter& adapter) {
  const DWORD index = adapter.row.dwIndex;
  const std::size_t count = network_.address_count(index);
  std::vector<HostAddress> held;
  held.reserve(std::max<std::size_t>(count, 1));
  for (auto it = network_.addresses().begin(); held.size() < count; ++it) {
    if (it->interface_index == index) held.push_back(*it);
  }
  if (!std::ranges::is_sorted(held, {}, &HostAddress::context)) {
    std::ranges::sort(held, {}, &HostAddress::context);
  }
  // An interface without an address has one 0.0.0.0.
  if (held.empty()) held.emplace_back();
  StringListValue addresses;
  StringListValue masks;
  addresses.reserve(DOTTED_SIZE * held.size());
  masks.reserve(DOTTED_SIZE * held.size());
  for (const HostAddress& address : held) {
    char text[DOTTED_SIZE];
    write_dotted(text, address.address);
    addresses.add(text);
    write_dotted(text, address.mask);
    masks.add(text);
  }
  ::set_address_lists(registry_.key(interface_key(adapter.name)), addresses.take(), masks.take());
}

/// Brings up to date what the registry shows of an adapter's addresses, as the network was followed
/// last, or of its gateways.
DWORD LinuxHost::update_lists(std::string_view adapter, std::string_view value) {
  const auto is_adapter = [=](const HostAdapter& it) {
    return equals_ignoring_case(it.name, adapter);
  };
  if (equals_ignoring_case(value, "DefaultGateway")) {
    HostTable<HostAdapter> adapters;
    if (const DWORD code = read_adapters(adapters); code != NO_ERROR) return code;
    if (const auto* found = find_where(*adapters.rows, is_adapter)) {
      set_gateways(registry_.key(interface_key(found->name)), found->gateways);
    }
    return NO_ERROR;
  }
  const auto* const found = find_where(
      network_.links(), [&](const auto& link) { return is_adapter(link.second.adapter); });
  if (found == nullptr) return NO_ERROR;
  const auto& [index, link] = *found;
  const Generation generation = network_.generation_of(index);
  if (lists_interface_ == index && lists_from_ == generation) return NO_ERROR;
  if (const auto before = network_.links().find(lists_interface_);
      before != network_.links().end()) {
    clear_address_lists(registry_.key(interface_key(before->second.adapter.name)));
  }
  set_address_lists(link.adapter);
  lists_interface_ = index;
  lists_from_ = generation;
  return NO_ERROR;
}

DWORD LinuxHost::find_key(std::string_view path) {
  const DWORD code = lay_out_registry();
  return code != NO_ERROR ? code : registry_.find_key(path);
}

DWORD LinuxHost::find_value(std::string_view path, std::string_view name,
                            const RegistryValue*& value) {
  DWORD code = lay_out_registry();
  const std::string_view adapter = adapter_of_interface_key(path);
  if (code == NO_ERROR && !adapter.empty()) code = update_lists(adapter, name);
  return code != NO_ERROR ? code : registry_.find_value(path, name, value);
}

void LinuxHost::sleep(DWORD milliseconds) { wait_exactly(milliseconds); }
