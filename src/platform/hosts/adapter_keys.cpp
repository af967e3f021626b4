#include "platform/hosts/adapter_keys.h"

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
  const std::size_t length = INTERFACES_KEY.size();
  const bool below = EqualIgnoringCase{}(path.substr(0, length), INTERFACES_KEY);
  return below ? path.substr(length) : std::string_view();
}

void enter_address_lists(Registry::Key& key, RegistryValue addresses, RegistryValue masks) {
  key.set("IPAddress", std::move(addresses));
  key.set("SubnetMask", std::move(masks));
}

void enter_gateways(Registry::Key& key, const std::vector<std::string>& gateways) {
  key.set("DefaultGateway", list_value(gateways));
}

void enter_connection(Registry& registry, std::string_view adapter, std::string_view name) {
  registry.key(joined(NETWORK_KEY, adapter, "\\Connection")).set("Name", text_value(name));
}

void BindingList::add(std::string_view adapter) { bindings_.add(joined("\\Device\\", adapter)); }

void BindingList::enter(Registry& registry) {
  registry.key(std::string(LINKAGE_KEY)).set("Bind", bindings_.take());
}
