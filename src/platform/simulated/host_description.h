// A host as a text file describes it (TOML). docs/host-descriptions.md lists the keys.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/host/host.h"

/// In network byte order.
struct AddressDescription {
  DWORD address;
  DWORD mask;

  bool operator==(const AddressDescription&) const = default;
};

struct AdapterDescription {
  std::string name;
  std::string description;
  std::optional<std::string> connection;
  DWORD index = 0;
  DWORD type = MIB_IF_TYPE_ETHERNET;
  std::vector<BYTE> hardware_address;  ///< up to 8 bytes
  std::vector<AddressDescription> addresses;
  std::vector<std::string> gateways;
  DWORD blank_slots = 0;
  bool bound = true;

  bool operator==(const AdapterDescription&) const = default;
};

/// One line of a [registry] table; without a value the host has none of that name.
struct RegistryDescription {
  std::string path;
  std::string name;
  std::optional<RegistryValue> value;

  bool operator==(const RegistryDescription&) const = default;
};

struct FaultDescription {
  std::string function;
  ScriptedFault fault;
  std::uint64_t skip = 0;
  std::optional<std::uint64_t> times;  ///< none: every call that follows

  bool operator==(const FaultDescription&) const = default;
};

struct HostDescription {
  HostVersion version;
  std::string user;
  /// For each library that is described: whether it is there, and the functions it has, or none
  /// for all of them.
  struct Library {
    std::string name;
    bool present = true;
    std::optional<std::vector<std::string>> functions;

    bool operator==(const Library&) const = default;
  };
  std::vector<Library> libraries;
  bool sleep = true;
  std::vector<AdapterDescription> adapters;
  std::vector<std::string> registry_keys;
  std::vector<RegistryDescription> registry;
  std::vector<FaultDescription> faults;

  bool operator==(const HostDescription&) const = default;
};

/// What is wrong with a description, as "FILE:LINE: what is wrong".
class DescriptionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a description from a file, or from a text that stands in `file`. Throw DescriptionError.
[[nodiscard]] HostDescription read_description(const std::string& file);
[[nodiscard]] HostDescription parse_description(const std::string& text, const std::string& file);

/// The description in hosts/default.toml, compiled into the program.
[[nodiscard]] HostDescription default_description();
