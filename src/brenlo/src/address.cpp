#include "brenlo/src/address.h"

#include <winsock2.h>

#include <algorithm>
#include <iterator>

#include "shared/include/utils.h"

namespace {

/// The dotted text of a value; stands until the next call.
const char* dotted(std::uint32_t value) {
  in_addr address = {};
  address.s_addr = value;
  return inet_ntoa(address);
}

}  // namespace

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
  copy_cut(address_text_, dotted(address));
}

void AddressSlot::set_mask_value(std::uint32_t mask) {
  mask_ = mask;
  copy_cut(mask_text_, dotted(mask));
}

const char* blank_address(std::int32_t /*slot_index*/) { return "0.0.0.0"; }

const char* blank_mask(std::int32_t /*slot_index*/) { return "0.0.0.0"; }

Ipv6Slot::Ipv6Slot(const std::uint16_t (&groups)[8]) {
  std::copy(std::begin(groups), std::end(groups), std::begin(groups_));
}
