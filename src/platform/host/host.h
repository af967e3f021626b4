// What the layer asks of a machine. The answers are in the platform's terms: rows, contexts, codes
// (0 for success). Pointers stand until the same is asked again, or the host is asked to change
// something.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

#include <iphlpapi.h>

#include "base/not_copied.h"
#include "platform/host/generation.h"

struct HostVersion {
  DWORD platform_id = VER_PLATFORM_WIN32_NT;
  DWORD major = 5;
  DWORD minor = 1;
  std::string service_pack;

  bool operator==(const HostVersion&) const = default;
};

struct HostAdapter {
  std::string name;
  std::vector<std::string> gateways;
  MIB_IFROW row;
};

/// Address and mask in network byte order. An interface that holds no address may have a row with
/// the address 0.0.0.0 and the context 0.
struct HostAddress {
  DWORD address = 0;
  DWORD mask = 0;
  DWORD interface_index = 0;
  DWORD context = 0;
};

/// One kind of thing that a host holds, as it stands now.
template <typename Row>
struct HostTable {
  std::shared_ptr<const std::vector<Row>> rows;  ///< stand as long as the caller keeps them
  Generation generation;
};

struct RegistryValue {
  DWORD type = REG_NONE;
  std::string data;  ///< the bytes, with whatever NULs the type calls for

  bool operator==(const RegistryValue&) const = default;
};

struct ScriptedFault {
  DWORD code = 0;
  bool raise = false;  ///< an access violation instead of a result

  bool operator==(const ScriptedFault&) const = default;
};

/// A machine. What most machines answer alike need not be said by each.
class Host : NotCopied {
 public:
  virtual ~Host() = default;

  /// What the operator calls it: "simulated host" or "this machine".
  [[nodiscard]] virtual std::string_view kind() const = 0;

  [[nodiscard]] virtual const HostVersion& version() const = 0;

  [[nodiscard]] virtual const std::string& user_name() = 0;

  /// Whether a library, named in lower case without its extension, is there, and a function in it.
  [[nodiscard]] virtual bool has_library(std::string_view /*library*/) const { return true; }
  [[nodiscard]] virtual bool has_function(std::string_view /*library*/,
                                          std::string_view /*function*/) const {
    return true;
  }

  /// The adapters, in the host's own order.
  [[nodiscard]] virtual DWORD read_adapters(HostTable<HostAdapter>& adapters) = 0;

  /// The addresses of all adapters, in ascending order.
  [[nodiscard]] virtual DWORD read_addresses(HostTable<HostAddress>& addresses) = 0;

  /// Registry paths are relative to HKEY_LOCAL_MACHINE; their names ignore case. What the registry
  /// does not hold is answered with 2 (ERROR_FILE_NOT_FOUND).
  [[nodiscard]] virtual DWORD find_key(std::string_view path) = 0;
  [[nodiscard]] virtual DWORD find_value(std::string_view path, std::string_view name,
                                         const RegistryValue*& value) = 0;

  /// Adds an address (network byte order) to an interface and gives its context.
  [[nodiscard]] virtual DWORD add_address(DWORD address, DWORD mask, DWORD interface_index,
                                          DWORD& context) = 0;
  [[nodiscard]] virtual DWORD delete_address(DWORD context) = 0;

  /// Sets the administrative status of an interface.
  [[nodiscard]] virtual DWORD set_admin_status(DWORD interface_index, DWORD status) = 0;

  /// The DHCP client service: puts an address at a position of an adapter's registry lists and into
  /// force; 0.0.0.0 takes the one there away.
  [[nodiscard]] virtual DWORD change_listed_address(std::string_view /*adapter*/,
                                                    DWORD /*position*/, DWORD /*address*/,
                                                    DWORD /*mask*/) {
    return ERROR_CALL_NOT_IMPLEMENTED;
  }

  /// A registry that cannot be written takes keys that it has.
  [[nodiscard]] virtual DWORD create_key(std::string_view path) {
    return find_key(path) == NO_ERROR ? NO_ERROR : ERROR_ACCESS_DENIED;
  }
  [[nodiscard]] virtual DWORD set_value(std::string_view /*path*/, std::string_view /*name*/,
                                        RegistryValue&& /*value*/) {
    return ERROR_ACCESS_DENIED;
  }

  virtual void sleep(DWORD milliseconds) = 0;

  /// What the host's script has for a call of a function, by its name, that is being made.
  [[nodiscard]] virtual std::optional<ScriptedFault> next_fault(std::string_view /*function*/) {
    return std::nullopt;
  }
};

/// The host behind the layer: the one installed, or on first use the one that the environment
/// variable ZARVO_HOST names. A description that cannot be used ends the process with one line on
/// standard error and status 2.
[[nodiscard]] Host& current_host();

/// Puts a host behind the layer and gives back the one before, if any.
std::unique_ptr<Host> install_host(std::unique_ptr<Host> host);

/// Another for each host that was installed or chosen.
[[nodiscard]] Generation host_generation();
