#include "fuzz/targets.h"

#include <winsock2.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "brenlo/src/brenlocfg.h"
#include "brenlo/src/kadrix.h"
#include "platform/hosts/host_description.h"
#include "platform/hosts/simulated_host.h"
#include "shared/include/searchpath.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_debug_config.h"
#include "shared/include/vmk_errmsg.h"
#include "shared/include/zarvoparser.h"

namespace {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

/// A stream that reads the bytes.
Stream stream_of(const void* data, std::size_t size) {
  if (size == 0) return {std::fopen("/dev/null", "r"), std::fclose};
  return {fmemopen(const_cast<void*>(data), size, "r"), std::fclose};
}

std::string text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// A folder of this process's own, with a file "input".
class Folder {
 public:
  Folder()
      : path_(std::filesystem::temp_directory_path() /
              ("kadrix-fuzz-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  [[nodiscard]] std::string path() const { return path_.string(); }

  [[nodiscard]] std::string write(const char* name, const void* data, std::size_t size) const {
    std::string path = path_ / name;
    const Stream stream(std::fopen(path.c_str(), "wb"), std::fclose);
    std::fwrite(data, 1, size, stream.get());
    return path;
  }

 private:
  std::filesystem::path path_;
};

const Folder& folder() {
  static const Folder folder;
  return folder;
}

std::string written(const ConfigFile& file) {
  char* text = nullptr;
  std::size_t size = 0;
  {
    const Stream stream(open_memstream(&text, &size), std::fclose);
    file.write(stream.get());
  }
  std::string copy(text, size);
  std::free(text);
  return copy;
}

/// Whether every value of the block can be told from its lines: an empty one at the end cannot.
bool is_told_whole(const ConfigBlock& block) {
  for (std::uint32_t i = 0; i < block.pair_count(); ++i) {
    if (std::string_view(block.pair(i).value()).ends_with('\n')) return false;
  }
  for (std::uint32_t i = 0; i < block.child_count(); ++i) {
    if (!is_told_whole(block.child(i))) return false;
  }
  return true;
}

bool is_told_whole(const ConfigFile& file) {
  for (std::uint32_t i = 0; i < file.block_count(); ++i) {
    if (!is_told_whole(file.block(i))) return false;
  }
  return true;
}

}  // namespace

void fuzz_config(const std::uint8_t* data, std::size_t size) {
  errmsg_begin();
  ConfigFile file;
  const int result = file.read(stream_of(data, size).get());
  const bool reported = *errmsg_compose() != '\0';
  require(reported == (result != 0), "a failure is reported, a success is not");
  // What was completed before a failure is whole, too: it is written, read and written alike.
  const std::string first = written(file);
  ConfigFile again;
  require(again.read(stream_of(first.data(), first.size()).get()) == 0, "what was written is read");
  require(!is_told_whole(file) || written(again) == first, "what was read is written as it was");
}

void fuzz_exclusion(const std::uint8_t* data, std::size_t size) {
  ExclusionList list;
  const std::string path = folder().write("exclusion", data, size);
  errmsg_begin();
  const int result = list.load(path.c_str());
  require(result == 0 || list.count() == 0, "a file that is refused excludes nothing");
  const std::uint8_t address[6] = {0x00, 0x0C, 0x29, 1, 2, 3};
  static_cast<void>(list.excludes_address(address));
  static_cast<void>(list.excludes_name("Local Area Connection"));
  require(list.count() == 0 || list.load(path.c_str()) == 0, "a file is read again");
}

void fuzz_shortcut(const std::uint8_t* data, std::size_t size) {
  static const SearchPath search(folder().path().c_str());
  const std::string link = folder().write("wanted.lnk", data, size);
  char path[PATH_BUFFER_SIZE] = "";
  errmsg_begin();
  const char* found = search.resolve("wanted", path, SEARCH_PRIVATE);
  // A link that leads nowhere is itself the answer.
  require(found == path, "the link or its target is found");
  struct stat status;
  require(stat(path, &status) == 0, "what is found exists");
}

void fuzz_debug_config(const std::uint8_t* data, std::size_t size) {
  errmsg_begin();
  RuntimeDebugTable table;
  const int result = table.load(stream_of(data, size).get());
  require((*errmsg_compose() != '\0') == (result != 0), "a failure is reported");
  static_cast<void>(table.is_enabled("system", 935));
  require(table.is_valid(), "the table stays valid");
}

void fuzz_hex(const std::uint8_t* data, std::size_t size) {
  std::string text = text_of(data, size);
  const std::size_t length = std::strlen(text.c_str());
  std::int32_t bytes = -1;
  errmsg_begin();
  const int result = hex_to_bytes(text.data(), bytes);
  require((result == 0) == (bytes >= 0), "the length is set on success");
  require(bytes <= static_cast<std::int32_t>(length), "each byte takes a character");
}

void fuzz_ranges(const std::uint8_t* data, std::size_t size) {
  constexpr std::int32_t POSITIONS = 100;
  const std::string text = text_of(data, size);
  std::vector<std::uint8_t> flags(POSITIONS + 1);
  ranges_to_flags(text.c_str(), flags.data(), POSITIONS, 1);
  require(flags[0] == 0, "position 0 is none");
  DynStore ranges;
  flags_to_ranges(flags.data(), POSITIONS, ranges, 1);
  std::vector<std::uint8_t> again(POSITIONS + 1);
  ranges_to_flags(ranges.str(), again.data(), POSITIONS, 1);
  require(flags == again, "ranges say what the flags say");
}

void fuzz_description(const std::uint8_t* data, std::size_t size) {
  try {
    SimulatedHost host(parse_description(text_of(data, size), "d"));
  } catch (const DescriptionError& error) {
    require(std::string_view(error.what()).starts_with("d:"),
            "what is refused is told with its line");
  }
}

namespace {

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

/// What must hold of a host whatever was typed: its table ascends, its contexts are its own, and
/// each takes away the address that it stands for.
void check_host(SimulatedHost& host) {
  HostTable<HostAddress> addresses;
  require(host.read_addresses(addresses) == NO_ERROR, "the table is read");
  const auto before = [](const HostAddress& a, const HostAddress& b) {
    return ntohl(a.address) < ntohl(b.address);
  };
  require(std::is_sorted(addresses.rows.begin(), addresses.rows.end(), before),
          "the table ascends");
  const std::vector<HostAddress> all(addresses.rows.begin(), addresses.rows.end());
  for (const HostAddress& address : all) {
    require(host.delete_address(address.context) == NO_ERROR, "a context stands for an address");
  }
  require(host.read_addresses(addresses) == NO_ERROR && addresses.rows.empty(),
          "every address has a context");
}

}  // namespace

void fuzz_session(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || has_large_number(text_of(data + 1, size - 1))) return;
  auto owned = session_host(data[0]);
  SimulatedHost& host = *owned;
  std::unique_ptr<Host> before_it = install_host(std::move(owned));
  const Stream typed = stream_of(data + 1, size - 1);
  std::FILE* const keyboard = std::exchange(stdin, typed.get());
  const char* const arguments[] = {"kadrix"};
  require(run_kadrix(1, arguments) == 0, "a session ends well");
  stdin = keyboard;
  check_host(host);
  install_host(std::move(before_it));
}
