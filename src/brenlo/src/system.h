// The host as the tool sees it: the IP management mechanism in force and the network adapters found
// on it. The command interpreter constructs one System and works on it to the end.
//
// A failure is reported in the message log and, unless an operation says otherwise, not flushed:
// the caller adds its own report and flushes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "base/not_copied.h"
#include "brenlo/src/adapter.h"

constexpr int MAX_ADAPTERS = 32;
constexpr int ADAPTER_REFRESH_INTERVAL = 1000;

class System : NotCopied {
 public:
  /// Binds both platform libraries, chooses the mechanism and discovers the adapters.
  System();
  ~System();

  [[nodiscard]] std::int32_t mechanism() const { return mechanism_; }
  [[nodiscard]] std::int32_t adapter_count() const { return adapter_count_; }
  /// The adapter in a slot below adapter_count; null when it could not be allocated.
  [[nodiscard]] Adapter* adapter(std::int32_t slot) const { return adapters_[slot].get(); }
  /// The slot of the first active adapter, -1 while there is none or it was not determined.
  [[nodiscard]] std::int32_t first_active() const { return first_active_; }

  /// Sets the mechanism from what the bindings offer, or as the environment forces it. Always 0.
  int choose_ip_mechanism();

  /// Fills the adapter table. 0, or -1 (reported and flushed) when its source could not be read.
  int discover_adapters();

  /// Destroys the adapters. Always 0.
  int release_adapters();

  /// The adapter that a name selects, or that no name (null) stands for: the first active one with
  /// the flag set, otherwise the one in slot 0. Null when there is none.
  [[nodiscard]] Adapter* find_adapter(const char* name, bool use_first_active) const;

  /// Finds the first active adapter, remembers it and returns its slot, or -1. Under the DHCP
  /// client mechanism this adds and deletes an address on each adapter that it looks at.
  int find_first_active_adapter();

  /// Writes the list of configured interfaces and the first active one.
  void list_adapters();

  /// 1 when the named adapter, or with no name any adapter, holds the address; else 0.
  [[nodiscard]] int has_address(const char* name, const char* address) const;

  /// Re-reads every adapter's addresses. Always 0.
  int refresh_adapters();

  /// The address commands: 0 for success, -1 for failure. With no name (null) they work on the
  /// first active adapter.
  [[nodiscard]] int add_address(const char* name, const char* address, const char* mask);
  [[nodiscard]] int delete_address(const char* name, const char* address);
  [[nodiscard]] int purge_address(const char* name, const char* address);

  /// Add and delete an IPv6 address, trying up to three times. 1 when an attempt succeeded, 0 when
  /// none did, -1 when the adapter was not found.
  int add_ipv6_address(const char* name, const char* address);
  int delete_ipv6_address(const char* name, const char* address);

  /// Gives the hardware addresses by which the host is recognised: those of the adapters that are
  /// not excluded, or on older releases one made from a UUID. The pointers stand while the System
  /// does, the one from a UUID until the next is made. Returns their number, or -1.
  [[nodiscard]] int get_system_hardware_addresses(
      const std::uint8_t* (&addresses)[MAX_ADAPTERS]) const;

  /// Appends blank entries to an adapter's registry lists. Returns its number of blank slots
  /// afterwards, or -1.
  [[nodiscard]] int pad_blank_addresses(const char* name, std::int32_t count);

  /// Gives the current address of an adapter, cut to `size` bytes. 0 or -1.
  [[nodiscard]] int read_adapter_settings(const char* name, char* buffer, std::size_t size);

  /// Writes "{DESCRIPTION} " for every active adapter into a buffer with room for all of them:
  /// NAME_SIZE + 3 bytes each and one more. Always 0.
  [[nodiscard]] int list_active_adapter_names(char* buffer) const;

  /// Writes the report of the host and its adapters.
  void print_report() const;

  /// Looks the host's address up in the registry; gives it cut to 199 characters. 0 or -1.
  [[nodiscard]] int get_host_address(char (&buffer)[200]) const;

 private:
  using AdapterOperation = int (Adapter::*)(const char* address);

  /// Null where one could not be allocated.
  [[nodiscard]] std::span<const std::unique_ptr<Adapter>> adapters() const {
    return {adapters_, static_cast<std::size_t>(adapter_count_)};
  }
  [[nodiscard]] int discover_bindings();
  [[nodiscard]] int discover_interfaces();
  void take_adapter(std::unique_ptr<Adapter> adapter);
  void count_operation();
  int change_ipv6_address(const char* name, const char* address, AdapterOperation operation);
  [[nodiscard]] int remove_address(const char* name, const char* address,
                                   AdapterOperation operation);

  std::int32_t mechanism_ = MECHANISM_NONE;
  std::int32_t adapter_count_ = 0;
  std::unique_ptr<Adapter> adapters_[MAX_ADAPTERS];
  std::int32_t first_active_ = -1;
};

/// Makes a 6-byte hardware address from the last group of a fresh UUID, in a buffer that every call
/// overwrites. 0 and the address, or -1 after a report.
[[nodiscard]] int make_uuid_hardware_address(const std::uint8_t*& address);

/// The two lookups behind System::get_host_address: through the TCP/IP binding list of the NT
/// family, and in the network transport key of the 95 family. 0 or -1.
[[nodiscard]] int get_host_address_from_bindings(char (&buffer)[200]);
[[nodiscard]] int get_host_address_from_nettrans(char (&buffer)[200]);
