// The ways out of this machine: the gateways of the default routes of its main table.
#pragma once

#include <vector>

#include <windows.h>

#include "platform/linux/rtnetlink.h"

/// A gateway (network byte order) and the interface that it is reached by.
struct DefaultGateway {
  DWORD interface_index;
  DWORD gateway;

  bool operator==(const DefaultGateway&) const = default;
};

/// Reads the gateways in use, in the order of their routes, each once for an interface, and whether
/// one of the routes goes with an address, as its source. An error number of the system, 0 for
/// success.
[[nodiscard]] int read_default_gateways(RtRequests& requests, std::vector<DefaultGateway>& gateways,
                                        bool& depends_on_addresses);
