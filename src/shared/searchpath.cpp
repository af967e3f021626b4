#include "shared/include/searchpath.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "shared/include/shared_state.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr int USER_NAME_SIZE = 1024;
constexpr int MAX_LONG_PATH = 260;
constexpr std::size_t MAX_SHORTCUT_SIZE = std::size_t{16} << 20;

ReportSite here(int line = __builtin_LINE()) { return {".\\searchpath", line}; }

/// What the instances share: made by the first, released by the last, which may be destroyed later
/// than any static object of this file.
struct SharedTexts {
  TextBlock user_name;
  TextBlock product_directory;
  TextBlock installation_directory;
};

std::int32_t instance_count = 0;
SharedTexts* shared = nullptr;

constexpr char NO_MEMORY[] = "malloc failed";

TextBlock copy_directory(const char* text) { return copy_or_stop(text, here(), NO_MEMORY); }

/// A backslash is no slash here.
void end_in_slash(std::string& text) {
  if (!text.ends_with('/')) text += '/';
}

/// A directory's text in small letters with slashes.
TextBlock normal_form(std::string text) {
  normalize_path(text.data());
  return copy_directory(text.c_str());
}

/// A directory as someone gave it, in its normal form, ending in a slash.
TextBlock given_directory(const char* directory) {
  std::string text(directory);
  to_slashes(text.data());
  end_in_slash(text);
  return normal_form(std::move(text));
}

/// The directory "zarvo" in the user's home. A home that is the root of its drive gets the user's
/// name; a leading backslash of the home gets a slash in front all the same.
TextBlock home_directory(const char* drive, const char* home, const char* user) {
  const bool is_root = std::strcmp(home, "\\") == 0;
  std::string text(drive);
  if (is_root || *home != '/') end_in_slash(text);
  text += is_root ? user : home;
  end_in_slash(text);
  return normal_form(text + "zarvo/");
}

TextBlock choose_private_directory(const char* directory) {
  if (directory != nullptr) return given_directory(directory);
  if (const char* given = std::getenv("ZARVO_PRIV_DIR")) return given_directory(given);
  const char* drive = std::getenv("HOMEDRIVE");
  const char* home = std::getenv("HOMEPATH");
  const char* user = std::getenv("USERNAME");
  if (drive != nullptr && home != nullptr && user != nullptr) {
    return home_directory(drive, home, user);
  }
  return copy_directory("c:/zarvo/");
}

TextBlock platform_user_name() {
  char name[USER_NAME_SIZE];
  get_user_name(name, sizeof name);
  return copy_directory(name);
}

}  // namespace

SearchPath::SearchPath(const char* directory) {
  if (instance_count++ == 0) {
    shared = new (std::nothrow) SharedTexts;
    if (shared == nullptr) assertion_report(here(), NO_MEMORY);
    shared->user_name = platform_user_name();
  }
  with_memory(here(), NO_MEMORY, [&] { private_directory_ = choose_private_directory(directory); });
}

SearchPath::~SearchPath() {
  if (--instance_count > 0) return;
  delete shared;
  shared = nullptr;
}

const char* search_path_user() { return shared != nullptr ? shared->user_name.get() : ""; }

bool search_path_stands() { return shared != nullptr; }

int dll_init_searchpath() {
  if (!search_path_stands()) return 0;  // called before the program's static state was made
  char current[PATH_BUFFER_SIZE];
  const DWORD length = GetCurrentDirectoryA(sizeof current, current);
  const char* const given = std::getenv("ZARVO_DIR");
  with_memory(here(), NO_MEMORY, [&] {
    shared->product_directory.reset();
    shared->installation_directory.reset();
    if (given != nullptr) shared->product_directory = given_directory(*given != '\0' ? given : ".");
    if (length == 0 || length >= sizeof current) return;
    shared->installation_directory = normal_form(std::string(current) + "/../");
  });
  return 0;
}

// ---- Shortcuts --------------------------------------------------------------------------------

namespace {

/// What came of an attempt to follow a shortcut.
enum class Following { FOLLOWED, LEADS_NOWHERE, OUT_OF_MEMORY };

bool exists(const char* path) {
  const ErrnoKeeper kept;
  struct stat status;
  return stat(FullPath(path).text(), &status) == 0;
}

/// A whole shortcut file in memory; every number is read inside it or not at all.
class ShortcutFile {
 public:
  /// Leads nowhere when the file cannot be opened or read, or is longer than any shortcut.
  Following read(const char* path) {
    if (searchpath_debug->is_enabled(__LINE__))
      report(WRITE_DEBUG, here(), "    resolving filename pos.1");
    const File stream = open_for_reading(path, "rb");
    if (stream == nullptr) {
      return errno == ENOMEM ? Following::OUT_OF_MEMORY : Following::LEADS_NOWHERE;
    }
    if (searchpath_debug->is_enabled(__LINE__))
      report(WRITE_DEBUG, here(), "    resolving filename pos.2");
    const Following reading = read_all(stream.get());
    if (reading == Following::FOLLOWED && searchpath_debug->is_enabled(__LINE__))
      report(WRITE_DEBUG, here(), "    resolving filename pos.3");
    return reading;
  }

  /// The text of the target's local path, or null when the file does not lead to one.
  [[nodiscard]] const char* target() const {
    std::uint32_t flags = 0;
    if (!is_link() || !number(FLAGS_AT, flags) || (flags & HAS_LINK_INFORMATION) == 0) {
      return nullptr;
    }
    std::uint64_t at = HEADER_SIZE;
    if ((flags & HAS_ID_LIST) != 0) {
      if (size_ < HEADER_SIZE + 2) return nullptr;
      at += 2U + byte(HEADER_SIZE) + (std::uint64_t{byte(HEADER_SIZE + 1)} << 8);
    }
    std::uint32_t information_header = 0;
    std::uint32_t volume = 0;
    if (!number(at + 4, information_header)) return nullptr;
    at += information_header;
    if (!number(at, volume)) return nullptr;
    at += volume;
    if (at >= size_) return nullptr;
    const char* const text = &bytes_[static_cast<std::size_t>(at)];
    const char* const end = bytes_.get() + size_;
    return std::find(text, end, '\0') != end ? text : nullptr;
  }

 private:
  static constexpr std::uint64_t HEADER_SIZE = 76;
  static constexpr std::uint64_t FLAGS_AT = 20;
  static constexpr std::uint32_t HAS_ID_LIST = 1;
  static constexpr std::uint32_t HAS_LINK_INFORMATION = 2;

  Following read_all(std::FILE* stream) {
    for (std::size_t capacity = 4096; capacity <= MAX_SHORTCUT_SIZE; capacity *= 2) {
      if (!resize(bytes_, capacity)) return Following::OUT_OF_MEMORY;
      size_ += std::fread(bytes_.get() + size_, 1, capacity - size_, stream);
      if (std::ferror(stream) != 0) return Following::LEADS_NOWHERE;
      if (size_ < capacity) return Following::FOLLOWED;
    }
    return Following::LEADS_NOWHERE;
  }

  [[nodiscard]] bool is_link() const {
    constexpr unsigned char CLASS_ID[] = {0x01, 0x14, 0x02, 0, 0, 0, 0, 0,
                                          0xC0, 0,    0,    0, 0, 0, 0, 0x46};
    return size_ >= 20 && byte(0) == 0x4C && std::memcmp(&bytes_[4], CLASS_ID, 16) == 0;
  }

  [[nodiscard]] unsigned char byte(std::uint64_t at) const {
    return static_cast<unsigned char>(bytes_[static_cast<std::size_t>(at)]);
  }

  /// Reads a little-endian number; false when it does not lie inside the file.
  [[nodiscard]] bool number(std::uint64_t at, std::uint32_t& value) const {
    if (at + 4 > size_) return false;
    value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | byte(at + static_cast<unsigned>(i));
    return true;
  }

  TextBlock bytes_;
  std::size_t size_ = 0;
};

using LongPathFunction = DWORD(WINAPI*)(LPCSTR path, LPSTR long_path, DWORD size);

/// Gives the long form of a path that exists. Hosts that are too old to know long forms apart give
/// the path itself.
Following find_long_path(const char* path, char (&result)[PATH_BUFFER_SIZE]) {
  const HMODULE kernel = LoadLibraryA("kernel32");
  const auto get = kernel == nullptr ? nullptr
                                     : reinterpret_cast<LongPathFunction>(reinterpret_cast<void*>(
                                           GetProcAddress(kernel, "GetLongPathNameA")));
  if (get == nullptr) {
    if (fits_in(path, MAX_LONG_PATH) == 0 || !exists(path)) return Following::LEADS_NOWHERE;
    copy_cut(result, path);
    return Following::FOLLOWED;
  }
  char text[MAX_LONG_PATH];
  const DWORD length = get(path, text, sizeof text);
  if (length == 0 && GetLastError() == ERROR_NOT_ENOUGH_MEMORY) return Following::OUT_OF_MEMORY;
  if (length == 0 || length >= sizeof text) return Following::LEADS_NOWHERE;
  copy_cut(result, text);
  return Following::FOLLOWED;
}

/// Replaces the path of a shortcut by that of its target, when it leads to one.
Following take_target(char (&path)[PATH_BUFFER_SIZE]) {
  // The log reports errno.
  const ErrnoKeeper kept;
  ShortcutFile file;
  if (const Following reading = file.read(path); reading != Following::FOLLOWED) return reading;
  const char* target = file.target();
  if (target == nullptr || *target == '\0') return Following::LEADS_NOWHERE;
  const Following finding = find_long_path(target, path);
  if (finding == Following::FOLLOWED && searchpath_debug->is_enabled(__LINE__))
    report(WRITE_DEBUG, here(), "    resolved filename is %s", path);
  return finding;
}

/// Leads from a shortcut to its target. What cannot be followed stands for itself, which is no
/// error unless memory ran out.
void follow_shortcut(char (&path)[PATH_BUFFER_SIZE]) {
  if (take_target(path) == Following::OUT_OF_MEMORY) report(WRITE_ERROR, here(), "out of memory");
}

}  // namespace

// ---- Resolution -------------------------------------------------------------------------------

namespace {

/// The directories to search, in order. Each ends in a slash.
struct DirectoryList {
  const char* directories[4];
  int count = 0;

  void add(const char* directory) {
    if (directory != nullptr) directories[count++] = directory;
  }
};

/// Puts directory and name together; false when they do not fit.
bool form_candidate(const char* directory, const char* name, char (&path)[PATH_BUFFER_SIZE]) {
  const int size = std::snprintf(path, sizeof path, "%s%s", directory, name);
  return size >= 0 && static_cast<std::size_t>(size) < sizeof path;
}

bool search(const DirectoryList& list, const char* name, bool as_shortcut,
            char (&path)[PATH_BUFFER_SIZE]) {
  for (int i = 0; i < list.count; ++i) {
    if (!form_candidate(list.directories[i], name, path)) continue;
    if (as_shortcut) follow_shortcut(path);
    if (searchpath_debug->is_enabled(__LINE__))
      report(WRITE_DEBUG, here(), "    looking in %s", list.directories[i]);
    const bool found = exists(path);
    if (searchpath_debug->is_enabled(__LINE__))
      report(WRITE_DEBUG, here(), found ? "    found." : "    not found.");
    if (found) return true;
  }
  return false;
}

/// The three forms in which a name is looked for: as it is, and as the two names of a shortcut.
struct SearchName {
  char text[2 * PATH_BUFFER_SIZE];

  explicit SearchName(const char* name) { copy_cut(text, name); }

  void become_link() { std::memcpy(text + std::strlen(text), ".lnk", sizeof ".lnk"); }

  void become_shortcut_to() {
    char* slash = std::strrchr(text, '/');
    char* const base = slash != nullptr ? slash + 1 : text;
    constexpr char PREFIX[] = "Shortcut to ";
    std::memmove(base + sizeof PREFIX - 1, base, std::strlen(base) + 1);
    std::memcpy(base, PREFIX, sizeof PREFIX - 1);
  }
};

}  // namespace

char* SearchPath::resolve(const char* name, char (&path)[PATH_BUFFER_SIZE], SearchMode mode) const {
  if (searchpath_debug->is_enabled(__LINE__)) report(WRITE_DEBUG, here(), "searching for %s", name);
  DirectoryList list;
  if (mode != SEARCH_PRODUCT) list.add(private_directory_.get());
  if (mode != SEARCH_PRIVATE) {
    list.add(shared->product_directory.get());
    list.add(shared->installation_directory.get());
    list.add("../");
  }
  // A name that fills the buffer by itself is found nowhere.
  if (fits_in(name, PATH_BUFFER_SIZE) == 1) {
    SearchName wanted(name);
    if (search(list, wanted.text, false, path)) return path;
    wanted.become_link();
    if (searchpath_debug->is_enabled(__LINE__))
      report(WRITE_DEBUG, here(), "THIS IS WHAT WE ARE LOOKING FOR in pass# 1 =>%s ", wanted.text);
    if (search(list, wanted.text, true, path)) return path;
    wanted.become_shortcut_to();
    if (searchpath_debug->is_enabled(__LINE__))
      report(WRITE_DEBUG, here(), "THIS IS WHAT WE ARE LOOKING FOR in pass# 2 =>%s ", wanted.text);
    if (search(list, wanted.text, true, path)) return path;
  }
  report(BEGIN_ERROR, here(), "%s not in search path", name);
  return nullptr;
}

// ---- Listings ---------------------------------------------------------------------------------

std::unique_ptr<DirectoryListing> SearchPath::open_listing(const char* name, SearchMode mode,
                                                           ListingBuffer& buffer) const {
  buffer.entry[0] = '\0';
  if (resolve(name, buffer.directory, mode) == nullptr) {
    buffer.directory[0] = '\0';
    report(BEGIN_ERROR, here(), "%s not in search path", name);
    return nullptr;
  }
  char pattern[PATH_BUFFER_SIZE + 8];
  std::snprintf(pattern, sizeof pattern, "%s/*.*", buffer.directory);
  WIN32_FIND_DATAA found;
  const HANDLE handle = FindFirstFileA(pattern, &found);
  if (handle == INVALID_HANDLE_VALUE) {
    report(BEGIN_ERROR, here(), "error finding files in %s", buffer.directory);
    return nullptr;
  }
  copy_cut(buffer.entry, field_text(found.cFileName));
  std::unique_ptr<DirectoryListing> listing(new (std::nothrow) DirectoryListing);
  if (listing == nullptr) {
    FindClose(handle);
    report(BEGIN_ERROR, here(), "out of memory");
    return nullptr;
  }
  listing->find_handle = handle;
  listing->mode = mode;
  copy_cut(listing->directory, buffer.directory);
  return listing;
}

int next_listing_entry(DirectoryListing& listing, ListingBuffer& buffer) {
  buffer.entry[0] = '\0';
  copy_cut(buffer.directory, listing.directory);
  WIN32_FIND_DATAA found;
  if (FindNextFileA(listing.find_handle, &found) == FALSE) return -1;
  copy_cut(buffer.entry, field_text(found.cFileName));
  return 0;
}

DirectoryListing::~DirectoryListing() {
  if (find_handle != INVALID_HANDLE_VALUE) FindClose(find_handle);
}

int close_listing(std::unique_ptr<DirectoryListing>& listing) {
  if (FindClose(listing->find_handle) == FALSE) return -1;
  listing->find_handle = INVALID_HANDLE_VALUE;
  listing.reset();
  return 0;
}
