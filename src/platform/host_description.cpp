#include "platform/host_description.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <set>
#include <string_view>
#include <unordered_set>

#include "platform/registry.h"

#define TOML_EXCEPTIONS 0
// Without the parts of the library that bring the stream classes and their locales into the
// program.
#define TOML_ENABLE_FORMATTERS 0
#define TOML_FLOAT_CHARCONV 1
#define TOML_INT_CHARCONV 1
#include <toml++/toml.h>

namespace {

constexpr std::size_t MAX_HARDWARE_ADDRESS = 8;
constexpr DWORD MAX_BLANK_SLOTS = 10010;

/// A message of one line: what a file holds of control characters is shown as "?".
std::string joined(std::initializer_list<std::string_view> pieces) {
  std::string text;
  for (const std::string_view piece : pieces) text += piece;
  const auto is_control = [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), is_control, '?');
  return text;
}

/// Reads one document; every refusal names the line of the node that is wrong.
class Reader {
 public:
  explicit Reader(const std::string& file) : file_(file) {}

  HostDescription read(const toml::table& root) {
    check_keys(root, {"os", "libraries", "time", "adapters", "registry", "faults"});
    HostDescription host;
    if (const auto* os = child_table(root, "os")) read_os(*os, host);
    if (const auto* libraries = child_table(root, "libraries")) read_libraries(*libraries, host);
    if (const auto* time = child_table(root, "time")) {
      check_keys(*time, {"sleep"});
      read_bool(*time, "sleep", host.sleep);
    }
    for (const toml::table* adapter : child_tables(root, "adapters")) {
      host.adapters.push_back(read_adapter(*adapter));
    }
    if (const auto* registry = child_table(root, "registry")) read_registry(*registry, host);
    for (const toml::table* fault : child_tables(root, "faults")) {
      host.faults.push_back(read_fault(*fault));
    }
    return host;
  }

 private:
  [[noreturn]] void refuse(const toml::node& node, const std::string& what) const {
    throw DescriptionError(
        joined({file_, ":", std::to_string(node.source().begin.line), ": ", what}));
  }

  // ---- Nodes ----

  void check_keys(const toml::table& table, std::initializer_list<std::string_view> known) const {
    for (const auto& [key, node] : table) {
      if (std::find(known.begin(), known.end(), key.str()) == known.end()) {
        refuse(node, joined({"unknown key '", key.str(), "'"}));
      }
    }
  }

  const toml::table* child_table(const toml::table& table, std::string_view key) const {
    const toml::node* node = table.get(key);
    if (node == nullptr) return nullptr;
    if (!node->is_table()) refuse(*node, joined({"'", key, "' must be a table"}));
    return node->as_table();
  }

  std::vector<const toml::table*> child_tables(const toml::table& table,
                                               std::string_view key) const {
    std::vector<const toml::table*> tables;
    const toml::node* node = table.get(key);
    if (node == nullptr) return tables;
    const std::string wrong = joined({"'", key, "' must be an array of tables"});
    if (!node->is_array()) refuse(*node, wrong);
    for (const toml::node& element : *node->as_array()) {
      if (!element.is_table()) refuse(element, wrong);
      tables.push_back(element.as_table());
    }
    return tables;
  }

  std::string text_of(const toml::node& node, std::string_view key) const {
    if (!node.is_string()) refuse(node, joined({"'", key, "' must be a string"}));
    return node.as_string()->get();
  }

  std::int64_t number_of(const toml::node& node, std::string_view key, std::int64_t max) const {
    if (!node.is_integer()) refuse(node, joined({"'", key, "' must be an integer"}));
    const std::int64_t number = node.as_integer()->get();
    if (number < 0 || number > max) {
      refuse(node, joined({"'", key, "' must be from 0 to ", std::to_string(max)}));
    }
    return number;
  }

  bool read_text(const toml::table& table, std::string_view key, std::string& text) const {
    const toml::node* node = table.get(key);
    if (node == nullptr) return false;
    text = text_of(*node, key);
    return true;
  }

  bool read_number(const toml::table& table, std::string_view key, DWORD& number,
                   DWORD max = std::numeric_limits<DWORD>::max()) const {
    const toml::node* node = table.get(key);
    if (node == nullptr) return false;
    number = static_cast<DWORD>(number_of(*node, key, max));
    return true;
  }

  bool read_bool(const toml::table& table, std::string_view key, bool& flag) const {
    const toml::node* node = table.get(key);
    if (node == nullptr) return false;
    if (!node->is_boolean()) refuse(*node, joined({"'", key, "' must be true or false"}));
    flag = node->as_boolean()->get();
    return true;
  }

  template <typename Take>
  void read_texts(const toml::table& table, std::string_view key, Take take) const {
    const toml::node* node = table.get(key);
    if (node == nullptr) return;
    if (!node->is_array()) refuse(*node, joined({"'", key, "' must be an array of strings"}));
    for (const toml::node& element : *node->as_array()) take(element, text_of(element, key));
  }

  // ---- Parts of a host ----

  void read_os(const toml::table& os, HostDescription& host) const {
    check_keys(os, {"platform_id", "major", "minor", "service_pack", "user"});
    read_number(os, "platform_id", host.version.platform_id);
    read_number(os, "major", host.version.major);
    read_number(os, "minor", host.version.minor);
    read_text(os, "service_pack", host.version.service_pack);
    if (host.version.service_pack.size() >= sizeof OSVERSIONINFOA{}.szCSDVersion) {
      refuse(*os.get("service_pack"), "'service_pack' is too long");
    }
    read_text(os, "user", host.user);
  }

  void read_libraries(const toml::table& libraries, HostDescription& host) const {
    check_keys(libraries, {"iphlpapi", "dhcpcsvc", "kernel32", "ws2_32"});
    for (const auto& [key, node] : libraries) {
      HostDescription::Library library;
      library.name = key.str();
      if (node.is_boolean()) {
        read_bool(libraries, key, library.present);
      } else if (node.is_array()) {
        library.functions.emplace();
        read_texts(libraries, key, [&](const toml::node& element, const std::string& function) {
          const auto call = find_call(function);
          if (!call || library_of(*call) != library.name) {
            refuse(element, joined({"unknown function '", function, "'"}));
          }
          library.functions->push_back(function);
        });
      } else {
        refuse(node, joined({"'", library.name, "' must be true, false or an array of functions"}));
      }
      host.libraries.push_back(std::move(library));
    }
  }

  DWORD value_of(const toml::node& node, const std::string& text) const {
    in_addr address = {};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1 || text.find('\0') != std::string::npos) {
      refuse(node, joined({"'", text, "' is not an IPv4 address"}));
    }
    return address.s_addr;
  }

  AddressDescription address_of(const toml::node& node, const std::string& text) const {
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) refuse(node, joined({"'", text, "' must be ADDRESS/MASK"}));
    return {value_of(node, text.substr(0, slash)), value_of(node, text.substr(slash + 1))};
  }

  std::vector<BYTE> hardware_address_of(const toml::node& node, const std::string& text) const {
    const std::string wrong = joined({"'", text, "' is not a hardware address of 0 to 8 bytes"});
    std::vector<BYTE> bytes;
    for (std::size_t at = 0; at < text.size(); at += 3) {
      constexpr std::string_view DIGITS = "0123456789abcdef";
      const auto digit = [&](std::size_t i) {
        return i < text.size() ? DIGITS.find(static_cast<char>(text[i] | 0x20))
                               : std::string_view::npos;
      };
      const std::size_t high = digit(at);
      const std::size_t low = digit(at + 1);
      const bool ends = at + 2 == text.size();
      const bool goes_on = at + 3 < text.size() && text[at + 2] == '-';
      if (high > 15 || low > 15 || (!ends && !goes_on) || bytes.size() == MAX_HARDWARE_ADDRESS) {
        refuse(node, wrong);
      }
      bytes.push_back(static_cast<BYTE>(high << 4 | low));
    }
    return bytes;
  }

  AdapterDescription read_adapter(const toml::table& table) {
    check_keys(table, {"name", "description", "connection", "index", "type", "hardware_address",
                       "addresses", "gateways", "blank_slots", "bound"});
    AdapterDescription adapter;
    if (!read_text(table, "name", adapter.name)) refuse(table, "the adapter has no 'name'");
    if (!names_.insert(adapter.name).second) {
      refuse(*table.get("name"),
             joined({"'", adapter.name, "' is the name of another adapter too"}));
    }
    if (!read_number(table, "index", adapter.index)) refuse(table, "the adapter has no 'index'");
    if (!indices_.insert(adapter.index).second) {
      refuse(*table.get("index"),
             joined({std::to_string(adapter.index), " is the index of another adapter too"}));
    }
    if (!read_text(table, "description", adapter.description)) adapter.description = adapter.name;
    if (std::string text; read_text(table, "connection", text)) adapter.connection = text;
    read_number(table, "type", adapter.type);
    if (std::string text; read_text(table, "hardware_address", text)) {
      adapter.hardware_address = hardware_address_of(*table.get("hardware_address"), text);
    }
    std::set<DWORD> held;
    read_texts(table, "addresses", [&](const toml::node& node, const std::string& text) {
      adapter.addresses.push_back(address_of(node, text));
      const DWORD address = adapter.addresses.back().address;
      if (address != 0 && !held.insert(address).second) {
        refuse(node, joined({"the adapter has the address of '", text, "' twice"}));
      }
    });
    read_texts(table, "gateways", [&](const toml::node& node, const std::string& text) {
      static_cast<void>(value_of(node, text));
      adapter.gateways.push_back(text);
    });
    read_number(table, "blank_slots", adapter.blank_slots, MAX_BLANK_SLOTS);
    read_bool(table, "bound", adapter.bound);
    return adapter;
  }

  std::optional<RegistryValue> registry_value_of(const toml::node& node) const {
    if (const auto* text = node.as_string()) return text_value(text->get());
    if (const auto* list = node.as_array()) {
      std::vector<std::string> strings;
      for (const toml::node& element : *list) {
        strings.push_back(text_of(element, "each string of a list"));
      }
      return list_value(strings);
    }
    if (node.is_integer()) {
      const auto number = static_cast<DWORD>(
          number_of(node, "a registry number", std::numeric_limits<DWORD>::max()));
      return RegistryValue{REG_DWORD,
                           std::string(reinterpret_cast<const char*>(&number), sizeof number)};
    }
    if (node.is_boolean() && !node.as_boolean()->get()) return std::nullopt;
    refuse(node, "a registry value is a string, an array of strings, an integer or false");
  }

  void read_registry(const toml::table& registry, HostDescription& host) const {
    for (const auto& [path, node] : registry) {
      if (!node.is_table()) refuse(node, "a registry key must be a table of values");
      host.registry_keys.emplace_back(path.str());
      for (const auto& [name, value] : *node.as_table()) {
        host.registry.push_back(
            {std::string(path.str()), std::string(name.str()), registry_value_of(value)});
      }
    }
  }

  FaultDescription read_fault(const toml::table& table) const {
    check_keys(table, {"function", "code", "skip", "times", "raise"});
    FaultDescription fault;
    std::string function;
    if (!read_text(table, "function", function)) refuse(table, "the fault has no 'function'");
    const auto call = find_call(function);
    if (!call) refuse(*table.get("function"), joined({"unknown function '", function, "'"}));
    fault.call = *call;
    read_bool(table, "raise", fault.fault.raise);
    if (!read_number(table, "code", fault.fault.code) && !fault.fault.raise) {
      refuse(table, "the fault has no 'code'");
    }
    DWORD count = 0;
    if (read_number(table, "skip", count)) fault.skip = count;
    if (read_number(table, "times", count)) fault.times = count;
    return fault;
  }

  const std::string& file_;
  std::unordered_set<std::string, HashIgnoringCase, EqualIgnoringCase> names_;
  std::set<DWORD> indices_;
};

std::string file_text(const std::string& file) {
  const auto fail = [&]() -> std::string {
    throw DescriptionError(joined({file, ":0: cannot be read: ", std::strerror(errno)}));
  };
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"),
                                                               std::fclose);
  if (stream == nullptr) return fail();
  std::string text;
  char piece[16384];
  std::size_t length = 0;
  while ((length = std::fread(piece, 1, sizeof piece, stream.get())) > 0)
    text.append(piece, length);
  return std::ferror(stream.get()) != 0 ? fail() : text;
}

}  // namespace

HostDescription parse_description(const std::string& text, const std::string& file) {
  const toml::parse_result parsed = toml::parse(text);
  if (!parsed) {
    throw DescriptionError(joined({file, ":", std::to_string(parsed.error().source().begin.line),
                                   ": ", parsed.error().description()}));
  }
  return Reader(file).read(parsed.table());
}

HostDescription read_description(const std::string& file) {
  return parse_description(file_text(file), file);
}
