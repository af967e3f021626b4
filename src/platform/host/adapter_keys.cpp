#include "platform/host/adapter_keys.h"

#include "base/text.h"

namespace {

constexpr std::string_view INTERFACES_KEY =
    "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\";
constexpr std::string_view LINKAGE_KEY = "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Linkage";
constexpr std::string_view NETWORK_KEY =
    "SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\";

std::string joined(std::string_view first, std::string_view second, std::string_view third = {}) {
  std::string text;
  text.reserve(first.size() + second.size() + third.size());
  return text.append(first).append(second).append(third);
}

}  // namespace

std::string interface_key(std::string_view adapter) { return joined(INTERFACES_KEY, adapter); }

std::string_view adapter_of_interface_key(std::string_view path) {
  const bool below = begins_ignoring_case(path, INTERFACES_KEY);
  return below ? path.substr(INTERFACES_KEY.size()) : std::string_view();
}

void set_address_lists(Registry::Key& key, RegistryValue addresses, RegistryValue masks) {
  key.set("IPAddress", std::move(addresses));
  key.set("SubnetMask", std::move(masks));
}

void clear_address_lists(Registry::Key& key) {
  key.erase("IPAddress");
  key.erase("SubnetMask");
}

void set_gateways(Registry::Key& key, const std::vector<std::string>& gateways) {
  key.set("DefaultGateway", list_value(gateways));
}

void set_connection(Registry& registry, std::string_view adapter, std::string_view name) {
  registry.key(joined(NETWORK_KEY, adapter, "\\Connection")).set("Name", text_value(name));
}

void BindingValue::add(std::string_view adapter) { bindings_.add(joined("\\Device\\", adapter)); }

void BindingValue::set_in(Registry& registry) {
  registry.key(LINKAGE_KEY).set("Bind", bindings_.take());
}
