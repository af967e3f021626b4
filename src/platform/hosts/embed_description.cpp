// A step of the build: writes the C++ source of default_description() from a description file, so
// that the program starts without reading or parsing one. It knows what the default host has:
// a system, a user and adapters.
//   embed_description hosts/default.toml OUTPUT

#include <exception>
#include <fstream>
#include <initializer_list>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/hosts/host_description.h"

namespace {

/// A string literal that keeps every byte but NUL.
std::string literal(const std::string& text) {
  std::ostringstream quoted;
  quoted << '"' << std::oct << std::setfill('0');
  for (const char c : text) {
    quoted << '\\' << std::setw(3) << unsigned{static_cast<unsigned char>(c)};
  }
  quoted << '"';
  return quoted.str();
}

std::string number(DWORD value) { return std::to_string(value); }

template <typename Items, typename Write>
std::string braced(const Items& items, Write write) {
  std::string list = "{";
  for (const auto& item : items) list.append(write(item)).append(", ");
  return list.append("}");
}

std::string pair(const AddressDescription& it) {
  return braced(std::initializer_list<DWORD>{it.address, it.mask}, number);
}

void write_adapter(std::ostream& source, const AdapterDescription& it) {
  source << "  host.adapters.push_back({" << literal(it.name) << ", " << literal(it.description)
         << ", " << (it.connection ? literal(*it.connection) : "std::nullopt") << ", " << it.index
         << ", " << it.type << ", " << braced(it.hardware_address, number) << ", "
         << braced(it.addresses, pair) << ", " << braced(it.gateways, literal) << ", "
         << it.blank_slots << ", " << it.bound << "});\n";
}

void write_source(std::ostream& source, const HostDescription& host) {
  source << "#include \"platform/hosts/host_description.h\"\n\n"
         << "HostDescription default_description() {\n  HostDescription host;\n"
         << "  host.version = {" << host.version.platform_id << ", " << host.version.major << ", "
         << host.version.minor << ", " << literal(host.version.service_pack) << "};\n"
         << "  host.user = " << literal(host.user) << ";\n"
         << "  host.adapters.reserve(" << host.adapters.size() << ");\n";
  for (const AdapterDescription& adapter : host.adapters) write_adapter(source, adapter);
  source << "  return host;\n}\n";
}

}  // namespace

int main(int count, char** arguments) {
  try {
    const std::vector<std::string> words(arguments, arguments + count);
    std::ofstream output(words.at(2));
    output << std::boolalpha;
    output.exceptions(std::ios::failbit | std::ios::badbit);
    write_source(output, read_description(words.at(1)));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
