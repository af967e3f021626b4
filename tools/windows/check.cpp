// Runs on a Windows runtime: what no command of the program reaches, on the real registry, files
// and dynamic loading. Says which lines failed and how many there were; what the program says goes
// to standard error.
//   check FOLDER        FOLDER: an empty folder, in the runtime's notation
//   check assert        ends with an assertion report

#include <winsock2.h>

#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

#include "brenlo/src/system.h"
#include "brenlo/src/utils.h"
#include "shared/include/searchpath.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_errmsg.h"

namespace {

int checks = 0;
int failures = 0;

void check(bool holds, int line = __builtin_LINE()) {
  ++checks;
  if (holds) return;
  ++failures;
  std::printf("FAIL check.cpp:%d\n", line);
}

void check_registry() {
  constexpr char KEY[] = "Software\\Kadrix\\Deep";
  constexpr char LIST[] =
      "10.0.0.1\0"
      "10.0.0.2\0";
  check(write_multi_sz_value(KEY, "List", LIST, sizeof LIST) == 0);
  char text[64] = "";
  std::uint32_t size = sizeof text;
  check(read_first_multi_sz(KEY, "LIST", text, &size) == 0 && std::string(text) == "10.0.0.1");
  size = 8;
  check(read_first_multi_sz(KEY, "List", text, &size) == -1);
  std::int32_t capacity = 0;
  check(read_registry_value(KEY, "List", nullptr, &capacity) == 0 && capacity == sizeof LIST);
  capacity = sizeof text;
  check(read_registry_value("Software\\Kadrix\\None", "List", text, &capacity) == -1);
  errmsg_flush();
  System system;
  check(system.pad_blank_addresses("{6d", 9) == 9);
}

/// A shortcut file with an ID list and link information that names a local path.
std::string shortcut(const std::string& target) {
  const auto number = [](std::uint32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
  };
  std::string link = number(0x4C) + std::string("\x01\x14\x02\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16);
  link += number(3);
  link.resize(76);
  link += std::string("\x02\0\0\0", 4) + number(0) + number(0x1C) + std::string(0x14, '\0');
  return link + number(0x10) + std::string(0x0C, 'v') + target + '\0';
}

void check_files(const std::string& folder) {
  CreateDirectoryA((folder + "\\config").c_str(), nullptr);
  const std::string here = folder + "\\config\\here.cfg";
  std::ofstream(here) << "x";
  std::ofstream(folder + "\\Shortcut to there.cfg.lnk", std::ios::binary) << shortcut(here);
  const SearchPath search(folder.c_str());
  char path[PATH_BUFFER_SIZE];
  check(search.resolve("config/here.cfg", path, SEARCH_PRIVATE) != nullptr);
  check(search.resolve("config/there.cfg", path, SEARCH_PRIVATE) == nullptr);
  const char* found = search.resolve("there.cfg", path, SEARCH_PRIVATE);
  check(found != nullptr && equals_ignoring_case(found, here));
  ListingBuffer buffer;
  auto listing = search.open_listing("config", SEARCH_PRIVATE, buffer);
  int entries = listing != nullptr ? 1 : 0;
  while (listing != nullptr && next_listing_entry(*listing, buffer) == 0) ++entries;
  check(entries == 3);
  check(listing != nullptr && close_listing(listing) == 0);
}

void check_names() {
  std::uint32_t address = 0;
  check(resolve_ipv4("10.0.0.1", address) == 0 && address == inet_addr("10.0.0.1"));
  // Through the library found at run time.
  sockaddr_in6 address6 = {};
  check(resolve_ipv6("::1", address6) == 0 && address6.sin6_addr.s6_addr[15] == 1);
  char user[256] = "";
  check(get_user_name(user, sizeof user) == 0 && *user != '\0');
}

// The platform's text comes without its line end.
void check_system_errors() {
  errno = 0;
  SetLastError(ERROR_ACCESS_DENIED);
  errmsg_save_last_error();
  errmsg_begin();
  errmsg_set_location("check", 1);
  errmsg_error_system("call");
  const std::string text = errmsg_compose();
  check(text.find("call: ") != std::string::npos && text.find('\r') == std::string::npos);
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count != 2) return 2;
  if (std::string(arguments[1]) == "assert") {
    assertion_report({".\\check", 7}, "out of bounds access. %d>=%d", 5, 2);
  }
  check_registry();
  check_files(arguments[1]);
  check_names();
  check_system_errors();
  std::printf("%d checks\n", checks);
  return failures == 0 ? 0 : 1;
}
