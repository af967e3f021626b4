#include "platform/hosts/linux_routes.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/nexthop.h>

#include <algorithm>
#include <utility>

namespace {

/// How often routes are read again that changed meanwhile.
constexpr int MAX_READINGS = 10;

/// Lets through, of the news of routes, those of default routes: every change of an address brings
/// news of others. Reads the message's type and, of a route, the length of its destination.
sock_filter DEFAULT_ROUTES[] = {
    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(nlmsghdr, nlmsg_type)),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htons(RTM_NEWROUTE), 1, 0),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htons(RTM_DELROUTE), 0, 2),
    BPF_STMT(BPF_LD | BPF_B | BPF_ABS, NLMSG_HDRLEN + offsetof(rtmsg, rtm_dst_len)),
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 1),
    BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF),
    BPF_STMT(BPF_RET | BPF_K, 0),
};

bool is_usable(unsigned flags) { return (flags & RTNH_F_DEAD) == 0; }

/// A way of a route: by a gateway (network byte order), by an object that knows one, or by neither.
struct Hop {
  DWORD interface_index;
  DWORD gateway;
  DWORD object;
};

void add_paths(const nlattr& paths, std::vector<Hop>& hops) {
  std::size_t left = mnl_attr_get_payload_len(&paths);
  const auto* at = static_cast<const char*>(mnl_attr_get_payload(&paths));
  while (left >= sizeof(rtnexthop)) {
    const auto& path = *reinterpret_cast<const rtnexthop*>(at);
    if (path.rtnh_len < sizeof path || path.rtnh_len > left) return;
    const auto attributes =
        attributes_in<RTA_MAX + 1>(at + sizeof path, path.rtnh_len - sizeof path);
    if (is_usable(path.rtnh_flags)) {
      hops.push_back(
          {static_cast<DWORD>(path.rtnh_ifindex), number_in(attributes[RTA_GATEWAY]), 0});
    }
    const std::size_t step = std::min<std::size_t>(MNL_ALIGN(path.rtnh_len), left);
    at += step;
    left -= step;
  }
}

/// What the default routes say.
struct Routes {
  std::vector<Hop> hops;
  std::vector<DWORD> sources;
};

/// Notes what a default route of the main table says; false when none can follow.
bool take_route(const nlmsghdr& message, Routes& routes) {
  const auto& route = *static_cast<const rtmsg*>(mnl_nlmsg_get_payload(&message));
  if (route.rtm_table != RT_TABLE_MAIN) return true;
  const auto attributes = attributes_of<RTA_MAX + 1, rtmsg>(message);
  if (number_in(attributes[RTA_DST]) != 0) return false;
  if (route.rtm_dst_len != 0) return true;
  if (const nlattr* source = attributes[RTA_PREFSRC]) routes.sources.push_back(number_in(source));
  if (!is_usable(route.rtm_flags)) return true;
  if (const nlattr* paths = attributes[RTA_MULTIPATH]) {
    add_paths(*paths, routes.hops);
  } else if (const nlattr* interface = attributes[RTA_OIF]) {
    routes.hops.push_back({number_in(interface), number_in(attributes[RTA_GATEWAY]), 0});
  } else {
    // Of a route by an object a kernel may show no more than the object's number.
    routes.hops.push_back({0, 0, number_in(attributes[RTA_NH_ID])});
  }
  return true;
}

}  // namespace

LinuxRoutes::LinuxRoutes()
    : news_(RTMGRP_IPV4_ROUTE | 1U << (RTNLGRP_NEXTHOP - 1), DEFAULT_ROUTES) {}

int LinuxRoutes::follow(const LinuxNetwork& network) {
  bool changed = false;
  int lost = std::exchange(follows_, false) ? hear(changed) : ENOBUFS;
  // Routes that go with a link, with its last address or with the one that they prefer go without
  // a word.
  changed = changed || link_changes_ != network.link_changes() || any_source_went(network);
  for (int i = 0; i < MAX_READINGS && (lost != 0 || changed); ++i) {
    if (lost != 0 && lost != ENOBUFS) return lost;
    if (lost != 0) {
      if (const int error = news_.listen(); error != 0) return error;
    }
    if (const int error = read(); error != 0) return error;
    link_changes_ = network.link_changes();
    changed = false;
    lost = hear(changed);
  }
  follows_ = lost == 0;
  return 0;
}

int LinuxRoutes::hear(bool& changed) {
  return news_.take([&changed](const nlmsghdr& /*message*/) { changed = true; });
}

bool LinuxRoutes::any_source_went(const LinuxNetwork& network) const {
  return std::any_of(sources_.begin(), sources_.end(),
                     [&](DWORD source) { return !network.has_address(source); });
}

/// Reads the main table as far as its default routes go: the kernel shows routes in the order of
/// their destinations, and a hundred thousand may follow.
int LinuxRoutes::read() {
  RtRequest request(RTM_GETROUTE, NLM_F_DUMP);
  auto& part = request.part<rtmsg>();
  part.rtm_family = AF_INET;
  part.rtm_table = RT_TABLE_MAIN;
  Routes routes;
  const int error = requests_.exchange(
      request, [&routes](const nlmsghdr& message) { return take_route(message, routes); });
  // Where nothing was ever routed there is no table yet. What changes meanwhile brings news.
  if (error != 0 && error != ENOENT && error != EINTR) return error;
  ++readings_;
  gateways_.clear();
  sources_ = std::move(routes.sources);
  for (const Hop& hop : routes.hops) {
    add_gateway(hop.interface_index, hop.gateway);
    if (hop.object == 0) continue;
    if (const int unknown = add_gateways_of(hop.object); unknown != 0) return unknown;
  }
  return 0;
}

/// Asks for a nexthop object and adds its gateway, or those of the members of a group.
int LinuxRoutes::add_gateways_of(DWORD object) {
  std::vector<DWORD> objects = {object};
  for (std::size_t i = 0; i < objects.size(); ++i) {
    RtRequest request(RTM_GETNEXTHOP, NLM_F_ACK);
    request.part<nhmsg>().nh_family = AF_UNSPEC;
    request.put(NHA_ID, objects[i]);
    const int error = requests_.exchange(request, [&](const nlmsghdr& message) {
      const auto& part = *static_cast<const nhmsg*>(mnl_nlmsg_get_payload(&message));
      const auto attributes = attributes_of<NHA_MAX + 1, nhmsg>(message);
      if (const nlattr* group = attributes[NHA_GROUP]) {
        const auto* members = static_cast<const nexthop_grp*>(mnl_attr_get_payload(group));
        const std::size_t count = mnl_attr_get_payload_len(group) / sizeof *members;
        for (std::size_t k = 0; k < count; ++k) objects.push_back(members[k].id);
      } else if (part.nh_family == AF_INET && is_usable(part.nh_flags)) {
        add_gateway(number_in(attributes[NHA_OIF]), number_in(attributes[NHA_GATEWAY]));
      }
      return true;
    });
    // One that went meanwhile leads nowhere.
    if (error != 0 && error != ENOENT) return error;
  }
  return 0;
}

void LinuxRoutes::add_gateway(DWORD interface_index, DWORD gateway) {
  // Routes of several metrics may go by the same gateway.
  const bool known = std::any_of(gateways_.begin(), gateways_.end(), [=](const auto& it) {
    return it.interface_index == interface_index && it.gateway == gateway;
  });
  if (gateway != 0 && !known) gateways_.push_back({interface_index, gateway});
}
