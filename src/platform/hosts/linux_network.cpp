#include "platform/hosts/linux_network.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace {

/// How often what changes of the host spoil is read again.
constexpr int MAX_READINGS = 10;
/// The parts of a reading in bytes, and how much shorter they are in the next: what may be hidden
/// stands where one part ends, so that no two readings hide the same.
constexpr std::size_t LONGEST_PART = 32000;
constexpr std::size_t PART_STEP = 2311;
constexpr DWORD EVERY_INTERFACE = 0;

constexpr DWORD TYPE_OTHER = 1;
constexpr DWORD TYPE_POINT_TO_POINT = 23;
constexpr DWORD TYPE_WIRELESS = 71;
constexpr DWORD TYPE_TUNNEL = 131;

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

/// A wireless interface is an Ethernet to the kernel's tables; only its folder tells, which may be
/// of an interface that has the name in another network namespace.
bool is_wireless(const std::string& name, int index) {
  const std::string path = "/sys/class/net/" + name + "/uevent";
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"),
                                                             std::fclose);
  if (file == nullptr) return false;
  char text[512];
  const std::string_view lines(text, std::fread(text, 1, sizeof text, file.get()));
  const std::string its_index = "IFINDEX=" + std::to_string(index) + "\n";
  return lines.find("DEVTYPE=wlan\n") != lines.npos && lines.find(its_index) != lines.npos;
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
  const auto attributes = attributes_of<IFLA_MAX, ifinfomsg>(message);
  HostAdapter adapter = {};
  if (const nlattr* name = attributes[IFLA_IFNAME]) adapter.name = mnl_attr_get_str(name);
  MIB_IFROW& row = adapter.row;
  row.dwIndex = static_cast<DWORD>(link.ifi_index);
  row.dwType = interface_type(link, adapter.name);
  row.dwMtu = number_in(attributes[IFLA_MTU]);
  row.dwAdminStatus =
      (link.ifi_flags & IFF_UP) != 0 ? MIB_IF_ADMIN_STATUS_UP : MIB_IF_ADMIN_STATUS_DOWN;
  row.dwOperStatus =
      (link.ifi_flags & IFF_RUNNING) != 0 ? MIB_IF_ADMIN_STATUS_UP : MIB_IF_ADMIN_STATUS_DOWN;
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

bool same(const HostAdapter& a, const HostAdapter& b) {
  return a.name == b.name && std::memcmp(&a.row, &b.row, sizeof a.row) == 0;
}

/// What bridges tell of their ports, and wireless interfaces of their radio, is no news of the
/// links themselves.
bool is_of_link(const nlmsghdr& message) {
  const auto* part = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&message));
  return part->ifi_family == AF_UNSPEC &&
         attributes_of<IFLA_MAX, ifinfomsg>(message)[IFLA_WIRELESS] == nullptr;
}

LinuxNetwork::Place place_in(const nlmsghdr& message, const RtAttributes<IFA_MAX>& attributes) {
  const auto& part = *static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&message));
  const DWORD peer = number_in(attributes[IFA_ADDRESS]);
  return {number_in(attributes[IFA_LOCAL], peer), part.ifa_index, part.ifa_prefixlen, peer};
}

}  // namespace

// ---- Following --------------------------------------------------------------------------------

int LinuxNetwork::follow() {
  // Should what follows not end well, the next time begins anew.
  if (std::exchange(follows_, false)) {
    const int error = hear(nullptr);
    follows_ = error == 0;
    if (error != ENOBUFS) return error;
  }
  return read_everything();
}

/// Reads links and addresses, and the news since it began, until no change can have hidden
/// anything. The kernel goes on by position from one part of its lists to the next, so that an
/// address that goes hides another of its interface, and a link that goes may hide more. It does
/// not always own up to that, and owns up to changes that hide nothing.
int LinuxNetwork::read_everything() {
  int lost = ENOBUFS;
  Doubt doubt;
  for (int i = 0; i < MAX_READINGS && (lost != 0 || doubt.any()); ++i) {
    if (lost != 0) {
      // News are heard before the reading begins, so that no change falls between the two.
      if (const int error = news_.listen(); error != 0) return error;
      ++sweep_;
      doubt.everything = true;
    }
    if (const int error = read_again(std::exchange(doubt, {}), i); error != 0) return error;
    lost = hear(&doubt);
    if (lost != 0 && lost != ENOBUFS) return lost;
  }
  // A host that never rests is told as far as it was read, as the system's own tools do.
  if (lost != 0) return 0;
  drop_unseen();
  follows_ = true;
  return 0;
}

int LinuxNetwork::read_again(const Doubt& doubt, int attempt) {
  if (doubt.everything) {
    const int error = read_links();
    return error != 0 ? error : read_addresses(EVERY_INTERFACE, attempt);
  }
  for (const DWORD interface_index : doubt.interfaces) {
    if (const int error = read_addresses(interface_index, attempt); error != 0) return error;
  }
  return 0;
}

int LinuxNetwork::read_links() {
  RtRequest request(RTM_GETLINK, NLM_F_DUMP);
  request.part<ifinfomsg>().ifi_family = AF_UNSPEC;
  request.put(IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return requests_.exchange(request, [this](const nlmsghdr& message) {
    take_link(message);
    return true;
  });
}

int LinuxNetwork::read_addresses(DWORD interface_index, int attempt) {
  RtRequest request(RTM_GETADDR, NLM_F_DUMP);
  auto& part = request.part<ifaddrmsg>();
  part.ifa_family = AF_INET;
  part.ifa_index = interface_index;
  const std::size_t length = LONGEST_PART - PART_STEP * static_cast<std::size_t>(attempt);
  // On a socket of its own: the kernel shortens the parts of none.
  requests_.close();
  const int error = requests_.exchange(
      request,
      [this](const nlmsghdr& message) {
        take_address(message);
        return true;
      },
      length);
  requests_.close();
  const bool interface_is_gone = error == ENODEV && interface_index != EVERY_INTERFACE;
  return interface_is_gone ? 0 : error;
}

/// Takes the news that wait; `doubt`, unless null, gets what a reading meanwhile may have missed.
int LinuxNetwork::hear(Doubt* doubt) {
  return news_.take([=, this](const nlmsghdr& message) {
    switch (message.nlmsg_type) {
      case RTM_NEWADDR: take_address(message); break;
      case RTM_DELADDR:
        lose_address(message);
        if (doubt != nullptr) {
          const void* part = mnl_nlmsg_get_payload(&message);
          doubt->interfaces.insert(static_cast<const ifaddrmsg*>(part)->ifa_index);
        }
        break;
      case RTM_NEWLINK: take_link(message); break;
      case RTM_DELLINK:
        if (lose_link(message) && doubt != nullptr) doubt->everything = true;
        break;
      default: break;
    }
  });
}

/// Forgets what was not seen since everything was begun to be read.
void LinuxNetwork::drop_unseen() {
  for (auto it = addresses_.begin(); it != addresses_.end();) {
    it = it->second.sweep == sweep_ ? std::next(it) : erase(it);
  }
  const auto gone =
      std::erase_if(links_, [this](const auto& link) { return link.second.sweep != sweep_; });
  if (gone != 0) note_link_change();
}

// ---- Links ------------------------------------------------------------------------------------

void LinuxNetwork::take_link(const nlmsghdr& message) {
  if (!is_of_link(message)) return;
  HostAdapter adapter = adapter_of(message);
  Link& link = links_[adapter.row.dwIndex];
  link.sweep = sweep_;
  if (same(link.adapter, adapter)) return;
  link.adapter = std::move(adapter);
  note_link_change();
}

bool LinuxNetwork::lose_link(const nlmsghdr& message) {
  if (!is_of_link(message)) return false;
  const void* part = mnl_nlmsg_get_payload(&message);
  links_.erase(static_cast<DWORD>(static_cast<const ifinfomsg*>(part)->ifi_index));
  note_link_change();
  return true;
}

void LinuxNetwork::note_link_change() {
  ++link_changes_;
  ++changes_;
}

// ---- Addresses --------------------------------------------------------------------------------

void LinuxNetwork::take_address(const nlmsghdr& message) {
  const auto& part = *static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&message));
  const auto attributes = attributes_of<IFA_MAX, ifaddrmsg>(message);
  Created created;
  const nlattr* times = attributes[IFA_CACHEINFO];
  if (times != nullptr && mnl_attr_get_payload_len(times) >= sizeof(ifa_cacheinfo)) {
    created = static_cast<const ifa_cacheinfo*>(mnl_attr_get_payload(times))->cstamp;
  }
  const std::uint32_t flags = number_in(attributes[IFA_FLAGS], part.ifa_flags);
  enter(place_in(message, attributes), created)->second.secondary = (flags & IFA_F_SECONDARY) != 0;
}

void LinuxNetwork::lose_address(const nlmsghdr& message) {
  const auto attributes = attributes_of<IFA_MAX, ifaddrmsg>(message);
  const auto found = find_place(place_in(message, attributes));
  if (found != addresses_.end()) erase(found);
}

LinuxNetwork::Addresses::iterator LinuxNetwork::find_place(const Place& place) {
  auto [it, end] = addresses_.equal_range(ntohl(place.address));
  it = std::find_if(it, end, [&](const auto& held) { return held.second.place == place; });
  return it != end ? it : addresses_.end();
}

LinuxNetwork::Addresses::iterator LinuxNetwork::enter(const Place& place, Created created) {
  if (const auto found = find_place(place); found != addresses_.end()) {
    Standing& standing = found->second;
    if (!standing.created || standing.created == created) {
      standing.created = created;
      standing.sweep = sweep_;
      return found;
    }
    erase(found);
  }
  Held& held = held_[place.interface_index];
  const Standing standing = {place, take_context(), created, false, sweep_};
  const auto entered = addresses_.emplace(ntohl(place.address), standing);
  try {
    by_context_.emplace(standing.context, &entered->second);
  } catch (const std::bad_alloc&) {
    addresses_.erase(entered);
    throw;
  }
  held.changed_at = ++changes_;
  if (++held.count == 1) note_link_change();
  return entered;
}

/// A context that no address has. 0 would stand for none.
DWORD LinuxNetwork::take_context() {
  while (next_context_ == 0 || by_context_.contains(next_context_)) ++next_context_;
  return next_context_++;
}

LinuxNetwork::Addresses::iterator LinuxNetwork::erase(Addresses::iterator address) {
  const auto& [place, context, created, secondary, sweep] = address->second;
  Held& held = held_.find(place.interface_index)->second;
  held.changed_at = ++changes_;
  if (--held.count == 0) note_link_change();
  by_context_.erase(context);
  return addresses_.erase(address);
}

LinuxNetwork::Held LinuxNetwork::held_by(DWORD interface_index) const {
  const auto found = held_.find(interface_index);
  return found != held_.end() ? found->second : Held{};
}

const LinuxNetwork::Standing* LinuxNetwork::find_context(DWORD context) const {
  const auto found = by_context_.find(context);
  return found != by_context_.end() ? found->second : nullptr;
}

DWORD LinuxNetwork::enter(const Place& place) { return enter(place, std::nullopt)->second.context; }

void LinuxNetwork::forget(DWORD context) {
  if (const Standing* standing = find_context(context)) erase(find_place(standing->place));
}
