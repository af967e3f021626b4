// Where the registry keeps what it holds of a host's adapters.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/host/registry.h"

/// The path of the key with an adapter's TCP/IP parameters.
[[nodiscard]] std::string interface_key(std::string_view adapter);

/// The adapter whose key with TCP/IP parameters a path names; empty for other paths.
[[nodiscard]] std::string_view adapter_of_interface_key(std::string_view path);

/// Set and clear lists in the key of an adapter: its addresses with their masks, and its gateways.
void set_address_lists(Registry::Key& key, RegistryValue addresses, RegistryValue masks);
void clear_address_lists(Registry::Key& key);
void set_gateways(Registry::Key& key, const std::vector<std::string>& gateways);

/// Sets the name under which the system shows an adapter.
void set_connection(Registry& registry, std::string_view adapter, std::string_view name);

/// The TCP/IP service's list of the adapters that it is bound to, in the making.
class BindingValue {
 public:
  void add(std::string_view adapter);
  void set_in(Registry& registry);

 private:
  StringListValue bindings_;
};
