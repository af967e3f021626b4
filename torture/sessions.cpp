#include "torture/sessions.h"

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "brenlo/src/brenlocfg.h"
#include "shared/include/oid.h"
#include "shared/include/searchpath.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_debug.h"
#include "shared/include/vmk_debug_config.h"
#include "shared/include/vmk_errmsg.h"
#include "shared/include/zarvoparser.h"
#include "torture/failing_memory.h"

namespace {

// ---- Files ------------------------------------------------------------------------------------

void write_file(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// A shortcut without an ID list.
std::string shortcut_to(const std::string& target) {
  std::string link("L\0\0\0\x01\x14\x02\0\0\0\0\0\xC0\0\0\0\0\0\0\x46\x02\0\0\0", 24);
  link.resize(76);
  return link + std::string("\0\0\0\0\x08\0\0\0\x04\0\0\0", 12) + target + '\0';
}

void write_files(const std::string& folder) {
  mkdir((folder + "/config").c_str(), 0700);
  mkdir((folder + "/system32").c_str(), 0700);
  write_file(folder + "/exclusion.cfg",
             "version = 1\nexclude = {\n\tname = Second\n}\nexclude = {\n\taddress = 00:0C:29\n}\n"
             "exclude = {\n\taddress = xy\n}\nother = {\n}\n");
  write_file(folder + "/config/debug.cfg", "# all sites\nsystem\nsearchpath 12\nsearchpath\n");
  write_file(folder + "/system32/netsh.exe",
             "#!/bin/sh\ncase \"$*\" in *fail*) echo no;; *) seq 200; echo Ok.;; esac\n");
  chmod((folder + "/system32/netsh.exe").c_str(), 0700);
  write_file(folder + "/first", "the same\n");
  write_file(folder + "/linked.lnk", shortcut_to(folder + "/first"));
  std::string blocks = "version = 3\nouter = {\n\tkey = value\n\tkey = more\n\tinner = {\n";
  for (int i = 0; i < 40; ++i) blocks += "\t\tkey" + std::to_string(i) + " = value\n";
  write_file(folder + "/blocks", blocks + "\t\tlong = " + std::string(9000, 'x') + "\n\t}\n}\n");
}

// ---- Work that no command reaches -------------------------------------------------------------

/// A path for such work, which does not itself run out of memory.
std::string path_of(const std::string& folder, const char* name) {
  const Truce memory(failing_allocations());
  return folder + "/" + name;
}

void make_static_state(const std::string& folder) {
  const MessageLog log(STANDARD_MEMORY);
  const DebugModule module(".\\torture");
  const SearchPath path(folder.c_str());
}

void switch_debugging_on(const std::string& /*folder*/) {
  dll_init_searchpath();
  dll_init_debug();
}

void find_files(System& /*system*/, const std::string& /*folder*/) {
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

void load_exclusions(System& /*system*/, const std::string& folder) {
  if (excluded_adapters->load(path_of(folder, "exclusion.cfg").c_str()) != 0) errmsg_flush();
}

void tell_result(const char* address, int result) {
  if (result == 1) return write_info("%s changed", address);
  report(CLOSE_ERROR, {".\\torture", 0}, "%s: %d", address, result);
}

void change_ipv6_addresses(System& system, const std::string& /*folder*/) {
  system.list_adapters();
  for (const char* address : {"2001:db8::1", "2001:db8::2", "fail::3"}) {
    tell_result(address, system.add_ipv6_address(nullptr, address));
  }
  for (const char* address : {"2001:db8::1", "2001:db8::9"}) {
    tell_result(address, system.delete_ipv6_address(nullptr, address));
  }
}

void tell_identity(System& system, const std::string& /*folder*/) {
  const std::uint8_t* addresses[MAX_ADAPTERS] = {};
  if (system.get_system_hardware_addresses(addresses) < 0) errmsg_flush();
}

void pad_slots(System& system, const std::string& /*folder*/) {
  constexpr int WANTED = 20;
  const int blank = system.pad_blank_addresses(nullptr, WANTED);
  if (blank != WANTED) report(CLOSE_ERROR, {".\\torture", 0}, "%d blank slots", blank);
}

void use_blocks(const std::string& folder) {
  const File stream = open_for_reading(path_of(folder, "blocks").c_str(), "r");
  ConfigFile file;
  if (stream == nullptr || file.read(stream.get()) != 0) return errmsg_flush();
  file.write(stderr);
}

std::string copy_of_first(const std::string& folder) {
  const Truce memory(failing_allocations());
  std::string copy = path_of(folder, "copy") + std::to_string(10'000'000 + getpid());
  write_file(copy, "the same\n");
  return copy;
}

void use_utilities(System& /*system*/, const std::string& folder) {
  use_blocks(folder);
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
  const std::string copy = copy_of_first(folder);
  if (remove_if_identical(copy.c_str(), path_of(folder, "first").c_str()) != 0) errmsg_flush();
  unlink(copy.c_str());
  std::uint32_t address = 0;
  if (resolve_ipv4("10.0.0.1", address) != 0) errmsg_flush();
  sockaddr_in6 address6 = {};
  if (resolve_ipv6("2001:db8::1", address6) != 0) errmsg_flush();
}

}  // namespace

// ---- The sessions -----------------------------------------------------------------------------

std::string host_file(const std::string& host) { return "torture/hosts/" + host + ".toml"; }

bool Session::is_live() const {
  return std::any_of(environment.begin(), environment.end(),
                     [](const auto& setting) { return setting.second == "linux"; });
}

std::vector<Session> all_sessions(const std::string& folder) {
  write_files(folder);
  const std::string commands =
      "add 10.1.1.5 255.255.0.0\nadd 10.1.1.6 0.0.0.0 second\nadd 10.1.1.5 255.0.0.0\n"
      "del 10.1.1.5\ndel 10.0.0.9\npurge 10.0.0.9\npurge 10.1.1.6 Second-3\nadd 10.1.1.7 0.0.0.0\n"
      "del 10.1.1.77\nadd 1 nowhere\nhelp\nmore\n\nprint\nquit\n";
  const std::string report = "print\nquit\n";
  const std::string live =
      "add 10.9.1.5 255.255.0.0 t0\npurge 10.9.0.2 t0\nstress 1 3 10.9.2.1 255.255.0.0 t0\n"
      "del 10.9.1.5 t0\nadd 10.9.1.6 255.255.0.0 t0\nprint\nquit\n";
  const char* const stress = "stress 2 130 10.1.1.200 255.255.0.0\nprint\nquit\n";
  const char* const client_stress =
      "stress 2 8 10.1.1.250 255.255.0.0 a\nstress 1 9 10.1.1.1 255.0.0.0\nprint\nquit\n";
  const std::vector<Setting> own_helper = {{"ZARVO_HOST", host_file("helper")}};
  const std::vector<Setting> product = {{"ZARVO_DIR", folder}};
  return {
      {.name = "start", .before_system = make_static_state, .typed = report},
      {.name = "description", .environment = own_helper, .typed = report},
      {.name = "helper", .host = "helper", .typed = commands},
      {.name = "helper_stress", .host = "helper", .typed = stress},
      {.name = "client", .host = "client", .typed = commands},
      {.name = "client_stress", .host = "client", .typed = client_stress},
      {.name = "padding", .host = "client", .before_typing = pad_slots, .typed = report},
      {.name = "exclusion", .host = "helper", .before_typing = load_exclusions, .typed = commands},
      {"debugging", "helper", product, switch_debugging_on, find_files, report},
      {"ipv6", "helper", {{"windir", folder}}, nullptr, change_ipv6_addresses, "quit\n"},
      {.name = "large_report", .host = "large", .typed = report},
      {.name = "nt4", .host = "nt4", .before_typing = tell_identity, .typed = "purge 10.0.0.1\n"},
      {.name = "windows_98", .host = "windows_98", .before_typing = tell_identity, .typed = report},
      {"forced", "forced", {{"ZARVO_IPMGMT_MECHANISM", "2"}}, nullptr, nullptr, commands},
      {.name = "utilities", .host = "helper", .before_typing = use_utilities, .typed = "quit\n"},
      {.name = "live", .environment = {{"ZARVO_HOST", "linux"}}, .typed = live},
  };
}

namespace {

bool runs(const char* command) { return std::system(command) == 0; }

}  // namespace

bool enter_namespace() {
  setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
  return unshare(CLONE_NEWNET) == 0 &&
         runs("ip link add t0 type veth peer name t1 && ip link set t0 up && ip link set t1 up");
}

void lay_out_addresses() {
  if (!runs("ip addr flush dev t0 && ip addr add 10.9.0.1/16 dev t0 &&"
            "ip addr add 10.9.0.2/16 dev t0 &&"
            "ip addr replace 10.8.0.1/16 dev t1")) {
    std::perror("ip");
    std::exit(1);
  }
}
