// A host held in memory, as a description lays it out.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/host/host.h"
#include "platform/host/registry.h"
#include "platform/simulated/host_description.h"

class SimulatedHost : public Host {
 public:
  explicit SimulatedHost(HostDescription description);

  [[nodiscard]] std::string_view kind() const override { return "simulated host"; }
  [[nodiscard]] const HostVersion& version() const override { return version_; }
  [[nodiscard]] const std::string& user_name() override { return user_; }
  [[nodiscard]] bool has_library(std::string_view library) const override;
  [[nodiscard]] bool has_function(std::string_view library,
                                  std::string_view function) const override;
  [[nodiscard]] DWORD read_adapters(HostTable<HostAdapter>& adapters) override;
  [[nodiscard]] DWORD read_addresses(HostTable<HostAddress>& addresses) override;
  [[nodiscard]] DWORD find_key(std::string_view path) override;
  [[nodiscard]] DWORD find_value(std::string_view path, std::string_view name,
                                 const RegistryValue*& value) override;

  /// Refuses what is not an address of a host or not a mask (87), an address that the host has
  /// already (5010), and an unknown interface (55).
  [[nodiscard]] DWORD add_address(DWORD address, DWORD mask, DWORD interface_index,
                                  DWORD& context) override;
  /// Refuses an unknown context (1168).
  [[nodiscard]] DWORD delete_address(DWORD context) override;
  [[nodiscard]] DWORD set_admin_status(DWORD interface_index, DWORD status) override;
  /// Refuses an unknown adapter (2) and a position outside its lists (87).
  [[nodiscard]] DWORD change_listed_address(std::string_view adapter, DWORD position, DWORD address,
                                            DWORD mask) override;
  [[nodiscard]] DWORD create_key(std::string_view path) override;
  [[nodiscard]] DWORD set_value(std::string_view path, std::string_view name,
                                RegistryValue&& value) override;
  void sleep(DWORD milliseconds) override;
  [[nodiscard]] std::optional<ScriptedFault> next_fault(std::string_view function) override;

  /// Writes down every change and every wait that is asked of the host from now on, one line each,
  /// in order.
  void keep_diary() { keeps_diary_ = true; }
  [[nodiscard]] const std::vector<std::string>& diary() const { return diary_; }

 private:
  /// Ordered by the address in host byte order; 0.0.0.0 may stand several times.
  using Addresses = std::multimap<std::uint32_t, HostAddress>;

  /// A fault and the calls of its function so far.
  struct Script {
    FaultDescription fault;
    std::uint64_t calls = 0;
  };

  void describe_adapter(AdapterDescription& adapter);
  void describe_registry(HostDescription& description);
  DWORD insert_address(DWORD address, DWORD mask, DWORD interface_index);
  void erase_address(Addresses::iterator address);
  [[nodiscard]] HostAdapter* find_adapter(DWORD interface_index);
  void note(const std::string& line);

  HostVersion version_;
  std::string user_;
  bool sleeps_;
  std::vector<HostDescription::Library> libraries_;
  std::vector<HostAdapter> adapters_;
  Generation adapters_generation_ = Generation::first();
  HostTable<HostAdapter> adapter_rows_;
  Addresses addresses_;
  Generation addresses_generation_ = Generation::first();
  std::unordered_map<DWORD, Addresses::iterator> by_context_;
  DWORD next_context_ = 1;
  HostTable<HostAddress> address_rows_;
  Registry registry_;
  std::vector<Script> scripts_;
  bool keeps_diary_ = false;
  std::vector<std::string> diary_;
};
