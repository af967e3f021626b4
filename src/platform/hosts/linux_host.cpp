#include "platform/hosts/linux_host.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/ip.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "platform/hosts/adapter_keys.h"
#include "platform/hosts/exact_wait.h"
#include "platform/hosts/ipv4.h"

namespace {

/// How often a reading is begun again that changes of the host spoil.
constexpr int MAX_READINGS = 10;

/// What the registry lists for an interface without an address.
constexpr char NO_ADDRESS[] = "0.0.0.0";
constexpr DWORD STATUS_UP = 1;
constexpr DWORD STATUS_DOWN = 2;
constexpr DWORD TYPE_OTHER = 1;
constexpr DWORD TYPE_POINT_TO_POINT = 23;
constexpr DWORD TYPE_WIRELESS = 71;
constexpr DWORD TYPE_TUNNEL = 131;

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
    {ERANGE, ERROR_INVALID_PARAMETER},
};

DWORD code_of(int error) {
  const auto* found = std::find_if(std::begin(CODES), std::end(CODES),
                                   [=](const CodeOfError& row) { return row.error == error; });
  return found != std::end(CODES) ? found->code : ERROR_UNEXP_NET_ERR;
}

struct TypeOfHardware {
  unsigned hardware;
  DWORD type;
};

constexpr TypeOfHardware TYPES[] = {
    {ARPHRD_ETHER, MIB_IF_TYPE_ETHERNET},
    {ARPHRD_LOOPBACK, MIB_IF_TYPE_LOOPBACK},
    {ARPHRD_PPP, TYPE_POINT_TO_POINT},
    {ARPHRD_TUNNEL, TYPE_TUNNEL},
    {ARPHRD_TUNNEL6, TYPE_TUNNEL},
    {ARPHRD_SIT, TYPE_TUNNEL},
    {ARPHRD_IPGRE, TYPE_TUNNEL},
    {ARPHRD_IP6GRE, TYPE_TUNNEL},
    {ARPHRD_IEEE80211, TYPE_WIRELESS},
    {ARPHRD_IEEE80211_PRISM, TYPE_WIRELESS},
    {ARPHRD_IEEE80211_RADIOTAP, TYPE_WIRELESS},
};

/// A wireless interface is an Ethernet to the kernel's tables; only its driver's folder tells,
/// which may be of an interface that has the name in another network namespace.
bool is_wireless(const std::string& name, int index) {
  const std::string folder = "/sys/class/net/" + name;
  if (access((folder + "/phy80211").c_str(), F_OK) != 0 &&
      access((folder + "/wireless").c_str(), F_OK) != 0) {
    return false;
  }
  std::FILE* file = std::fopen((folder + "/ifindex").c_str(), "r");
  if (file == nullptr) return false;
  int its_index = 0;
  const bool read = std::fscanf(file, "%d", &its_index) == 1;
  std::fclose(file);
  return read && its_index == index;
}

DWORD interface_type(const ifinfomsg& link, const std::string& name) {
  const auto* found = std::find_if(std::begin(TYPES), std::end(TYPES),
                                   [&](const auto& row) { return row.hardware == link.ifi_type; });
  if (found == std::end(TYPES)) {
    return (link.ifi_flags & IFF_POINTOPOINT) != 0 ? TYPE_POINT_TO_POINT : TYPE_OTHER;
  }
  if (found->type == MIB_IF_TYPE_ETHERNET && is_wireless(name, link.ifi_index)) {
    return TYPE_WIRELESS;
  }
  return found->type;
}

HostAdapter adapter_of(const nlmsghdr& message) {
  const auto& link = *static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&message));
  const auto attributes = attributes_of<IFLA_MAX + 1, ifinfomsg>(message);
  HostAdapter adapter = {};
  if (const nlattr* name = attributes[IFLA_IFNAME]) adapter.name = mnl_attr_get_str(name);
  MIB_IFROW& row = adapter.row;
  row.dwIndex = static_cast<DWORD>(link.ifi_index);
  row.dwType = interface_type(link, adapter.name);
  row.dwMtu = number_in(attributes[IFLA_MTU]);
  row.dwAdminStatus = (link.ifi_flags & IFF_UP) != 0 ? STATUS_UP : STATUS_DOWN;
  row.dwOperStatus = (link.ifi_flags & IFF_RUNNING) != 0 ? STATUS_UP : STATUS_DOWN;
  if (const nlattr* hardware = attributes[IFLA_ADDRESS]) {
    // Of a longer address the end: that is where interfaces differ.
    const std::size_t length = mnl_attr_get_payload_len(hardware);
    const std::size_t kept = std::min(length, sizeof row.bPhysAddr);
    const auto* bytes = static_cast<const BYTE*>(mnl_attr_get_payload(hardware));
    std::copy_n(bytes + (length - kept), kept, row.bPhysAddr);
    row.dwPhysAddrLen = static_cast<DWORD>(kept);
  }
  const std::size_t length = std::min(adapter.name.size(), sizeof row.bDescr);
  row.dwDescrLen = static_cast<DWORD>(length);
  std::memcpy(row.bDescr, adapter.name.data(), length);
  return adapter;
}

DWORD mask_of(DWORD prefix_length) {
  return prefix_length == 0 ? 0 : htonl(~std::uint32_t{0} << (32 - prefix_length));
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

LinuxHost::LinuxHost() : version_(kernel_version()) {}

const std::string& LinuxHost::user_name() {
  if (user_.empty()) user_ = effective_user();
  return user_;
}

bool LinuxHost::has_library(std::string_view library) const { return library != "dhcpcsvc"; }

bool LinuxHost::has_function(std::string_view /*library*/, std::string_view /*function*/) const {
  return true;
}

/// Visits all that a request shows. Before each reading, also one begun again because the host
/// changed meanwhile, `begin` is called.
template <typename Begin, typename Visit>
int LinuxHost::dump(RtRequest& request, Begin begin, Visit visit) {
  int error = EINTR;
  for (int i = 0; error == EINTR && i < MAX_READINGS; ++i) {
    begin();
    error = requests_.exchange(request, visit);
  }
  return error;
}

// ---- Addresses --------------------------------------------------------------------------------

/// Brings the addresses up to date by what became of them since the last time; the first time, and
/// when news were lost, by reading them all.
DWORD LinuxHost::follow_addresses() {
  const auto visit = [this](const nlmsghdr& message) { take_news(message); };
  // Should what follows not end well, the next time begins anew.
  const bool followed = std::exchange(follows_, false);
  int error = followed ? news_.take(visit) : ENOBUFS;
  for (int i = 0; (error == ENOBUFS || error == EINTR) && i < MAX_READINGS; ++i) {
    error = read_all_addresses();
  }
  follows_ = error == 0;
  return code_of(error);
}

/// Reads all addresses once, and the news since it began. EINTR: the reading may lack an address.
int LinuxHost::read_all_addresses() {
  // News are heard before the reading begins, so that no change falls between the two.
  if (const int error = news_.listen(); error != 0) return error;
  adapters_are_stale_ = true;
  ++sweep_;
  RtRequest request(RTM_GETADDR, NLM_F_DUMP);
  request.part<ifaddrmsg>().ifa_family = AF_INET;
  const int reading =
      requests_.exchange(request, [this](const nlmsghdr& message) { take_address(message); });
  if (reading != 0) return reading;
  bool any_went = false;
  const int hearing = news_.take([&](const nlmsghdr& message) {
    any_went = any_went || message.nlmsg_type == RTM_DELADDR;
    take_news(message);
  });
  if (hearing != 0) return hearing;
  // The kernel goes on by position from one part of its list to the next, so that an address that
  // goes hides another; it does not always own up to that.
  if (any_went) return EINTR;
  for (auto it = addresses_.begin(); it != addresses_.end();) {
    it = it->second.sweep == sweep_ ? std::next(it) : erase_address(it);
  }
  return 0;
}

void LinuxHost::take_news(const nlmsghdr& message) {
  switch (message.nlmsg_type) {
    case RTM_NEWADDR:
    case RTM_DELADDR: take_address(message); break;
    case RTM_NEWLINK:
    case RTM_DELLINK: adapters_are_stale_ = true; break;
    default: break;
  }
}

void LinuxHost::take_address(const nlmsghdr& message) {
  const auto& part = *static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&message));
  const auto attributes = attributes_of<IFA_MAX + 1, ifaddrmsg>(message);
  const DWORD peer = number_in(attributes[IFA_ADDRESS]);
  const DWORD local = number_in(attributes[IFA_LOCAL], peer);
  const Place place = {ntohl(local), part.ifa_index, part.ifa_prefixlen, peer};
  if (message.nlmsg_type == RTM_DELADDR) {
    const auto found = addresses_.find(place);
    if (found != addresses_.end()) erase_address(found);
    return;
  }
  Created created;
  const nlattr* times = attributes[IFA_CACHEINFO];
  if (times != nullptr && mnl_attr_get_payload_len(times) >= sizeof(ifa_cacheinfo)) {
    created = static_cast<const ifa_cacheinfo*>(mnl_attr_get_payload(times))->cstamp;
  }
  const std::uint32_t flags = number_in(attributes[IFA_FLAGS], part.ifa_flags);
  enter_address(place, created)->second.secondary = (flags & IFA_F_SECONDARY) != 0;
}

LinuxHost::Addresses::iterator LinuxHost::enter_address(const Place& place, Created created) {
  auto found = addresses_.lower_bound(place);
  if (found != addresses_.end() && found->first == place) {
    Standing& standing = found->second;
    if (!standing.created || standing.created == created) {
      standing.created = created;
      standing.sweep = sweep_;
      return found;
    }
    found = erase_address(found);
  }
  const DWORD context = next_context_++;
  const auto entered =
      addresses_.emplace_hint(found, place, Standing{context, sweep_, created, false});
  try {
    by_context_.emplace_hint(by_context_.end(), context, place);
  } catch (const std::bad_alloc&) {
    addresses_.erase(entered);
    throw;
  }
  snapshot_is_stale_ = true;
  registry_is_stale_ = true;
  return entered;
}

LinuxHost::Addresses::iterator LinuxHost::erase_address(Addresses::iterator address) {
  by_context_.erase(address->second.context);
  snapshot_is_stale_ = true;
  registry_is_stale_ = true;
  return addresses_.erase(address);
}

bool LinuxHost::has_address(std::uint32_t address) const {
  const auto found = addresses_.lower_bound({address, 0, 0, 0});
  return found != addresses_.end() && found->first.address == address;
}

DWORD LinuxHost::read_addresses(Reading reading, std::span<const HostAddress>& addresses) {
  if (reading == Reading::FRESH) {
    if (const DWORD code = follow_addresses(); code != NO_ERROR) return code;
  }
  if (reading == Reading::FRESH && snapshot_is_stale_) {
    snapshot_.clear();
    snapshot_.reserve(addresses_.size());
    for (const auto& [place, standing] : addresses_) {
      HostAddress& row = snapshot_.emplace_back();
      row.address = htonl(place.address);
      row.mask = mask_of(place.prefix_length);
      row.interface_index = place.interface_index;
      row.context = standing.context;
      write_dotted(row.address_text, row.address);
      write_dotted(row.mask_text, row.mask);
    }
    snapshot_is_stale_ = false;
  }
  addresses = snapshot_;
  return NO_ERROR;
}

int LinuxHost::request_address(std::uint16_t type, unsigned flags, const Place& place) {
  RtRequest request(type, flags);
  auto& part = request.part<ifaddrmsg>();
  part.ifa_family = AF_INET;
  part.ifa_prefixlen = static_cast<std::uint8_t>(place.prefix_length);
  part.ifa_index = place.interface_index;
  request.put(IFA_LOCAL, htonl(place.address));
  request.put(IFA_ADDRESS, place.peer);
  const int error = requests_.request(request);
  if (error == 0) route_news_.close();
  return error;
}

DWORD LinuxHost::add_address(DWORD address, DWORD mask, DWORD interface_index, DWORD& context) {
  if (!is_host_address(address) || !is_mask(mask)) return ERROR_INVALID_PARAMETER;
  if (const DWORD code = follow_addresses(); code != NO_ERROR) return code;
  if (has_address(ntohl(address))) return ERROR_OBJECT_ALREADY_EXISTS;
  const auto prefix_length = static_cast<DWORD>(std::popcount(mask));
  const Place place = {ntohl(address), interface_index, prefix_length, address};
  // Entered first: once the kernel has added the address nothing may fail.
  const auto entered = enter_address(place, std::nullopt);
  const int error = request_address(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, place);
  if (error == 0) {
    context = entered->second.context;
    return NO_ERROR;
  }
  erase_address(entered);
  // The kernel keeps addresses only for interfaces that IPv4 runs on.
  if (error == ENOBUFS && !has_ipv4(interface_index)) return ERROR_NOT_SUPPORTED;
  return code_of(error);
}

DWORD LinuxHost::delete_address(DWORD context) {
  if (const DWORD code = follow_addresses(); code != NO_ERROR) return code;
  const auto place = by_context_.find(context);
  if (place == by_context_.end()) return ERROR_NOT_FOUND;
  const auto found = addresses_.find(place->second);
  const auto& [its_place, standing] = *found;
  int error = keep_secondaries(its_place.interface_index, standing.secondary);
  if (error == 0) error = request_address(RTM_DELADDR, 0, its_place);
  if (error == 0 || error == EADDRNOTAVAIL) erase_address(found);
  return code_of(error);
}

/// Sees to it, before an address goes, that the kernel keeps the interface's others: before the
/// first one, and before each primary one, which alone takes others, since somebody may have undone
/// it.
int LinuxHost::keep_secondaries(DWORD interface_index, bool secondary) {
  const bool first = !kept_.contains(interface_index);
  if (!first && secondary) return 0;
  const int error = promote_secondaries(interface_index);
  if (error == 0) kept_.insert(interface_index);
  return error;
}

/// Tells the kernel to promote a secondary address when the primary of its subnet goes.
int LinuxHost::promote_secondaries(DWORD interface_index) {
  RtRequest request(RTM_SETLINK, 0);
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

// ---- Adapters ---------------------------------------------------------------------------------

/// Brings the adapters up to date, after the news that the addresses are followed by.
DWORD LinuxHost::follow_adapters() {
  if (const DWORD code = follow_addresses(); code != NO_ERROR) return code;
  const auto visit = [this](const nlmsghdr& /*message*/) { adapters_are_stale_ = true; };
  if (!route_news_.is_open() || route_news_.take(visit) != 0) {
    adapters_are_stale_ = true;
    if (const int error = route_news_.listen(); error != 0) return code_of(error);
  }
  if (!adapters_are_stale_) return NO_ERROR;
  const int error = read_all_adapters();
  adapters_are_stale_ = error != 0;
  registry_is_stale_ = true;
  return code_of(error);
}

int LinuxHost::read_all_adapters() {
  RtRequest links(RTM_GETLINK, NLM_F_DUMP);
  links.part<ifinfomsg>().ifi_family = AF_UNSPEC;
  links.put(IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  const int error = dump(
      links, [this] { adapters_.clear(); },
      [this](const nlmsghdr& message) { adapters_.push_back(adapter_of(message)); });
  if (error != 0) return error;

  RtRequest routes(RTM_GETROUTE, NLM_F_DUMP);
  auto& part = routes.part<rtmsg>();
  part.rtm_family = AF_INET;
  part.rtm_table = RT_TABLE_MAIN;
  const auto forget = [this] {
    for (HostAdapter& adapter : adapters_) adapter.gateways.clear();
  };
  const auto visit = [this](const nlmsghdr& message) { take_route(message); };
  const int routing = dump(routes, forget, visit);
  // Where nothing was ever routed there is no table yet.
  return routing != ENOENT ? routing : 0;
}

/// Notes the gateways of a default route.
void LinuxHost::take_route(const nlmsghdr& message) {
  const auto& route = *static_cast<const rtmsg*>(mnl_nlmsg_get_payload(&message));
  if (route.rtm_dst_len != 0 || route.rtm_table != RT_TABLE_MAIN) return;
  const auto attributes = attributes_of<RTA_MAX + 1, rtmsg>(message);
  take_hop(number_in(attributes[RTA_OIF]), route.rtm_flags, attributes[RTA_GATEWAY]);
  const nlattr* paths = attributes[RTA_MULTIPATH];
  if (paths == nullptr) return;
  std::size_t left = mnl_attr_get_payload_len(paths);
  const auto* at = static_cast<const char*>(mnl_attr_get_payload(paths));
  while (left >= sizeof(rtnexthop)) {
    const auto& hop = *reinterpret_cast<const rtnexthop*>(at);
    if (hop.rtnh_len < sizeof hop || hop.rtnh_len > left) return;
    const auto of_hop = attributes_in<RTA_MAX + 1>(at + sizeof hop, hop.rtnh_len - sizeof hop);
    take_hop(static_cast<DWORD>(hop.rtnh_ifindex), hop.rtnh_flags, of_hop[RTA_GATEWAY]);
    const std::size_t step = std::min<std::size_t>(MNL_ALIGN(hop.rtnh_len), left);
    at += step;
    left -= step;
  }
}

void LinuxHost::take_hop(DWORD interface_index, unsigned flags, const nlattr* gateway) {
  if (gateway == nullptr || (flags & RTNH_F_DEAD) != 0) return;
  const auto adapter = std::find_if(adapters_.begin(), adapters_.end(), [=](const HostAdapter& it) {
    return it.row.dwIndex == interface_index;
  });
  if (adapter == adapters_.end()) return;
  std::vector<std::string>& listed = adapter->gateways;
  std::string text = dotted(number_in(gateway));
  // Routes of several metrics may go by the same gateway.
  if (std::find(listed.begin(), listed.end(), text) == listed.end()) {
    listed.push_back(std::move(text));
  }
}

bool LinuxHost::has_ipv4(DWORD interface_index) {
  RtRequest request(RTM_GETLINK, NLM_F_ACK);
  request.part<ifinfomsg>().ifi_index = static_cast<int>(interface_index);
  bool found = false;
  const int error = requests_.exchange(request, [&](const nlmsghdr& message) {
    const auto attributes = attributes_of<IFLA_MAX + 1, ifinfomsg>(message);
    found = attributes_in<AF_INET + 1>(attributes[IFLA_AF_SPEC])[AF_INET] != nullptr;
  });
  return error != 0 || found;
}

DWORD LinuxHost::read_adapters(Reading reading, std::span<const HostAdapter>& adapters) {
  const DWORD code = reading == Reading::FRESH ? follow_adapters() : NO_ERROR;
  if (code == NO_ERROR) adapters = adapters_;
  return code;
}

DWORD LinuxHost::set_admin_status(DWORD interface_index, DWORD status) {
  RtRequest request(RTM_SETLINK, 0);
  auto& part = request.part<ifinfomsg>();
  part.ifi_index = static_cast<int>(interface_index);
  part.ifi_change = IFF_UP;
  part.ifi_flags = status == STATUS_UP ? IFF_UP : 0;
  return code_of(requests_.request(request));
}

// ---- Registry ---------------------------------------------------------------------------------

/// Makes the registry anew when adapters or addresses changed since.
DWORD LinuxHost::lay_out_registry() {
  const DWORD code = follow_adapters();
  if (code == NO_ERROR && registry_is_stale_) {
    registry_ = registry_of_facts();
    registry_is_stale_ = false;
  }
  return code;
}

Registry LinuxHost::registry_of_facts() const {
  struct Lists {
    std::size_t count = 0;
    StringListValue addresses;
    StringListValue masks;
  };
  std::map<DWORD, Lists> lists;
  for (const auto& [context, place] : by_context_) ++lists[place.interface_index].count;
  for (auto& [interface_index, its_lists] : lists) {
    its_lists.addresses.reserve(its_lists.count * sizeof "255.255.255.255");
    its_lists.masks.reserve(its_lists.count * sizeof "255.255.255.255");
  }
  for (const auto& [context, place] : by_context_) {
    Lists& its_lists = lists[place.interface_index];
    char text[16];
    write_dotted(text, htonl(place.address));
    its_lists.addresses.add(text);
    write_dotted(text, mask_of(place.prefix_length));
    its_lists.masks.add(text);
  }
  Registry registry;
  BindingList bindings;
  for (const HostAdapter& adapter : adapters_) {
    Lists& its_lists = lists[adapter.row.dwIndex];
    if (its_lists.count == 0) {
      its_lists.addresses.add(NO_ADDRESS);
      its_lists.masks.add(NO_ADDRESS);
    }
    enter_interface(registry, adapter.name, its_lists.addresses.take(), its_lists.masks.take(),
                    adapter.gateways);
    enter_connection(registry, adapter.name, adapter.name);
    if (adapter.row.dwType != MIB_IF_TYPE_LOOPBACK) bindings.add(adapter.name);
  }
  bindings.enter(registry);
  return registry;
}

DWORD LinuxHost::find_key(std::string_view path) {
  const DWORD code = lay_out_registry();
  return code != NO_ERROR ? code : registry_.find_key(path);
}

DWORD LinuxHost::find_value(std::string_view path, std::string_view name,
                            const RegistryValue*& value) {
  const DWORD code = lay_out_registry();
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

std::optional<ScriptedFault> LinuxHost::next_fault(Call /*call*/) { return std::nullopt; }
