// The ways out of this machine: the gateways of the default routes of its main table, read over
// rtnetlink and followed by the kernel's news.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/hosts/linux_network.h"
#include "platform/hosts/rtnetlink.h"

/// A gateway (network byte order) and the interface that it is reached by.
struct DefaultGateway {
  DWORD interface_index;
  DWORD gateway;
};

class LinuxRoutes {
 public:
  LinuxRoutes();

  /// Brings the gateways up to date, on a network that is. An error number of the system, 0 for
  /// success: readings that changes of the host spoil are no failure.
  [[nodiscard]] int follow(const LinuxNetwork& network);

  /// The gateways in use, in the order of their routes, each once for an interface.
  [[nodiscard]] const std::vector<DefaultGateway>& gateways() const { return gateways_; }
  /// A number that grows with each reading.
  [[nodiscard]] std::uint64_t readings() const { return readings_; }

 private:
  int hear(bool& changed);
  int read();
  int add_gateways_of(DWORD object);
  void add_gateway(DWORD interface_index, DWORD gateway);
  [[nodiscard]] bool any_source_went(const LinuxNetwork& network) const;

  RtRequests requests_;
  RtNews news_;
  bool follows_ = false;            ///< the gateways were read, and no news were lost since
  std::uint64_t link_changes_ = 0;  ///< of the network when they were read
  std::vector<DefaultGateway> gateways_;
  std::vector<DWORD> sources_;  ///< the addresses (network byte order) that default routes prefer
  std::uint64_t readings_ = 0;
};
