#include "brenlo/src/address.h"

#include <winsock2.h>

#include <algorithm>
#include <iterator>

#include "base/dotted.h"
#include "shared/include/utils.h"

AddressSlot::AddressSlot(const char* address_text, const char* mask_text, std::uint32_t added_here)
    : nte_context_(0), added_here_(added_here) {
  set_address(address_text);
  set_mask(mask_text);
}

AddressSlot::AddressSlot(std::uint32_t address, std::uint32_t mask, std::uint32_t added_here)
    : nte_context_(0), added_here_(added_here) {
  set_address_value(address);
  set_mask_value(mask);
}

void AddressSlot::set_address(const char* text) {
  copy_cut(address_text_, text);
  address_ = inet_addr(address_text_);
}

void AddressSlot::set_mask(const char* text) {
  copy_cut(mask_text_, text);
  mask_ = inet_addr(mask_text_);
}

void AddressSlot::set_address_value(std::uint32_t address) {
  address_ = address;
  // Not by inet_ntoa, which wants sockets started on the oldest hosts, and half the time of a
  // refresh.
  write_dotted(address_text_, address);
}

void AddressSlot::set_mask_value(std::uint32_t mask) {
  mask_ = mask;
  write_dotted(mask_text_, mask);
}

const char* blank_address(std::int32_t /*slot_index*/) { return "0.0.0.0"; }

const char* blank_mask(std::int32_t /*slot_index*/) { return "0.0.0.0"; }

Ipv6Slot::Ipv6Slot(const std::uint16_t (&groups)[8]) {
  std::copy(std::begin(groups), std::end(groups), std::begin(groups_));
}
