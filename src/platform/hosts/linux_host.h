// This machine: its interfaces and addresses as the kernel tells them over rtnetlink, and changes
// of its addresses by the kernel.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/hosts/host.h"
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
  [[nodiscard]] DWORD read_adapters(Reading reading,
                                    std::span<const HostAdapter>& adapters) override;
  [[nodiscard]] DWORD read_addresses(Reading reading,
                                     std::span<const HostAddress>& addresses) override;
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
  [[nodiscard]] std::optional<ScriptedFault> next_fault(Call call) override;

 private:
  /// What the kernel tells addresses apart by. Ordered by the address in host byte order; the peer,
  /// in network byte order, is the address itself but on point-to-point links.
  struct Place {
    std::uint32_t address;
    DWORD interface_index;
    DWORD prefix_length;
    DWORD peer;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check mistakes what the compiler generates
    auto operator<=>(const Place&) const = default;
  };
  /// When the kernel says that an address was created tells it from a later one in its place.
  using Created = std::optional<std::uint32_t>;
  struct Standing {
    DWORD context;
    std::uint32_t sweep;  ///< the reading of all addresses that it was last seen in or after
    Created created;
    bool secondary;  ///< goes with the primary of its subnet unless the kernel promotes it
  };
  using Addresses = std::map<Place, Standing>;

  DWORD follow_addresses();
  int read_all_addresses();
  void take_news(const nlmsghdr& message);
  void take_address(const nlmsghdr& message);
  Addresses::iterator enter_address(const Place& place, Created created);
  Addresses::iterator erase_address(Addresses::iterator address);
  [[nodiscard]] bool has_address(std::uint32_t address) const;
  int request_address(std::uint16_t type, unsigned flags, const Place& place);
  int keep_secondaries(DWORD interface_index, bool secondary);
  int promote_secondaries(DWORD interface_index);

  DWORD follow_adapters();
  int read_all_adapters();
  void take_route(const nlmsghdr& message);
  void take_hop(DWORD interface_index, unsigned flags, const nlattr* gateway);
  [[nodiscard]] bool has_ipv4(DWORD interface_index);

  DWORD lay_out_registry();
  [[nodiscard]] Registry registry_of_facts() const;

  template <typename Begin, typename Visit>
  int dump(RtRequest& request, Begin begin, Visit visit);

  HostVersion version_;
  std::string user_;
  RtRequests requests_;

  RtNews news_{RTMGRP_LINK | RTMGRP_IPV4_IFADDR};
  bool follows_ = false;
  Addresses addresses_;
  std::map<DWORD, Place> by_context_;  ///< in the order in which the addresses came to stand
  DWORD next_context_ = 1;
  std::uint32_t sweep_ = 0;
  std::vector<HostAddress> snapshot_;
  bool snapshot_is_stale_ = true;
  std::set<DWORD> kept_;  ///< interfaces that were told to keep their secondary addresses

  // Apart, and left while addresses are being changed: each change of an address changes routes.
  RtNews route_news_{RTMGRP_IPV4_ROUTE};
  std::vector<HostAdapter> adapters_;
  bool adapters_are_stale_ = true;

  Registry registry_;
  bool registry_is_stale_ = true;
};
