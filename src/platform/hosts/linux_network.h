// The links and IPv4 addresses of this machine's network namespace: read once over rtnetlink, then
// followed by the kernel's news, however much others change meanwhile.
#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

#include "platform/hosts/host.h"
#include "platform/hosts/rtnetlink.h"

class LinuxNetwork {
 public:
  /// The requests must outlive it.
  explicit LinuxNetwork(RtRequests& requests) : requests_(requests) {}

  /// What the kernel tells addresses apart by. The peer is the address itself but on point-to-point
  /// links. Address and peer are in network byte order.
  struct Place {
    DWORD address;
    DWORD interface_index;
    DWORD prefix_length;
    DWORD peer;

    bool operator==(const Place&) const = default;
  };
  /// When the kernel says that an address was created tells it from a later one in its place.
  using Created = std::optional<std::uint32_t>;
  struct Standing {
    Place place;
    DWORD context;  ///< the host's name for it, given to no other while it stands
    Created created;
    bool secondary;       ///< goes with the primary of its subnet unless the kernel promotes it
    std::uint32_t sweep;  ///< of the reading that it was last seen in or after
  };
  /// By the address in host byte order, which several interfaces may hold.
  using Addresses = std::unordered_multimap<std::uint32_t, Standing>;

  struct Link {
    HostAdapter adapter;  ///< without gateways
    std::uint32_t sweep;  ///< as an address has it
  };
  /// By interface index.
  using Links = std::map<DWORD, Link>;

  /// Brings links and addresses up to date. An error number of the system, 0 for success: readings
  /// that changes of the host spoil are no failure.
  [[nodiscard]] int follow();

  [[nodiscard]] const Links& links() const { return links_; }
  [[nodiscard]] const Addresses& addresses() const { return addresses_; }
  /// Numbers that grow with each change: of anything; and of a link, or whether it holds addresses.
  [[nodiscard]] std::uint64_t changes() const { return changes_; }
  [[nodiscard]] std::uint64_t link_changes() const { return link_changes_; }

  [[nodiscard]] bool has_address(DWORD address) const {
    return addresses_.contains(ntohl(address));
  }
  /// Whether the interface holds an address.
  [[nodiscard]] bool is_addressed(DWORD index) const { return held_by(index).count != 0; }
  /// The number of changes when an address of the interface changed last.
  [[nodiscard]] std::uint64_t changes_of(DWORD index) const { return held_by(index).changed_at; }
  /// The address with a context; null when there is none.
  [[nodiscard]] const Standing* find_context(DWORD context) const;

  /// Enters an address that is to be added, and gives its context.
  [[nodiscard]] DWORD enter(const Place& place);
  /// Forgets the address with this context, which is gone or was not added after all.
  void forget(DWORD context);

 private:
  /// What an interface holds.
  struct Held {
    std::size_t count = 0;
    std::uint64_t changed_at = 1;  ///< as the count of changes begins
  };

  /// What a reading cannot be sure to have seen.
  struct Doubt {
    bool everything = false;
    std::set<DWORD> interfaces;  ///< their addresses

    [[nodiscard]] bool any() const { return everything || !interfaces.empty(); }
  };

  int read_everything();
  int read_again(const Doubt& doubt, int attempt);
  int read_links();
  int read_addresses(DWORD interface_index, int attempt);
  int hear(Doubt* doubt);
  void drop_unseen();

  void take_link(const nlmsghdr& message);
  bool lose_link(const nlmsghdr& message);
  void take_address(const nlmsghdr& message);
  void lose_address(const nlmsghdr& message);
  [[nodiscard]] Addresses::iterator find_place(const Place& place);
  Addresses::iterator enter(const Place& place, Created created);
  Addresses::iterator erase(Addresses::iterator address);
  void note_link_change();
  [[nodiscard]] Held held_by(DWORD interface_index) const;
  [[nodiscard]] DWORD take_context();

  RtRequests& requests_;
  RtNews news_{RTMGRP_LINK | RTMGRP_IPV4_IFADDR};
  bool follows_ = false;  ///< everything was read, and no news were lost since
  std::uint32_t sweep_ = 0;
  Links links_;
  Addresses addresses_;
  std::unordered_map<DWORD, const Standing*> by_context_;
  DWORD next_context_ = 1;
  std::map<DWORD, Held> held_;  ///< by interface index
  std::uint64_t changes_ = 1;
  std::uint64_t link_changes_ = 1;
};
