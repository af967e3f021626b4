#include "platform/linux/linux_routes.h"

#include <arpa/inet.h>
#include <linux/nexthop.h>

#include <algorithm>

namespace {

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
    const auto attributes = attributes_in<RTA_MAX>(at + sizeof path, path.rtnh_len - sizeof path);
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
struct DefaultRoutes {
  std::vector<Hop> hops;
  bool prefer_sources = false;
};

/// Adds a default route of the main table; false when no other can follow.
bool add_route(const nlmsghdr& message, DefaultRoutes& routes) {
  const auto* const part = part_of<rtmsg>(message);
  if (part == nullptr) return true;
  const rtmsg& route = *part;
  // Kernels without strict checking show what they cached of a route among the others.
  if (route.rtm_table != RT_TABLE_MAIN || (route.rtm_flags & RTM_F_CLONED) != 0) return true;
  const auto attributes = attributes_of<RTA_MAX, rtmsg>(message);
  if (number_in(attributes[RTA_DST]) != 0) return false;
  if (route.rtm_dst_len != 0 || !is_usable(route.rtm_flags)) return true;
  if (attributes[RTA_PREFSRC] != nullptr) routes.prefer_sources = true;
  std::vector<Hop>& hops = routes.hops;
  if (const nlattr* paths = attributes[RTA_MULTIPATH]) {
    add_paths(*paths, hops);
  } else if (const nlattr* interface = attributes[RTA_OIF]) {
    hops.push_back({number_in(interface), number_in(attributes[RTA_GATEWAY]), 0});
  } else {
    // Of a route by an object a kernel may show no more than the object's number.
    hops.push_back({0, 0, number_in(attributes[RTA_NH_ID])});
  }
  return true;
}

/// Reads the main table as far as its default routes go: the kernel shows routes in the order of
/// their destinations, and a hundred thousand may follow.
int read_default_routes(RtRequests& requests, DefaultRoutes& routes) {
  RtRequest request(RTM_GETROUTE, NLM_F_DUMP);
  auto& part = request.part<rtmsg>();
  part.rtm_family = AF_INET;
  part.rtm_table = RT_TABLE_MAIN;
  const int error = requests.ask(
      request, [&routes](const nlmsghdr& message) { return add_route(message, routes); });
  // Where nothing was ever routed there is no table yet.
  return error != ENOENT ? error : 0;
}

void add_gateway(std::vector<DefaultGateway>& gateways, const DefaultGateway& gateway) {
  // Routes of several metrics may go by the same gateway.
  const bool known = std::ranges::find(gateways, gateway) != gateways.end();
  if (gateway.gateway != 0 && !known) gateways.push_back(gateway);
}

/// Asks for a nexthop object and adds its gateway, or those of the members of a group.
int add_gateways_of(DWORD object, RtRequests& requests, std::vector<DefaultGateway>& gateways) {
  std::vector<DWORD> objects = {object};
  for (std::size_t i = 0; i < objects.size(); ++i) {
    RtRequest request(RTM_GETNEXTHOP, NLM_F_ACK);
    request.part<nhmsg>().nh_family = AF_UNSPEC;
    request.put(NHA_ID, objects[i]);
    const int error = requests.ask(request, [&](const nlmsghdr& message) {
      const auto* const part = part_of<nhmsg>(message);
      if (part == nullptr) return true;
      const auto attributes = attributes_of<NHA_MAX, nhmsg>(message);
      if (const nlattr* group = attributes[NHA_GROUP]) {
        const auto* members = static_cast<const nexthop_grp*>(mnl_attr_get_payload(group));
        const std::size_t count = mnl_attr_get_payload_len(group) / sizeof *members;
        for (std::size_t k = 0; k < count; ++k) objects.push_back(members[k].id);
      } else if (part->nh_family == AF_INET && is_usable(part->nh_flags)) {
        add_gateway(gateways, {number_in(attributes[NHA_OIF]), number_in(attributes[NHA_GATEWAY])});
      }
      return true;
    });
    // One that went meanwhile leads nowhere.
    if (error != 0 && error != ENOENT) return error;
  }
  return 0;
}

}  // namespace

int read_default_gateways(RtRequests& requests, std::vector<DefaultGateway>& gateways,
                          bool& depends_on_addresses) {
  DefaultRoutes routes;
  int error = read_default_routes(requests, routes);
  gateways.clear();
  depends_on_addresses = routes.prefer_sources;
  const std::vector<Hop>& hops = routes.hops;
  for (std::size_t i = 0; i < hops.size() && error == 0; ++i) {
    if (hops[i].object != 0) {
      error = add_gateways_of(hops[i].object, requests, gateways);
    } else {
      add_gateway(gateways, {hops[i].interface_index, hops[i].gateway});
    }
  }
  return error;
}
