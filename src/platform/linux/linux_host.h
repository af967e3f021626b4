// This machine: its interfaces and addresses as the kernel tells them over rtnetlink, and changes
// of its addresses by the kernel.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/host.h"
#include "platform/host/registry.h"
#include "platform/linux/linux_network.h"
#include "platform/linux/linux_routes.h"
#include "platform/linux/rtnetlink.h"

class LinuxHost final : public Host {
 public:
  LinuxHost();

  [[nodiscard]] std::string_view kind() const override { return "this machine"; }
  [[nodiscard]] const HostVersion& version() const override { return version_; }
  [[nodiscard]] const std::string& user_name() override;
  /// There is no DHCP client library.
  [[nodiscard]] bool has_library(std::string_view library) const override;
  /// In the order of their indices, which are the kernel's.
  [[nodiscard]] DWORD read_adapters(HostTable<HostAdapter>& adapters) override;
  /// With a row 0.0.0.0 for each interface that holds no address.
  [[nodiscard]] DWORD read_addresses(HostTable<HostAddress>& addresses) override;
  /// The registry shows interfaces and addresses; it cannot be written.
  [[nodiscard]] DWORD find_key(std::string_view path) override;
  [[nodiscard]] DWORD find_value(std::string_view path, std::string_view name,
                                 const RegistryValue*& value) override;

  /// Refuses what the platform refuses although the kernel would take it: what is not an address of
  /// a host or not a mask (87), and an address that an interface has already (5010).
  [[nodiscard]] DWORD add_address(DWORD address, DWORD mask, DWORD interface_index,
                                  DWORD& context) override;
  /// Refuses an unknown context (1168). Sees to it that no other address goes with this one.
  [[nodiscard]] DWORD delete_address(DWORD context) override;
  [[nodiscard]] DWORD set_admin_status(DWORD interface_index, DWORD status) override;
  void sleep(DWORD milliseconds) override;

 private:
  [[nodiscard]] int follow_gateways(std::vector<DefaultGateway>& gateways);
  void lay_out_adapters(std::vector<DefaultGateway> gateways);
  void lay_out_rows();
  RtOutcome change_address(std::uint16_t type, unsigned flags, const LinuxNetwork::Entry& entry);
  [[nodiscard]] int promote_secondaries(DWORD interface_index);
  [[nodiscard]] bool has_ipv4(DWORD interface_index);
  DWORD lay_out_registry();
  void set_address_lists(const HostAdapter& adapter);
  DWORD update_lists(std::string_view adapter, std::string_view value);

  HostVersion version_;
  std::string user_;
  RtRequests requests_;
  LinuxNetwork network_{requests_};
  RtNotifications route_notifications_{RTMGRP_IPV4_ROUTE | 1U << (RTNLGRP_NEXTHOP - 1)};

  // What is made of the network, each with the generation that it was made from.
  HostTable<HostAddress> addresses_;  ///< of the network's own generation
  std::vector<DefaultGateway> gateways_;
  Generation gateways_from_;
  Generation gateways_links_from_;
  bool gateways_depend_on_addresses_ = false;
  HostTable<HostAdapter> adapters_;
  Generation adapters_from_;
  Registry registry_;
  Generation registry_from_;
  // Only the interface asked for last has its lists in the registry.
  DWORD lists_interface_ = 0;
  Generation lists_from_;
};
