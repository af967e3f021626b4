// Runs on a Windows runtime: what no command of the program reaches, on the real registry, files
// and dynamic loading. Says what it did in lines that tools/test-windows compares; what the program
// says goes to standard error.
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

int failures = 0;

void check(bool holds, const char* what) {
  std::printf("%s %s\n", holds ? "ok  " : "FAIL", what);
  if (!holds) ++failures;
}

void check_registry() {
  constexpr char LIST[] =
      "10.0.0.1\0"
      "10.0.0.2\0";
  check(write_multi_sz_value("Software\\Kadrix\\Deep", "List", LIST, sizeof LIST) == 0,
        "a list is written into a key that did not exist");
  char text[64] = "";
  std::uint32_t size = sizeof text;
  check(read_first_multi_sz("Software\\Kadrix\\Deep", "LIST", text, &size) == 0 &&
            std::string(text) == "10.0.0.1",
        "its first string is read back");
  size = 8;
  check(read_first_multi_sz("Software\\Kadrix\\Deep", "List", text, &size) == -1,
        "a buffer too small is refused");
  std::int32_t capacity = 0;
  check(read_registry_value("Software\\Kadrix\\Deep", "List", nullptr, &capacity) == 0 &&
            capacity == sizeof LIST,
        "the size is that of the bytes written");
  capacity = sizeof text;
  check(read_registry_value("Software\\Kadrix\\None", "List", text, &capacity) == -1,
        "a key that is not there is refused");
  errmsg_flush();
}

void check_padding() {
  System system;
  check(system.pad_blank_addresses("{6d", 9) == 9, "nine blank addresses are padded");
}

void check_files(const std::string& folder) {
  CreateDirectoryA((folder + "\\config").c_str(), nullptr);
  std::ofstream(folder + "\\config\\here.cfg") << "x";
  const SearchPath search(folder.c_str());
  char path[PATH_BUFFER_SIZE];
  check(search.resolve("config/here.cfg", path, SEARCH_PRIVATE) != nullptr, "a file is found");
  check(search.resolve("config/there.cfg", path, SEARCH_PRIVATE) == nullptr,
        "one that is not there is not");
  ListingBuffer buffer;
  auto listing = search.open_listing("config", SEARCH_PRIVATE, buffer);
  int entries = listing != nullptr ? 1 : 0;
  while (listing != nullptr && next_listing_entry(*listing, buffer) == 0) ++entries;
  check(entries == 3, "a folder with one file lists three entries");
  check(listing != nullptr && close_listing(listing) == 0, "the listing is closed");
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

void check_shortcut(const std::string& folder) {
  std::ofstream(folder + "\\Shortcut to there.cfg.lnk", std::ios::binary)
      << shortcut(folder + "\\config\\here.cfg");
  const SearchPath search(folder.c_str());
  char path[PATH_BUFFER_SIZE] = "";
  const char* found = search.resolve("there.cfg", path, SEARCH_PRIVATE);
  check(found != nullptr && equals_ignoring_case(found, (folder + "\\config\\here.cfg").c_str()),
        "a shortcut leads to its target");
}

void check_names() {
  std::uint32_t address = 0;
  check(resolve_ipv4("10.0.0.1", address) == 0 && address == inet_addr("10.0.0.1"),
        "a dotted address is itself");
  sockaddr_in6 address6 = {};
  check(resolve_ipv6("::1", address6) == 0 && address6.sin6_addr.s6_addr[15] == 1,
        "an IPv6 address is resolved through the library found at run time");
  char user[256] = "";
  check(get_user_name(user, sizeof user) == 0 && *user != '\0', "the user has a name");
}

void check_system_errors() {
  errno = 0;
  SetLastError(ERROR_ACCESS_DENIED);
  errmsg_save_last_error();
  errmsg_begin();
  errmsg_set_location("check", 1);
  errmsg_error_system("call");
  const std::string text = errmsg_compose();
  check(text.find("call: ") != std::string::npos && text.find('\r') == std::string::npos,
        "the platform's text comes without its line end");
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count != 2) return 2;
  if (std::string(arguments[1]) == "assert") {
    assertion_report({".\\check", 7}, "out of bounds access. %d>=%d", 5, 2);
  }
  check_registry();
  check_padding();
  check_files(arguments[1]);
  check_shortcut(arguments[1]);
  check_names();
  check_system_errors();
  return failures == 0 ? 0 : 1;
}
