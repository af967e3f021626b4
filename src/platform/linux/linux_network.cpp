#include "platform/linux/linux_network.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "base/find.h"
#include "platform/host/ipv4.h"

namespace {

/// How often what changes of the host make stale is dumped again.
constexpr int MAX_DUMPS = 10;
/// The parts of a dump in bytes, and how much shorter they are in the next: what may be hidden
/// stands where one part ends, so that no two dumps hide the same.
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
  const auto* const found = find_with(TYPES, link.ifi_type, &TypeOfHardware::hardware);
  if (found == nullptr) {
    return (link.ifi_flags & IFF_POINTOPOINT) != 0 ? TYPE_POINT_TO_POINT : TYPE_OTHER;
  }
  if (found->type == MIB_IF_TYPE_ETHERNET && is_wireless(name, link.ifi_index)) {
    return TYPE_WIRELESS;
  }
  return found->type;
}

HostAdapter adapter_of(const ifinfomsg& link, const nlmsghdr& message) {
  const auto attributes = attributes_of<IFLA_MAX, ifinfomsg>(message);
  HostAdapter adapter = {};
  adapter.name = text_in(attributes[IFLA_IFNAME]);
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

/// The link that a message is about; null for what bridges tell of their ports, and wireless
/// interfaces of their radio.
const ifinfomsg* link_in(const nlmsghdr& message) {
  const auto* const link = part_of<ifinfomsg>(message);
  if (link == nullptr || link->ifi_family != AF_UNSPEC) return nullptr;
  const bool is_radio = attributes_of<IFLA_MAX, ifinfomsg>(message)[IFLA_WIRELESS] != nullptr;
  return is_radio ? nullptr : link;
}

/// The address that a message is about, without a context; false for none.
bool read_entry(const nlmsghdr& message, LinuxNetwork::Entry& entry) {
  const auto* const part = part_of<ifaddrmsg>(message);
  if (part == nullptr || part->ifa_family != AF_INET || part->ifa_prefixlen > 32) return false;
  const auto attributes = attributes_of<IFA_MAX, ifaddrmsg>(message);
  entry.peer = number_in(attributes[IFA_ADDRESS]);
  entry.address = number_in(attributes[IFA_LOCAL], entry.peer);
  entry.mask = prefix_mask(part->ifa_prefixlen);
  entry.interface_index = part->ifa_index;
  const std::uint32_t flags = number_in(attributes[IFA_FLAGS], part->ifa_flags);
  entry.secondary = (flags & IFA_F_SECONDARY) != 0;
  const nlattr* times = attributes[IFA_CACHEINFO];
  if (times != nullptr && mnl_attr_get_payload_len(times) >= sizeof(ifa_cacheinfo)) {
    entry.created = static_cast<const ifa_cacheinfo*>(mnl_attr_get_payload(times))->cstamp;
  }
  entry.confirmed = true;
  return true;
}

auto place_of(const LinuxNetwork::Entry& it) {
  return std::tuple(ntohl(it.address), it.interface_index, ntohl(it.mask), it.peer);
}

bool precedes(const LinuxNetwork::Entry& a, const LinuxNetwork::Entry& b) {
  return a.address != b.address ? ntohl(a.address) < ntohl(b.address) : place_of(a) < place_of(b);
}

bool same_place(const LinuxNetwork::Entry& a, const LinuxNetwork::Entry& b) {
  return place_of(a) == place_of(b);
}

}  // namespace

// ---- Following --------------------------------------------------------------------------------

int LinuxNetwork::follow() {
  // Should what follows not end well, the next time begins anew.
  if (std::exchange(is_synchronised_, false)) {
    const int error = apply_notifications(nullptr);
    is_synchronised_ = error == 0;
    if (error == 0) return 0;
  }
  return resynchronise();
}

/// Dumps links and addresses, and applies the notifications since it began, until no change can
/// have hidden anything. The kernel goes on by position from one part of its lists to the next, so
/// that an address that goes hides another of its interface, and a link that goes may hide more. It
/// does not always own up to that, and owns up to changes that hide nothing.
int LinuxNetwork::resynchronise() {
  int overrun = ENOBUFS;
  Stale stale;
  for (int i = 0; i < MAX_DUMPS && (overrun != 0 || stale.any()); ++i) {
    if (overrun != 0) {
      // Before the dump begins, so that no change falls between the two.
      if (const int error = notifications_.listen(); error != 0) return error;
      ++dump_;
      stale.everything = true;
    }
    if (const int error = dump(std::exchange(stale, {}), i); error != 0) return error;
    overrun = apply_notifications(&stale);
  }
  // A host that never rests is told as far as it was dumped, as the system's own tools do.
  if (overrun != 0) return 0;
  remove_unseen();
  is_synchronised_ = true;
  return 0;
}

int LinuxNetwork::dump(const Stale& stale, int attempt) {
  if (stale.everything) {
    const int error = dump_links();
    return error != 0 ? error : dump_addresses(EVERY_INTERFACE, attempt);
  }
  for (const DWORD interface_index : stale.interfaces) {
    if (const int error = dump_addresses(interface_index, attempt); error != 0) return error;
  }
  return 0;
}

int LinuxNetwork::dump_links() {
  RtRequest request(RTM_GETLINK, NLM_F_DUMP);
  request.part<ifinfomsg>().ifi_family = AF_UNSPEC;
  request.put(IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return requests_.ask(request, [this](const nlmsghdr& message) {
    update_link(message);
    return true;
  });
}

int LinuxNetwork::dump_addresses(DWORD interface_index, int attempt) {
  RtRequest request(RTM_GETADDR, NLM_F_DUMP);
  auto& part = request.part<ifaddrmsg>();
  part.ifa_family = AF_INET;
  part.ifa_index = interface_index;
  const std::size_t length = LONGEST_PART - PART_STEP * static_cast<std::size_t>(attempt);
  Entries dumped;
  // On a socket of its own: the kernel shortens the parts of none.
  requests_.close();
  const int error = requests_.ask(
      request,
      [this, &dumped](const nlmsghdr& message) {
        Entry entry;
        if (!read_entry(message, entry)) return true;
        entry.context = new_context();
        dumped.push_back(entry);
        return true;
      },
      length);
  requests_.close();
  merge(dumped);
  const bool interface_is_gone = error == ENODEV && interface_index != EVERY_INTERFACE;
  return interface_is_gone ? 0 : error;
}

/// Applies the notifications that wait; `stale`, unless null, gets what a dump meanwhile may have
/// missed.
int LinuxNetwork::apply_notifications(Stale* stale) {
  return notifications_.receive_all([=, this](const nlmsghdr& message) {
    Entry entry;
    switch (message.nlmsg_type) {
      case RTM_NEWADDR:
        if (read_entry(message, entry)) {
          update_address(entry, expected_ == RtOrigin{message.nlmsg_pid, message.nlmsg_seq});
        }
        break;
      case RTM_DELADDR:
        if (!read_entry(message, entry)) break;
        remove_address(entry);
        if (stale != nullptr) stale->interfaces.insert(entry.interface_index);
        break;
      case RTM_NEWLINK: update_link(message); break;
      case RTM_DELLINK:
        if (remove_link(message) && stale != nullptr) stale->everything = true;
        break;
      default: break;
    }
  });
}

/// Removes what was not seen since everything was begun to be dumped.
void LinuxNetwork::remove_unseen() {
  std::erase_if(addresses_, [this](const Entry& entry) {
    if (entry.dump == dump_) return false;
    note_removal(entry.interface_index);
    return true;
  });
  const auto gone =
      std::erase_if(links_, [this](const auto& link) { return link.second.dump != dump_; });
  if (gone != 0) note_link_change();
  std::erase_if(held_, [this](const auto& held) {
    return held.second.count == 0 && !links_.contains(held.first);
  });
}

// ---- Links ------------------------------------------------------------------------------------

void LinuxNetwork::update_link(const nlmsghdr& message) {
  const ifinfomsg* const part = link_in(message);
  if (part == nullptr) return;
  HostAdapter adapter = adapter_of(*part, message);
  Link& link = links_[adapter.row.dwIndex];
  link.dump = dump_;
  if (same(link.adapter, adapter)) return;
  link.adapter = std::move(adapter);
  note_link_change();
}

/// Whether a link went. Its addresses went before it.
bool LinuxNetwork::remove_link(const nlmsghdr& message) {
  const ifinfomsg* const part = link_in(message);
  if (part == nullptr) return false;
  const auto index = static_cast<DWORD>(part->ifi_index);
  links_.erase(index);
  if (held_by(index).count == 0) held_.erase(index);
  note_link_change();
  return true;
}

void LinuxNetwork::note_link_change() {
  link_generation_.advance();
  generation_.advance();
}

// ---- Addresses --------------------------------------------------------------------------------

/// Takes over what a dump showed. An entry that stands already keeps its context.
void LinuxNetwork::merge(Entries& dumped) {
  if (!std::ranges::is_sorted(dumped, precedes)) std::ranges::stable_sort(dumped, precedes);
  dumped.erase(std::unique(dumped.begin(), dumped.end(), same_place), dumped.end());
  std::erase_if(dumped, [this](const Entry& entry) { return confirm(entry, true); });
  // What may ask for memory comes first: what is counted stands.
  for (Entry& entry : dumped) {
    entry.dump = dump_;
    held_.try_emplace(entry.interface_index);
  }
  const auto middle = static_cast<std::ptrdiff_t>(addresses_.size());
  if (middle != 0) addresses_.insert(addresses_.end(), dumped.begin(), dumped.end());
  for (const Entry& entry : dumped) note_addition(entry.interface_index);
  if (middle == 0) {
    addresses_ = std::move(dumped);
    return;
  }
  std::inplace_merge(addresses_.begin(), addresses_.begin() + middle, addresses_.end(), precedes);
}

/// Confirms the entry that the kernel tells of and gives true; false when none stands, or another
/// one stood in its place or was another's, which is then removed.
bool LinuxNetwork::confirm(const Entry& told, bool is_own) {
  const auto found = find(told);
  if (found == addresses_.end()) return false;
  if (found->confirmed ? found->created != told.created : !is_own) {
    erase(found);
    return false;
  }
  found->confirmed = true;
  found->created = told.created;
  found->secondary = told.secondary;
  found->dump = dump_;
  return true;
}

void LinuxNetwork::update_address(const Entry& told, bool is_own) {
  if (confirm(told, is_own)) return;
  Entry added = told;
  added.context = new_context();
  insert(added);
}

void LinuxNetwork::remove_address(const Entry& entry) {
  if (const auto found = find(entry); found != addresses_.end()) erase(found);
}

LinuxNetwork::Entries::iterator LinuxNetwork::find(const Entry& entry) {
  const auto found = std::lower_bound(addresses_.begin(), addresses_.end(), entry, precedes);
  return found != addresses_.end() && same_place(*found, entry) ? found : addresses_.end();
}

void LinuxNetwork::insert(const Entry& entry) {
  const auto at = std::upper_bound(addresses_.begin(), addresses_.end(), entry, precedes);
  // Before the entry stands, as it may ask for memory.
  held_.try_emplace(entry.interface_index);
  addresses_.insert(at, entry)->dump = dump_;
  note_addition(entry.interface_index);
}

void LinuxNetwork::erase(const Entries::iterator& entry) {
  const DWORD interface_index = entry->interface_index;
  addresses_.erase(entry);
  note_removal(interface_index);
}

void LinuxNetwork::note_addition(DWORD interface_index) {
  HeldAddresses& held = held_[interface_index];
  held.generation.advance();
  generation_.advance();
  if (++held.count == 1) note_link_change();
}

void LinuxNetwork::note_removal(DWORD interface_index) {
  HeldAddresses& held = held_[interface_index];
  held.generation.advance();
  generation_.advance();
  if (--held.count == 0) note_link_change();
}

LinuxNetwork::HeldAddresses LinuxNetwork::held_by(DWORD interface_index) const {
  const auto found = held_.find(interface_index);
  return found != held_.end() ? found->second : HeldAddresses{};
}

/// A context that no entry has. 0 would stand for none.
DWORD LinuxNetwork::new_context() {
  do {
    if (++last_context_ == 0) contexts_recur_ = true;
  } while (last_context_ == 0 || (contexts_recur_ && find_context(last_context_) != nullptr));
  return last_context_;
}

bool LinuxNetwork::has_address(DWORD address) const {
  const auto found = std::ranges::lower_bound(addresses_, ntohl(address), {},
                                              [](const Entry& it) { return ntohl(it.address); });
  return found != addresses_.end() && found->address == address;
}

const LinuxNetwork::Entry* LinuxNetwork::find_context(DWORD context) const {
  return find_with(addresses_, context, &Entry::context);
}

LinuxNetwork::Entry LinuxNetwork::add_unconfirmed(const HostAddress& address) {
  Entry entry;
  static_cast<HostAddress&>(entry) = address;
  entry.peer = address.address;
  entry.context = new_context();
  insert(entry);
  return entry;
}

void LinuxNetwork::remove_unconfirmed(DWORD context) {
  if (const Entry* entry = find_context(context)) remove_address(*entry);
}
