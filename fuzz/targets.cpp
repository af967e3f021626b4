#include "fuzz/targets.h"

#include <winsock2.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <regex>
#include <string_view>
#include <utility>
#include <vector>

#include "brenlo/src/kadrix.h"
#include "platform/simulated/host_description.h"
#include "platform/simulated/simulated_host.h"
#include "shared/include/searchpath.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_debug_config.h"
#include "shared/include/vmk_errmsg.h"
#include "tests/support/folder.h"
#include "tests/support/streams.h"
#include "torture/agreement.h"

namespace {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

std::string_view text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// A folder of this process's own.
const TestFolder& folder() {
  static const TestFolder folder;
  return folder;
}

/// A configuration without the lines of empty values, which at the end of a key's values cannot be
/// told from none.
std::string without_empty_values(const std::string& text) {
  static const std::regex EMPTY("[^\n]*= \n");
  return std::regex_replace(text, EMPTY, "");
}

void fuzz_config(const std::uint8_t* data, std::size_t size) {
  errmsg_begin();
  ConfigFile file;
  const int result = file.read(stream_of(text_of(data, size)).get());
  const bool reported = *errmsg_compose() != '\0';
  require(reported == (result != 0), "a failure is reported, a success is not");
  // What was completed before a failure is whole, too: it is written, read and written alike.
  const std::string first = written(file);
  ConfigFile again;
  require(again.read(stream_of(first).get()) == 0, "what was written is read");
  const std::string second = written(again);
  require(second == first || without_empty_values(second) == without_empty_values(first),
          "what was read is written as it was");
}

void fuzz_shortcut(const std::uint8_t* data, std::size_t size) {
  static const SearchPath search(folder().path().c_str());
  const std::string link = folder().write("wanted.lnk", text_of(data, size));
  char path[PATH_BUFFER_SIZE] = "";
  errmsg_begin();
  const char* found = search.resolve("wanted", path, SEARCH_PRIVATE);
  // A link that leads nowhere is itself the answer.
  require(found == path, "the link or its target is found");
  require(std::filesystem::exists(path), "what is found exists");
}

void fuzz_debug_config(const std::uint8_t* data, std::size_t size) {
  errmsg_begin();
  RuntimeDebugTable table;
  const int result = table.load(stream_of(text_of(data, size)).get());
  require((*errmsg_compose() != '\0') == (result != 0), "a failure is reported");
  static_cast<void>(table.is_enabled("system", 935));
  require(table.is_valid(), "the table stays valid");
}

void fuzz_description(const std::uint8_t* data, std::size_t size) {
  try {
    SimulatedHost host(parse_description(std::string(text_of(data, size)), "d"));
  } catch (const DescriptionError& error) {
    require(std::string_view(error.what()).starts_with("d:"),
            "what is refused is told with its line");
  }
}

/// A host of a description that is read once. Additions soon fail, so that no stress test runs for
/// long.
std::unique_ptr<SimulatedHost> session_host(std::size_t number) {
  static const std::vector<HostDescription> descriptions = [] {
    std::vector<HostDescription> all;
    for (const char* host : {"helper", "client", "neither"}) {
      all.push_back(read_description(SOURCE_ROOT "/fuzz/hosts/" + std::string(host) + ".toml"));
    }
    return all;
  }();
  return std::make_unique<SimulatedHost>(descriptions[number % descriptions.size()]);
}

/// Whether a run of digits is so long that a stress test with it would take long.
bool has_large_number(std::string_view text) {
  std::size_t digits = 0;
  for (const char c : text) {
    digits = c >= '0' && c <= '9' ? digits + 1 : 0;
    if (digits > 3) return true;
  }
  return false;
}

void fuzz_session(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || has_large_number(text_of(data + 1, size - 1))) return;
  std::unique_ptr<Host> before_it = install_host(session_host(data[0]));
  const File typed = stream_of(text_of(data + 1, size - 1));
  std::FILE* const keyboard = std::exchange(stdin, typed.get());
  {
    const std::vector<HostAddress> before = standing_addresses(current_host());
    System system;
    run_console(system);
    const std::string lines = disagreements(system, current_host(), before);
    // The client keeps texts as they were typed, whatever the service makes of them.
    require(
        system.mechanism() != MECHANISM_IP_HELPER || lines.find("DISAGREES") == std::string::npos,
        "the tool's tables are the host's");
  }
  stdin = keyboard;
  install_host(std::move(before_it));
}

}  // namespace

const std::map<std::string, FuzzTarget> FUZZ_TARGETS = {
    {"config", fuzz_config},
    {"shortcut", fuzz_shortcut},
    {"debug_config", fuzz_debug_config},
    {"description", fuzz_description},
    {"session", fuzz_session},
};
