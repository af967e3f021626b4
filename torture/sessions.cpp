#include "torture/sessions.h"

#include <cstdlib>
#include <filesystem>

#include "brenlo/src/brenlocfg.h"
#include "shared/include/oid.h"
#include "shared/include/searchpath.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_debug.h"
#include "shared/include/vmk_debug_config.h"
#include "shared/include/vmk_errmsg.h"
#include "shared/include/zarvoparser.h"

namespace {

// ---- Files ------------------------------------------------------------------------------------

void write_files(const TestFolder& folder) {
  const auto write = [&](const char* name, const std::string& text) {
    return folder.write(name, text);
  };
  write("exclusion.cfg",
        "version = 1\nexclude = {\n\tname = Second\n}\nexclude = {\n\taddress = 00:0C:29\n}\n"
        "exclude = {\n\taddress = xy\n}\nother = {\n}\n");
  write("config/debug.cfg", "# all sites\nsystem\nsearchpath 12\nsearchpath\n");
  std::filesystem::permissions(
      write("system32/netsh.exe",
            "#!/bin/sh\ncase \"$*\" in *fail*) echo no;; *) seq 200; echo Ok.;; esac\n"),
      std::filesystem::perms::owner_all);
  write("first", "the same\n");
  std::filesystem::copy_file(SOURCE_ROOT "/fuzz/corpus/shortcut/to_tmp",
                             folder.path() + "/linked.lnk");
  std::string blocks = "version = 3\nouter = {\n\tkey = value\n\tkey = more\n\tinner = {\n";
  for (int i = 0; i < 40; ++i) blocks += "\t\tkey" + std::to_string(i) + " = value\n";
  write("blocks", blocks + "\t\tlong = " + std::string(9000, 'x') + "\n\t}\n}\n");
}

// ---- Work that no command reaches -------------------------------------------------------------

void make_static_state() {
  const MessageLog log(STANDARD_MEMORY);
  const DebugModule module(".\\torture");
  const SearchPath path("/tmp/torture");
}

void switch_debugging_on() {
  dll_init_searchpath();
  dll_init_debug();
}

void find_files(System& /*system*/) {
  for (const char* name : {"first", "linked", "nowhere"}) {
    char path[PATH_BUFFER_SIZE];
    if (search_path->resolve(name, path, SEARCH_PRODUCT) == nullptr) {
      errmsg_flush();
    } else {
      write_info("%s", path);
    }
  }
  ListingBuffer buffer;
  auto listing = search_path->open_listing("config", SEARCH_PRODUCT, buffer);
  if (listing == nullptr) return errmsg_flush();
  while (next_listing_entry(*listing, buffer) == 0) {
  }
  close_listing(listing);
}

void tell_identity(System& system) {
  const std::uint8_t* addresses[MAX_ADAPTERS] = {};
  if (system.get_system_hardware_addresses(addresses) < 0) errmsg_flush();
}

void load_exclusions(System& system) {
  if (excluded_adapters->load("exclusion.cfg") != 0) errmsg_flush();
  tell_identity(system);
}

void tell_result(const char* address, int result) {
  if (result == 1) return write_info("%s changed", address);
  report(CLOSE_ERROR, {".\\torture", 0}, "%s: %d", address, result);
}

void change_ipv6_addresses(System& system) {
  system.list_adapters();
  for (const char* address : {"2001:db8::1", "2001:db8::2", "fail::3"}) {
    tell_result(address, system.add_ipv6_address(nullptr, address));
  }
  for (const char* address : {"2001:db8::1", "2001:db8::9"}) {
    tell_result(address, system.delete_ipv6_address(nullptr, address));
  }
}

void pad_slots(System& system) {
  constexpr int WANTED = 20;
  const int blank = system.pad_blank_addresses(nullptr, WANTED);
  if (blank != WANTED) report(CLOSE_ERROR, {".\\torture", 0}, "%d blank slots", blank);
}

void use_blocks() {
  const File stream = open_for_reading("blocks", "r");
  ConfigFile file;
  if (stream == nullptr || file.read(stream.get()) != 0) return errmsg_flush();
  file.write(stderr);
}

void use_utilities(System& /*system*/) {
  use_blocks();
  Oid oid;
  oid.parse("1.3.6.1.4.1.4294967295");
  for (int i = 0; i < 40; ++i) oid.append_id(1);
  write_info("%s", oid.to_text());
  std::uint8_t flags[51] = {};
  ranges_to_flags("1-3,5,7-9,44-99", flags, 50, 1);
  DynStore ranges;
  flags_to_ranges(flags, 50, ranges, 1);
  write_info("%s", ranges.str());
  for (int i = 0; i < DYNSTORE_INLINE_SIZE; ++i) ranges.append_char('x');
  report_lines("one\ntwo\nthree");
  errmsg_flush();
  hex_dump("thirteen byte", 13, "at ");
  if (remove_if_identical("copy", "first") != 0) errmsg_flush();
  std::uint32_t address = 0;
  if (resolve_ipv4("10.0.0.1", address) != 0) errmsg_flush();
  sockaddr_in6 address6 = {};
  if (resolve_ipv6("2001:db8::1", address6) != 0) errmsg_flush();
}

}  // namespace

// ---- The sessions -----------------------------------------------------------------------------

std::string host_file(const std::string& host) {
  return SOURCE_ROOT "/torture/hosts/" + host + ".toml";
}

std::vector<TortureSession> all_sessions(const TestFolder& folder) {
  write_files(folder);
  const std::string commands =
      "add 10.1.1.5 255.255.0.0\nadd 10.1.1.6 0.0.0.0 second\nadd 10.1.1.5 255.0.0.0\n"
      "del 10.1.1.5\ndel 10.0.0.9\npurge 10.0.0.9\npurge 10.1.1.6 Second-3\nadd 10.1.1.7 0.0.0.0\n"
      "del 10.1.1.77\nadd 1 nowhere\nhelp\nmore\n\nprint\nquit\n";
  const std::string report = "print\nquit\n";
  const std::string live =
      "add 10.9.1.5 255.255.0.0 a0\npurge 10.9.0.2 a0\nstress 1 3 10.9.2.1 255.255.0.0 a0\n"
      "del 10.9.1.5 a0\nadd 10.9.1.6 255.255.0.0 a0\nprint\nquit\n";
  const char* const stress = "stress 2 130 10.1.1.200 255.255.0.0\nprint\nquit\n";
  const char* const client_stress =
      "stress 2 8 10.1.1.250 255.255.0.0 a\nstress 1 9 10.1.1.1 255.0.0.0\nprint\nquit\n";
  return {
      {.name = "start", .before_system = make_static_state, .typed = report},
      {.name = "description",
       .environment = {{"ZARVO_HOST", host_file("helper")}},
       .typed = report},
      {.name = "helper", .host = "helper", .typed = commands},
      {.name = "helper_stress", .host = "helper", .typed = stress},
      {.name = "client", .host = "client", .typed = commands},
      {.name = "client_stress", .host = "client", .typed = client_stress},
      {.name = "padding", .host = "client", .before_typing = pad_slots, .typed = report},
      {.name = "exclusion", .host = "helper", .before_typing = load_exclusions, .typed = commands},
      {"debugging",
       "helper",
       {{"ZARVO_DIR", folder.path()}},
       switch_debugging_on,
       find_files,
       report},
      {"ipv6", "helper", {{"windir", folder.path()}}, nullptr, change_ipv6_addresses, "quit\n"},
      {.name = "large_report", .host = "large", .typed = report},
      {.name = "nt4", .host = "nt4", .before_typing = tell_identity, .typed = "purge 10.0.0.1\n"},
      {.name = "windows_98", .host = "windows_98", .before_typing = tell_identity, .typed = report},
      {"forced", "forced", {{"ZARVO_IPMGMT_MECHANISM", "2"}}, nullptr, nullptr, commands},
      {.name = "utilities", .host = "helper", .before_typing = use_utilities, .typed = "quit\n"},
      {.name = "live",
       .environment = {{"ZARVO_HOST", "linux"}},
       .typed = live,
       .layout = "ip addr flush dev a0 && ip addr add 10.9.0.1/16 dev a0 &&"
                 "ip addr add 10.9.0.2/16 dev a0 && ip addr replace 10.8.0.1/16 dev b0"},
  };
}
