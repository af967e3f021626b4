// The address entries of an adapter: text form and value form of an address or mask always agree.
#pragma once

#include <cstdint>

/// The size of a slot's texts, terminator included.
constexpr int SLOT_TEXT_SIZE = 20;

/// One IPv4 address of an adapter. Values are in network byte order; texts are cut to 19
/// characters, and the value is that of the cut text. A text that is not an address has the value
/// 255.255.255.255.
class AddressSlot {
 public:
  AddressSlot(const char* address_text, const char* mask_text, std::uint32_t added_here);
  AddressSlot(std::uint32_t address, std::uint32_t mask, std::uint32_t added_here);

  [[nodiscard]] const char* address_text() const { return address_text_; }
  [[nodiscard]] std::uint32_t address() const { return address_; }
  [[nodiscard]] const char* mask_text() const { return mask_text_; }
  [[nodiscard]] std::uint32_t mask() const { return mask_; }
  [[nodiscard]] std::uint32_t nte_context() const { return nte_context_; }
  [[nodiscard]] std::uint32_t added_here() const { return added_here_; }

  void set_address(const char* text);
  void set_mask(const char* text);
  void set_address_value(std::uint32_t address);
  void set_mask_value(std::uint32_t mask);
  void set_nte_context(std::uint32_t nte_context) { nte_context_ = nte_context; }
  void set_added_here(std::uint32_t added_here) { added_here_ = added_here; }

  /// True when the address is 0.0.0.0.
  [[nodiscard]] bool is_blank() const { return address_ == 0; }

 private:
  char address_text_[SLOT_TEXT_SIZE];
  std::uint32_t address_;
  char mask_text_[SLOT_TEXT_SIZE];
  std::uint32_t mask_;
  std::uint32_t nte_context_;  ///< what AddIPAddress gave; 0 when the tool did not add the address
  std::uint32_t added_here_;   ///< 1 when the tool put the address here through the DHCP client
};

/// The texts that blank the slot at `slot_index`: "0.0.0.0" for every slot.
[[nodiscard]] const char* blank_address(std::int32_t slot_index);
[[nodiscard]] const char* blank_mask(std::int32_t slot_index);

/// One IPv6 address that the tool added: its eight groups in the order of the text.
class Ipv6Slot {
 public:
  explicit Ipv6Slot(const std::uint16_t (&groups)[8]);

  [[nodiscard]] const std::uint16_t (&groups() const)[8] { return groups_; }

 private:
  std::uint16_t groups_[8];
};
