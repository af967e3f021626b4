// This machine: its interfaces and addresses as the kernel tells them over rtnetlink, and changes
// of its addresses by the kernel.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/hosts/host.h"
#include "platform/hosts/linux_network.h"
#include "platform/hosts/linux_routes.h"
#include "platform/hosts/registry.h"
#include "platform/hosts/rtnetlink.h"

class LinuxHost final : public Host {
 public:
  LinuxHost();

  [[nodiscard]] const HostVersion& version() const override { return version_; }
  [[nodiscard]] const std::string& user_name() override;
  /// There is no DHCP client library.
  [[nodiscard]] bool has_library(std::string_view library) const override;
  [[nodiscard]] bool has_function(std::string_view library,
                                  std::string_view function) const override;
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
  [[nodiscard]] DWORD change_listed_address(std::string_view adapter, DWORD position, DWORD address,
                                            DWORD mask) override;
  [[nodiscard]] DWORD create_key(std::string_view path) override;
  [[nodiscard]] DWORD set_value(std::string_view path, std::string_view name,
                                RegistryValue value) override;
  void sleep(DWORD milliseconds) override;
  [[nodiscard]] std::optional<ScriptedFault> next_fault(std::string_view function) override;

 private:
  using Place = LinuxNetwork::Place;

  int follow_gateways(std::vector<DefaultGateway>& gateways);
  void lay_out_adapters(std::vector<DefaultGateway> gateways);
  void lay_out_rows();
  int request_address(std::uint16_t type, const Place& place, unsigned flags = 0);
  int promote_secondaries(DWORD interface_index);
  [[nodiscard]] bool has_ipv4(DWORD interface_index);
  DWORD lay_out_registry();
  void enter_addresses(const HostAdapter& adapter);
  DWORD renew_lists(std::string_view adapter, std::string_view value);

  HostVersion version_;
  std::string user_;
  RtRequests requests_;
  LinuxNetwork network_{requests_};
  RtNews route_news_{RTMGRP_IPV4_ROUTE | 1U << (RTNLGRP_NEXTHOP - 1)};

  // What is made of the network, with the count of its changes at that time.
  std::vector<HostAddress> rows_;
  std::uint64_t rows_at_ = 0;
  std::vector<HostAdapter> adapters_;
  std::vector<DefaultGateway> gateways_;
  std::uint64_t gateways_at_ = 0;
  std::uint64_t adapters_at_ = 0;
  std::uint64_t adapters_version_ = 0;
  Registry registry_;
  std::uint64_t registry_at_ = 0;
  std::map<DWORD, std::uint64_t> lists_at_;  ///< by interface index
};
