#include "platform/hosts/linux_host.h"

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

#include "platform/hosts/adapter_keys.h"
#include "platform/hosts/exact_wait.h"
#include "platform/hosts/ipv4.h"

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
  const auto* found = std::find_if(std::begin(CODES), std::end(CODES),
                                   [=](const CodeOfError& row) { return row.error == error; });
  return found != std::end(CODES) ? found->code : ERROR_UNEXP_NET_ERR;
}

/// The name that goes with the effective user, or its number where none does.
std::string effective_user() {
  const passwd* entry = getpwuid(geteuid());
  return entry != nullptr ? entry->pw_name : std::to_string(geteuid());
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

bool LinuxHost::has_function(std::string_view /*library*/, std::string_view /*function*/) const {
  return true;
}

// ---- Looking ----------------------------------------------------------------------------------

DWORD LinuxHost::read_adapters(HostTable<HostAdapter>& adapters) {
  std::vector<DefaultGateway> gateways = gateways_;
  int error = network_.follow();
  if (error == 0) error = follow_gateways(gateways);
  if (error != 0) return code_of(error);
  if (adapters_at_ != network_.link_changes() || gateways_ != gateways) {
    lay_out_adapters(std::move(gateways));
  }
  adapters = {adapters_, adapters_version_};
  return NO_ERROR;
}

/// Reads the gateways again when any route may have changed since. Those that go with an address or
/// a link go without a word.
int LinuxHost::follow_gateways(std::vector<DefaultGateway>& gateways) {
  bool changed = gateways_at_ != network_.changes();
  int error = ENOBUFS;
  if (route_news_.is_open()) {
    error = route_news_.take([&changed](const nlmsghdr& /*message*/) { changed = true; });
  }
  if (error == ENOBUFS) {
    changed = true;
    error = route_news_.listen();
  }
  if (error != 0 || changed) gateways_at_ = 0;
  if (error != 0 || !changed) return error;
  error = read_default_gateways(requests_, gateways);
  if (error == 0) gateways_at_ = network_.changes();
  return error;
}

void LinuxHost::lay_out_adapters(std::vector<DefaultGateway> gateways) {
  std::vector<HostAdapter> laid_out;
  for (const auto& [index, link] : network_.links()) {
    HostAdapter& adapter = laid_out.emplace_back(link.adapter);
    for (const DefaultGateway& way : gateways) {
      if (way.interface_index == index) adapter.gateways.push_back(dotted(way.gateway));
    }
  }
  adapters_ = std::move(laid_out);
  gateways_ = std::move(gateways);
  adapters_at_ = network_.link_changes();
  ++adapters_version_;
}

DWORD LinuxHost::read_addresses(HostTable<HostAddress>& addresses) {
  if (const int error = network_.follow(); error != 0) return code_of(error);
  if (rows_at_ != network_.changes()) lay_out_rows();
  addresses = {rows_, rows_at_};
  return NO_ERROR;
}

void LinuxHost::lay_out_rows() {
  std::vector<HostAddress> rows;
  rows.reserve(network_.addresses().size() + network_.links().size());
  for (const auto& [index, link] : network_.links()) {
    if (!network_.is_addressed(index)) rows.push_back({.interface_index = index});
  }
  for (const auto& [number, standing] : network_.addresses()) {
    const auto& place = standing.place;
    rows.push_back(
        {place.address, prefix_mask(place.prefix_length), place.interface_index, standing.context});
  }
  const auto rank = [](const HostAddress& row) {
    return std::tuple(ntohl(row.address), row.interface_index, ntohl(row.mask), row.context);
  };
  std::sort(rows.begin(), rows.end(), [=](const HostAddress& a, const HostAddress& b) {
    return a.address != b.address ? ntohl(a.address) < ntohl(b.address) : rank(a) < rank(b);
  });
  rows_ = std::move(rows);
  rows_at_ = network_.changes();
}

// ---- Changing ---------------------------------------------------------------------------------

int LinuxHost::request_address(std::uint16_t type, const Place& place, unsigned flags) {
  RtRequest request(type, flags);
  auto& part = request.part<ifaddrmsg>();
  part.ifa_family = AF_INET;
  part.ifa_prefixlen = static_cast<std::uint8_t>(place.prefix_length);
  part.ifa_index = place.interface_index;
  request.put(IFA_LOCAL, place.address);
  request.put(IFA_ADDRESS, place.peer);
  return requests_.request(request);
}

DWORD LinuxHost::add_address(DWORD address, DWORD mask, DWORD interface_index, DWORD& context) {
  if (!is_host_address(address) || !is_mask(mask)) return ERROR_INVALID_PARAMETER;
  if (const int error = network_.follow(); error != 0) return code_of(error);
  if (network_.has_address(address)) return ERROR_OBJECT_ALREADY_EXISTS;
  const auto prefix_length = static_cast<DWORD>(std::popcount(mask));
  const Place place = {address, interface_index, prefix_length, address};
  // Entered first: once the kernel has added the address nothing may fail.
  const DWORD entered = network_.enter(place);
  const int error = request_address(RTM_NEWADDR, place, NLM_F_CREATE | NLM_F_EXCL);
  if (error == 0) {
    context = entered;
    return NO_ERROR;
  }
  network_.forget(entered);
  // The kernel keeps addresses only for interfaces that IPv4 runs on.
  return has_ipv4(interface_index) ? code_of(error) : ERROR_NOT_SUPPORTED;
}

DWORD LinuxHost::delete_address(DWORD context) {
  if (const int error = network_.follow(); error != 0) return code_of(error);
  const LinuxNetwork::Standing* standing = network_.find_context(context);
  if (standing == nullptr) return ERROR_NOT_FOUND;
  const Place place = standing->place;
  // A primary address alone takes others with it. Somebody may have undone what was told before.
  int error = standing->secondary ? 0 : promote_secondaries(place.interface_index);
  if (error == 0) error = request_address(RTM_DELADDR, place);
  return code_of(error);
}

/// Tells the kernel to promote a secondary address when the primary of its subnet goes.
int LinuxHost::promote_secondaries(DWORD interface_index) {
  RtRequest request(RTM_SETLINK);
  request.part<ifinfomsg>().ifi_index = static_cast<int>(interface_index);
  nlattr* families = request.begin_nest(IFLA_AF_SPEC);
  nlattr* family = request.begin_nest(AF_INET);
  nlattr* settings = request.begin_nest(IFLA_INET_CONF);
  request.put(IPV4_DEVCONF_PROMOTE_SECONDARIES, 1);
  request.end_nest(settings);
  request.end_nest(family);
  request.end_nest(families);
  return requests_.request(request);
}

bool LinuxHost::has_ipv4(DWORD interface_index) {
  RtRequest request(RTM_GETLINK, NLM_F_ACK);
  request.part<ifinfomsg>().ifi_index = static_cast<int>(interface_index);
  bool found = false;
  const int error = requests_.exchange(request, [&](const nlmsghdr& message) {
    const auto attributes = attributes_of<IFLA_MAX, ifinfomsg>(message);
    found = attributes_in<AF_INET>(attributes[IFLA_AF_SPEC])[AF_INET] != nullptr;
    return true;
  });
  return error != 0 || found;
}

DWORD LinuxHost::set_admin_status(DWORD interface_index, DWORD status) {
  RtRequest request(RTM_SETLINK);
  auto& part = request.part<ifinfomsg>();
  part.ifi_index = static_cast<int>(interface_index);
  part.ifi_change = IFF_UP;
  part.ifi_flags = status == MIB_IF_ADMIN_STATUS_UP ? IFF_UP : 0;
  return code_of(requests_.request(request));
}

// ---- Registry ---------------------------------------------------------------------------------

/// Makes the registry anew when interfaces, or whether they hold addresses, changed since. The
/// lists of an interface are entered when they are asked for.
DWORD LinuxHost::lay_out_registry() {
  if (const int error = network_.follow(); error != 0) return code_of(error);
  if (registry_at_ == network_.link_changes()) return NO_ERROR;
  Registry registry;
  BindingList bindings;
  int bound = 0;
  for (const auto& [index, link] : network_.links()) {
    const HostAdapter& adapter = link.adapter;
    registry.key(interface_key(adapter.name));
    enter_connection(registry, adapter.name, adapter.name);
    const bool is_bound =
        adapter.row.dwType != MIB_IF_TYPE_LOOPBACK && network_.is_addressed(index);
    if (is_bound && ++bound <= MAX_BINDINGS) bindings.add(adapter.name);
  }
  bindings.enter(registry);
  registry_ = std::move(registry);
  lists_at_.clear();
  registry_at_ = network_.link_changes();
  return NO_ERROR;
}

/// Enters the addresses of an interface in the order in which they came to stand.
void LinuxHost::enter_addresses(const HostAdapter& adapter) {
  std::vector<HostAddress> held;
  std::copy_if(rows_.begin(), rows_.end(), std::back_inserter(held),
               [&](const HostAddress& row) { return row.interface_index == adapter.row.dwIndex; });
  std::sort(held.begin(), held.end(),
            [](const HostAddress& a, const HostAddress& b) { return a.context < b.context; });
  StringListValue addresses;
  StringListValue masks;
  for (const HostAddress& row : held) {
    char text[16];
    write_dotted(text, row.address);
    addresses.add(text);
    write_dotted(text, row.mask);
    masks.add(text);
  }
  enter_address_lists(registry_.key(interface_key(adapter.name)), addresses.take(), masks.take());
}

/// Brings up to date what the registry shows of an adapter's addresses, as the network was followed
/// last, or of its gateways.
DWORD LinuxHost::renew_lists(std::string_view adapter, std::string_view value) {
  const EqualIgnoringCase equal;
  const auto is_adapter = [=](const HostAdapter& it) { return equal(it.name, adapter); };
  if (equal(value, "DefaultGateway")) {
    HostTable<HostAdapter> adapters;
    if (const DWORD code = read_adapters(adapters); code != NO_ERROR) return code;
    const auto found = std::find_if(adapters.rows.begin(), adapters.rows.end(), is_adapter);
    if (found != adapters.rows.end()) {
      enter_gateways(registry_.key(interface_key(found->name)), found->gateways);
    }
    return NO_ERROR;
  }
  for (const auto& [index, link] : network_.links()) {
    if (!is_adapter(link.adapter) || lists_at_[index] >= network_.changes_of(index)) continue;
    if (rows_at_ != network_.changes()) lay_out_rows();
    enter_addresses(link.adapter);
    lists_at_[index] = network_.changes();
    break;
  }
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
  if (code == NO_ERROR && !adapter.empty()) code = renew_lists(adapter, name);
  return code != NO_ERROR ? code : registry_.find_value(path, name, value);
}

DWORD LinuxHost::create_key(std::string_view path) {
  return find_key(path) == NO_ERROR ? NO_ERROR : ERROR_ACCESS_DENIED;
}

DWORD LinuxHost::set_value(std::string_view /*path*/, std::string_view /*name*/,
                           RegistryValue /*value*/) {
  return ERROR_ACCESS_DENIED;
}

DWORD LinuxHost::change_listed_address(std::string_view /*adapter*/, DWORD /*position*/,
                                       DWORD /*address*/, DWORD /*mask*/) {
  return ERROR_CALL_NOT_IMPLEMENTED;
}

// ---- The rest ---------------------------------------------------------------------------------

void LinuxHost::sleep(DWORD milliseconds) { wait_exactly(milliseconds); }

std::optional<ScriptedFault> LinuxHost::next_fault(std::string_view /*function*/) {
  return std::nullopt;
}
