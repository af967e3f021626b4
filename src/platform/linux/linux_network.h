// The links and IPv4 addresses of this machine's network namespace: dumped once over rtnetlink,
// then followed by the kernel's notifications, however much others change meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>

#include "platform/host/generation.h"
#include "platform/host/host.h"
#include "platform/linux/rtnetlink.h"

class LinuxNetwork {
 public:
  /// The requests must outlive it.
  explicit LinuxNetwork(RtRequests& requests) : requests_(requests) {}

  /// An address of an interface. The kernel tells addresses apart by address, interface, mask and
  /// peer, which is the address itself but on point-to-point links (network byte order).
  struct Entry : HostAddress {
    DWORD peer = 0;
    std::uint32_t created = 0;  ///< when, as the kernel says: a later one in its place has another
    std::uint32_t dump = 0;     ///< the dump that it was last seen in or after
    bool confirmed = false;     ///< the kernel showed it; an addition was asked for until then
    bool secondary = false;     ///< goes with the primary of its subnet unless that is promoted
  };

  struct Link {
    HostAdapter adapter;  ///< without gateways
    std::uint32_t dump;   ///< as an entry has it
  };

  /// Brings links and addresses up to date. An error number of the system, 0 for success: a dump
  /// that changes of the host make stale is no failure.
  [[nodiscard]] int follow();

  /// By interface index.
  [[nodiscard]] const std::map<DWORD, Link>& links() const { return links_; }
  /// In ascending order of address (in host byte order), interface, mask and peer.
  [[nodiscard]] const std::deque<Entry>& addresses() const { return addresses_; }
  /// Of anything; of a link, or of whether it holds addresses; of an interface's addresses.
  [[nodiscard]] Generation generation() const { return generation_; }
  [[nodiscard]] Generation link_generation() const { return link_generation_; }
  [[nodiscard]] Generation generation_of(DWORD interface_index) const {
    return held_by(interface_index).generation;
  }
  /// How many addresses an interface holds.
  [[nodiscard]] std::size_t address_count(DWORD interface_index) const {
    return held_by(interface_index).count;
  }

  [[nodiscard]] bool has_address(DWORD address) const;
  /// The address with a context; null when there is none.
  [[nodiscard]] const Entry* find_context(DWORD context) const;

  /// Adds an entry, with a fresh context, for an address whose addition will be asked for.
  [[nodiscard]] Entry add_unconfirmed(const HostAddress& address);
  /// The request for the last one was sent: a notification that names another one is of another's.
  void expect_notification(const RtOrigin& origin) { expected_ = origin; }
  /// Removes the entry with this context, which was not added after all.
  void remove_unconfirmed(DWORD context);

 private:
  // A stress run adds at the end and deletes from the beginning.
  using Entries = std::deque<Entry>;

  /// The addresses of one interface.
  struct HeldAddresses {
    std::size_t count = 0;
    Generation generation = Generation::first();
  };

  /// What a dump cannot be sure to have shown.
  struct Stale {
    bool everything = false;
    std::set<DWORD> interfaces;  ///< their addresses

    [[nodiscard]] bool any() const { return everything || !interfaces.empty(); }
  };

  [[nodiscard]] int resynchronise();
  [[nodiscard]] int dump(const Stale& stale, int attempt);
  [[nodiscard]] int dump_links();
  [[nodiscard]] int dump_addresses(DWORD interface_index, int attempt);
  [[nodiscard]] int apply_notifications(Stale* stale);
  void remove_unseen();

  void update_link(const nlmsghdr& message);
  [[nodiscard]] bool remove_link(const nlmsghdr& message);
  void merge(Entries& dumped);
  [[nodiscard]] bool confirm(const Entry& told, bool is_own);
  void update_address(const Entry& told, bool is_own);
  void remove_address(const Entry& entry);
  [[nodiscard]] Entries::iterator find(const Entry& entry);
  void insert(const Entry& entry);
  void erase(const Entries::iterator& entry);
  void note_removal(DWORD interface_index);
  void note_addition(DWORD interface_index);
  void note_link_change();
  [[nodiscard]] HeldAddresses held_by(DWORD interface_index) const;
  [[nodiscard]] DWORD new_context();

  RtRequests& requests_;
  RtNotifications notifications_{RTMGRP_LINK | RTMGRP_IPV4_IFADDR};
  bool is_synchronised_ = false;  ///< everything was dumped, and no notification was lost since
  std::uint32_t dump_ = 0;
  std::map<DWORD, Link> links_;
  Entries addresses_;
  std::map<DWORD, HeldAddresses> held_;  ///< by interface index
  DWORD last_context_ = 0;
  bool contexts_recur_ = false;  ///< all have been given once
  RtOrigin expected_;
  Generation generation_ = Generation::first();
  Generation link_generation_ = Generation::first();
};
