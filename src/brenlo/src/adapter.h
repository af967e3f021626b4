// One network adapter: its identity, the table of its IPv4 addresses, the IPv6 addresses that the
// tool added, and its default gateways.
//
// Operations return 0 for success and -1 for failure unless they say otherwise; a failure is
// reported in the message log and, unless an operation says so, not flushed.
#pragma once

#include <winsock2.h>

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "base/not_copied.h"
#include "brenlo/src/address.h"

/// How the host's addresses are changed.
enum IpMechanism : std::int32_t {
  MECHANISM_NONE = 0,
  MECHANISM_DHCP_CLIENT = 1,
  MECHANISM_IP_HELPER = 2,
};

constexpr int MAX_GATEWAYS = 100;
constexpr int NAME_SIZE = 256;
/// Room for any text that current_ip_address gives.
constexpr int ADDRESS_BUFFER_SIZE = 1024;

/// An address with the context under which the IP Helper knows it.
struct SavedContext {
  std::uint32_t address;
  std::uint32_t nte_context;
};

class Adapter : NotCopied {
 public:
  /// `text`: the binding name (DHCP client) or the interface description (IP Helper). Reads the
  /// adapter's addresses, gateways and connection name; what cannot be read is reported and
  /// written, and the adapter stands without it.
  Adapter(const char* text, std::uint32_t index, std::uint32_t type,
          const std::uint8_t (&hardware_address)[6], std::uint32_t mechanism);
  ~Adapter();

  [[nodiscard]] std::uint32_t mechanism() const { return mechanism_; }
  /// The system name; empty under the DHCP client mechanism.
  [[nodiscard]] const char* name() const { return name_; }
  [[nodiscard]] const char* connection_name() const { return connection_name_; }
  /// The name by which the operator selects the adapter.
  [[nodiscard]] const char* description() const { return description_; }
  [[nodiscard]] std::uint32_t index() const { return index_; }
  [[nodiscard]] std::uint32_t type() const { return type_; }
  [[nodiscard]] const std::uint8_t (&hardware_address() const)[6] { return hardware_address_; }
  [[nodiscard]] std::int32_t address_count() const { return address_count_; }
  [[nodiscard]] std::int32_t address_capacity() const { return address_capacity_; }
  /// The entry at a position below address_count, or null.
  [[nodiscard]] const AddressSlot* address_slot(std::int32_t position) const {
    return slot(position);
  }
  [[nodiscard]] std::int32_t gateway_count() const { return gateway_count_; }
  [[nodiscard]] const char* gateway(std::int32_t position) const {
    return gateways_[position].get();
  }

  /// Empties the address table and reads it again: the registry's lists slot by slot (DHCP client)
  /// or the interface's rows of the IP address table in ascending order (IP Helper).
  [[nodiscard]] int read_tcpip_settings();

  /// Writes the addresses that are not blank, followed by `blank_count` blank entries, to the
  /// registry and reads the table again. DHCP client only; otherwise 0 without effect.
  [[nodiscard]] int write_tcpip_settings(std::int32_t blank_count);

  /// Reads the address table again and keeps the contexts of the addresses still there. IP Helper
  /// only. Always 0; a failed read is reported and written.
  int refresh_addresses();

  /// Empties the gateway list and reads it again; under the IP Helper also reads the system name.
  [[nodiscard]] int read_gateways();

  /// Gives the adapter's primary address as the registry has it, cut to `size` bytes.
  int current_ip_address(char* buffer, std::size_t size) const;

  /// 1 when the table holds the address, else 0.
  [[nodiscard]] int has_address(const char* address_text) const;

  /// The number of blank slots under the DHCP client mechanism, else 0.
  [[nodiscard]] std::int32_t count_blank_slots() const;

  /// Binary search for an address (network byte order). Returns 0 and the entry's position, or -1
  /// and the position at which the address belongs.
  [[nodiscard]] int find_address_slot(std::uint32_t address, std::int32_t& position) const;

  /// Gives a pair for each entry in table order, as a list that the caller owns; a null list when
  /// memory is exhausted. Always 0.
  int save_contexts(std::unique_ptr<SavedContext[]>& saved, std::int32_t& count) const;

  /// Sets address and context of the saved addresses that the table still holds. -1 for a null
  /// list.
  int restore_contexts(std::unique_ptr<SavedContext[]> saved, std::int32_t count);

  /// Make room for one more entry. When memory is exhausted the table stays as it was.
  [[nodiscard]] int grow_address_table();
  int grow_ipv6_table();

  void clear_addresses();
  void clear_ipv6_addresses();
  void clear_gateways();

  /// Tells whether the adapter takes addresses through the DHCP client, by adding one and deleting
  /// it again. 0 without action under any other mechanism.
  [[nodiscard]] int probe_address_change();

  /// Puts an address on the adapter and into the table. The mask "0.0.0.0" stands for the default
  /// mask of the address's class.
  [[nodiscard]] int add_address(const char* address_text, const char* mask_text);

  /// Removes an address that the tool added.
  [[nodiscard]] int delete_address(const char* address_text);

  /// Add and delete an IPv6 address by running netsh for the adapter's connection. The table lists
  /// what the tool added and the host did not have before; a delete works on nothing else (0). A
  /// command that fails has the connection's name read again.
  int add_ipv6_address(const char* address_text);
  int delete_ipv6_address(const char* address_text);

  /// 1 and the position of the first entry with these groups, or 0.
  [[nodiscard]] int find_ipv6_slot(const std::uint16_t (&groups)[8], std::int32_t& position) const;
  [[nodiscard]] std::int32_t ipv6_count() const { return ipv6_count_; }

  /// Removes an address whoever added it, as far as the mechanism allows.
  [[nodiscard]] int purge_address(const char* address_text);

 private:
  [[nodiscard]] int read_registry_addresses();
  [[nodiscard]] int read_interface_addresses();
  [[nodiscard]] AddressSlot* slot(std::int32_t position) const {
    return addresses_.get()[position];
  }
  [[nodiscard]] int append_slot(std::unique_ptr<AddressSlot> entry);
  [[nodiscard]] int read_registry_gateways();
  [[nodiscard]] int read_interface_gateways();
  [[nodiscard]] int append_gateway(std::string_view text);
  [[nodiscard]] AddressSlot* find_listed(std::uint32_t address, std::int32_t& position) const;
  [[nodiscard]] int add_through_service(const char* address_text, const char* mask_text,
                                        const char* effective_mask);
  [[nodiscard]] int add_to_interface(const char* address_text, const char* effective_mask);
  [[nodiscard]] int insert_added(std::uint32_t address, std::uint32_t mask,
                                 std::uint32_t nte_context);
  [[nodiscard]] int remove_address(const char* address_text, bool any_owner);
  [[nodiscard]] int delete_through_service(const char* address_text);
  [[nodiscard]] int delete_from_interface(const char* address_text, bool any_owner);
  [[nodiscard]] bool has_ipv6_key(const char* address_text) const;
  void record_ipv6_address(const char* address_text);

  std::uint32_t mechanism_;
  char name_[NAME_SIZE];
  char connection_name_[NAME_SIZE];
  char description_[NAME_SIZE];
  std::uint32_t index_;
  std::uint32_t type_;
  std::uint8_t hardware_address_[6];
  std::int32_t address_count_ = 0;
  std::int32_t address_capacity_ = 0;
  std::int32_t ipv6_count_ = 0;
  std::int32_t ipv6_capacity_ = 0;
  // Plain pointers in the arrays, owned by the adapter: an insertion moves thousands at once.
  std::unique_ptr<AddressSlot*[]> addresses_;
  std::unique_ptr<Ipv6Slot*[]> ipv6_addresses_;
  std::int32_t gateway_count_ = 0;
  std::unique_ptr<char[]> gateways_[MAX_GATEWAYS];
};

/// Reads the display name of the connection of an adapter (its system name) into a buffer of
/// `capacity` bytes. A failure leaves the buffer as it was and is not reported.
int read_connection_name(const char* system_name, char* buffer, std::uint32_t capacity);

/// The context of the first IP Helper address entry, of any adapter, with exactly this text; 0 when
/// there is none.
[[nodiscard]] std::uint32_t find_nte_context(const char* address_text);
