// A step of the build: writes the C++ source of default_description() from a description file, so
// that the program starts without reading or parsing one.
//   embed_description hosts/default.toml OUTPUT

#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "platform/hosts/host_description.h"

namespace {

class Source {
 public:
  explicit Source(std::FILE* stream) : stream_(stream) {}

  void line(const std::string& text) { std::fprintf(stream_, "%s\n", text.c_str()); }

 private:
  std::FILE* stream_;
};

/// A string literal that keeps every byte, NULs included.
std::string literal(const std::string& text) {
  std::string quoted = "std::string(\"";
  for (const char c : text) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "\\%03o", static_cast<unsigned char>(c));
    quoted += digits;
  }
  return quoted + "\", " + std::to_string(text.size()) + ")";
}

std::string number(std::uint64_t value) { return std::to_string(value) + "U"; }

std::string flag(bool value) { return value ? "true" : "false"; }

template <typename Items, typename Write>
std::string braced(const Items& items, Write write) {
  std::string list = "{";
  for (const auto& item : items) list += write(item) + ", ";
  return list + "}";
}

void write_libraries(Source& source, const HostDescription& host) {
  for (const auto& library : host.libraries) {
    const std::string functions =
        library.functions ? "std::vector<std::string>" + braced(*library.functions, literal)
                          : "std::nullopt";
    source.line("  host.libraries.push_back({" + literal(library.name) + ", " +
                flag(library.present) + ", " + functions + "});");
  }
}

void write_adapters(Source& source, const HostDescription& host) {
  source.line("  host.adapters.reserve(" + number(host.adapters.size()) + ");");
  for (const AdapterDescription& adapter : host.adapters) {
    const auto byte = [](BYTE value) { return number(value); };
    const auto address = [](const AddressDescription& it) {
      return braced(std::initializer_list<DWORD>{it.address, it.mask}, number);
    };
    source.line("  host.adapters.push_back({" + literal(adapter.name) + ", " +
                literal(adapter.description) + ", " +
                (adapter.connection ? literal(*adapter.connection) : "std::nullopt") + ", " +
                number(adapter.index) + ", " + number(adapter.type) + ", " +
                braced(adapter.hardware_address, byte) + ", " + braced(adapter.addresses, address) +
                ", " + braced(adapter.gateways, literal) + ", " + number(adapter.blank_slots) +
                ", " + flag(adapter.bound) + "});");
  }
}

void write_registry(Source& source, const HostDescription& host) {
  for (const std::string& key : host.registry_keys) {
    source.line("  host.registry_keys.push_back(" + literal(key) + ");");
  }
  for (const RegistryDescription& value : host.registry) {
    const std::string data = value.value ? "RegistryValue{" + number(value.value->type) + ", " +
                                               literal(value.value->data) + "}"
                                         : "std::nullopt";
    source.line("  host.registry.push_back({" + literal(value.path) + ", " + literal(value.name) +
                ", " + data + "});");
  }
}

void write_faults(Source& source, const HostDescription& host) {
  for (const FaultDescription& fault : host.faults) {
    const std::string times =
        fault.times ? "std::uint64_t{" + number(*fault.times) + "}" : "std::nullopt";
    source.line("  host.faults.push_back({static_cast<Call>(" +
                number(static_cast<std::uint64_t>(fault.call)) + "), {" + number(fault.fault.code) +
                ", " + flag(fault.fault.raise) + "}, " + number(fault.skip) + ", " + times + "});");
  }
}

void write_source(Source& source, const HostDescription& host) {
  source.line("#include \"platform/hosts/host_description.h\"\n");
  source.line("HostDescription default_description() {");
  source.line("  HostDescription host;");
  source.line("  host.version = {" + number(host.version.platform_id) + ", " +
              number(host.version.major) + ", " + number(host.version.minor) + ", " +
              literal(host.version.service_pack) + "};");
  source.line("  host.user = " + literal(host.user) + ";");
  source.line("  host.sleep = " + flag(host.sleep) + ";");
  write_libraries(source, host);
  write_adapters(source, host);
  write_registry(source, host);
  write_faults(source, host);
  source.line("  return host;\n}");
}

int embed(const char* input, const char* output) {
  const HostDescription host = read_description(input);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(output, "w"),
                                                               std::fclose);
  if (stream == nullptr) {
    std::perror(output);
    return 1;
  }
  Source source(stream.get());
  write_source(source, host);
  return 0;
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count != 3) {
    std::fprintf(stderr, "usage: embed_description DESCRIPTION OUTPUT\n");
    return 2;
  }
  try {
    return embed(arguments[1], arguments[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
