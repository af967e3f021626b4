#include "shared/include/utils.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>

#include "base/find.h"
#include "shared/include/os_identity.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr std::size_t LINE_STEP = 4096;

ReportSite here(int line = __builtin_LINE()) { return {".\\utils", line}; }

constexpr char OUT_OF_MEMORY[] = "out of memory";

}  // namespace

// ---- Texts ------------------------------------------------------------------------------------

const char* skip_blanks(const char* text) {
  while (is_white_space(*text)) ++text;
  return text;
}

int trim_leading(char* text) {
  const char* first = skip_blanks(text);
  std::memmove(text, first, std::strlen(first) + 1);
  return 0;
}

int trim_trailing(char* text) {
  std::size_t length = std::strlen(text);
  while (length > 0 && is_white_space(text[length - 1])) --length;
  text[length] = '\0';
  return 0;
}

int trim(char* text) {
  trim_trailing(text);
  return trim_leading(text);
}

TextBlock copy_text(const char* text) { return copy_or_stop(text, here(), OUT_OF_MEMORY); }

char* unescape(char* text) {
  constexpr std::string_view LETTERS = "0nrst";
  constexpr std::string_view MEANINGS("\0\n\r \t", 5);
  char* to = text;
  for (const char* from = text; *from != '\0'; ++from) {
    const std::size_t letter =
        *from == '\\' && from[1] != '\0' ? LETTERS.find(from[1]) : std::string_view::npos;
    if (letter != std::string_view::npos) {
      *to++ = MEANINGS[letter];
      ++from;
      continue;
    }
    *to++ = *from;
    // The character behind a backslash that stays belongs to it, a second backslash too.
    if (*from == '\\' && from[1] != '\0') *to++ = *++from;
  }
  *to = '\0';
  return text;
}

namespace {

struct Section {
  unsigned flag;
  char open;
  char close;
};

constexpr Section SECTIONS[] = {
    {QUOTE_SINGLE, '\'', '\''}, {QUOTE_BACK, '`', '`'},    {QUOTE_DOUBLE, '"', '"'},
    {BRACKET_CURLY, '{', '}'},  {BRACKET_ROUND, '(', ')'}, {BRACKET_SQUARE, '[', ']'},
};

const Section* find_section(char c, unsigned flags) {
  return find_where(SECTIONS,
                    [=](const Section& it) { return (flags & it.flag) != 0 && it.open == c; });
}

/// Copies a section from its opening character to its closing one, or to the end of the text.
void copy_section(const Section& section, const char*& from, char*& to) {
  int depth = 0;
  *to++ = *from++;
  while (*from != '\0') {
    const char c = *from++;
    *to++ = c;
    if (c == section.close) {
      if (depth-- == 0) return;
    } else if (c == section.open) {
      ++depth;
    }
  }
}

}  // namespace

int normalize_blanks(char* text, unsigned flags, const char* stops) {
  const char* from = text;
  char* to = text;
  while (is_blank(*from)) ++from;
  while (*from != '\0') {
    if (stops != nullptr && std::strchr(stops, *from) != nullptr) break;
    if (is_blank(*from)) {
      *to++ = ' ';
      while (is_blank(*from)) ++from;
    } else if (const Section* section = find_section(*from, flags)) {
      copy_section(*section, from, to);
    } else {
      const bool escapes = (flags & ESCAPE_BACKSLASH) != 0 && *from == '\\';
      *to++ = *from++;
      if (escapes && *from != '\0') *to++ = *from++;
    }
  }
  *to = '\0';
  return trim_trailing(text);
}

namespace {

void append_piece(SplitList& list, char* piece) {
  const std::size_t size = (static_cast<std::size_t>(list.count) + 1) * sizeof(char*);
  auto** pieces = static_cast<char**>(std::realloc(
      static_cast<void*>(list.pieces), size));  // NOLINT(bugprone-suspicious-realloc-usage)
  if (pieces == nullptr) assertion_report(here(), OUT_OF_MEMORY);
  pieces[list.count++] = piece;
  list.pieces = pieces;
}

}  // namespace

int split_at_char(char* text, char separator, bool skip_empty, SplitList& list) {
  list = {};
  while (*text != '\0') {
    char* const piece = text;
    while (*text != '\0' && *text != separator) ++text;
    const bool empty = text == piece;
    if (*text != '\0') *text++ = '\0';
    if (!empty || !skip_empty) append_piece(list, piece);
  }
  return 0;
}

int split_at_text(char* text, const char* separator, SplitList& list) {
  list = {};
  char* piece = text;
  const char* matched = separator;
  char* match = text;
  while (*text != '\0') {
    if (*text == *matched) {
      if (matched == separator) match = text;
      ++text;
      if (*++matched != '\0') continue;
      *match = '\0';
      append_piece(list, piece);
      piece = text;
      matched = separator;
    } else if (matched != separator) {
      // The character that broke the match is looked at again; what did match is not.
      matched = separator;
    } else {
      ++text;
    }
  }
  if (*piece == '\0' && list.count > 0) return 0;
  append_piece(list, piece);
  return 1;
}

int split_release(SplitList& list) {
  std::free(static_cast<void*>(list.pieces));
  list = {};
  return 0;
}

int has_unprintable(const char* buffer, std::int32_t n) {
  for (std::int32_t i = 0; i < n; ++i) {
    if (!is_printable(buffer[i])) return 1;
  }
  return 0;
}

int fits_in(const char* text, std::int32_t n) {
  return n >= 1 && std::strlen(text) < static_cast<std::size_t>(n) ? 1 : 0;
}

namespace {

template <typename Change>
int change_each(char* text, Change change) {
  if (text == nullptr) return -1;
  for (; *text != '\0'; ++text) *text = change(*text);
  return 0;
}

}  // namespace

int to_backslashes(char* text) {
  return change_each(text, [](char c) { return c == '/' ? '\\' : c; });
}

int to_slashes(char* text) {
  return change_each(text, [](char c) { return c == '\\' ? '/' : c; });
}

int normalize_path(char* text) {
  return change_each(text, [](char c) { return c == '\\' ? '/' : lower_case(c); });
}

// ---- Numbers ----------------------------------------------------------------------------------

bool scan_decimal(const char** text, std::int32_t* value) {
  using Limits = std::numeric_limits<std::int32_t>;
  const char* at = skip_blanks(*text);
  const bool negative = *at == '-';
  if (*at == '-' || *at == '+') ++at;
  if (!is_digit(*at)) return false;
  std::int64_t magnitude = 0;
  for (; is_digit(*at); ++at) {
    magnitude = std::min(magnitude * 10 + (*at - '0'), -std::int64_t{Limits::min()});
  }
  const std::int64_t number = negative ? -magnitude : magnitude;
  *value = static_cast<std::int32_t>(std::min(number, std::int64_t{Limits::max()}));
  *text = at;
  return true;
}

std::int32_t decimal_value(const char* text) {
  std::int32_t value = 0;
  scan_decimal(&text, &value);
  return value;
}

int scan_quad(const char* text, std::int32_t (&numbers)[4]) {
  int count = 0;
  for (std::int32_t& number : numbers) {
    if (count > 0 && *text++ != '.') break;
    if (!scan_decimal(&text, &number)) break;
    ++count;
  }
  return count;
}

int hex_value(char c) {
  if (is_digit(c)) return c - '0';
  const char letter = lower_case(c);
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

int hex_to_bytes(char* text, std::int32_t& length) {
  // The bytes go over the front of the text; each consumes at least one character.
  char* to = text;
  const char* from = text;
  for (;;) {
    while (is_white_space(*from) || *from == ':' || *from == '-') ++from;
    if (*from == '\0') break;
    const int high = hex_value(*from);
    if (high < 0) {
      report(BEGIN_ERROR, here(), "bad Hex string token %s", from);
      *to = '\0';
      return -1;
    }
    const int low = hex_value(from[1]);
    *to++ = static_cast<char>(low >= 0 ? high << 4 | low : high);
    from += low >= 0 ? 2 : 1;
  }
  *to = '\0';
  length = static_cast<std::int32_t>(to - text);
  return 0;
}

namespace {

/// Sets the positions that one piece of a range list names.
void set_range(char* piece, std::uint8_t* flags, std::int32_t n, std::uint8_t value) {
  SplitList ends;
  split_at_char(piece, '-', false, ends);
  if (ends.count == 1 || ends.count == 2) {
    const std::int32_t from = std::max(decimal_value(ends.pieces[0]), 1);
    const std::int32_t to = std::min(decimal_value(ends.pieces[ends.count - 1]), n);
    if (from <= to) std::fill(flags + from, flags + to + 1, value);
  }
  split_release(ends);
}

}  // namespace

int ranges_to_flags(const char* ranges, std::uint8_t* flags, std::int32_t n, std::uint8_t value) {
  const TextBlock copy = copy_text(ranges);
  SplitList pieces;
  split_at_char(copy.get(), ',', false, pieces);
  for (std::int32_t i = 0; i < pieces.count; ++i) set_range(pieces.pieces[i], flags, n, value);
  return split_release(pieces);
}

int flags_to_ranges(const std::uint8_t* flags, std::int32_t n, DynStore& text, std::uint8_t mask) {
  text.clear();
  for (std::int32_t first = 1; first <= n; ++first) {
    if ((flags[first] & mask) == 0) continue;
    std::int32_t last = first;
    while (last < n && (flags[last + 1] & mask) != 0) ++last;
    if (text.length() > 0) text.append_char(',');
    text.append_int(first);
    if (last > first) {
      text.append_char('-');
      text.append_int(last);
    }
    first = last;
  }
  return 0;
}

// ---- Files ------------------------------------------------------------------------------------

namespace {

/// Reads a piece of up to `size` - 1 characters, line feed included. `full` tells that the piece
/// ended because the buffer did.
bool read_piece(std::FILE* stream, char* buffer, std::size_t size, bool& full) {
  // fgets puts its NUL at the buffer's last position only when the piece fills it.
  buffer[size - 1] = '\n';
  if (std::fgets(buffer, static_cast<int>(size), stream) == nullptr) return false;
  full = buffer[size - 1] == '\0' && (size < 2 || buffer[size - 2] != '\n');
  return true;
}

/// Cuts the line feed that ended the line, if one did.
std::size_t finish_line(char* text) {
  std::size_t length = std::strlen(text);
  if (length > 0 && text[length - 1] == '\n') text[--length] = '\0';
  return length;
}

/// Reports a stream that failed; false for one that is just at its end.
bool reports_failure(ReportSite site, std::FILE* stream) {
  if (std::ferror(stream) == 0) return false;
  begin_system_error(site, "fgets");
  report(ADD_ERROR, site, "cannot read file.");
  return true;
}

bool grow_line(TextBlock& block, std::size_t size) {
  if (resize(block, size)) return true;
  report(BEGIN_ERROR, here(), "out of memory for %d bytes.", static_cast<int>(size));
  return false;
}

FileLine read_long_line(std::FILE* stream, const char* start, std::size_t used) {
  FileLine line;
  std::size_t size = used + LINE_STEP;
  if (!grow_line(line.block, size)) return {};
  std::memcpy(line.block.get(), start, used);
  for (bool full = true; full;) {
    char* const piece = line.block.get() + used;
    if (!read_piece(stream, piece, LINE_STEP, full)) {
      if (reports_failure(here(), stream) || used == 0) return {};
      *piece = '\0';
      break;
    }
    if (!full) break;
    used += LINE_STEP - 1;
    size += LINE_STEP;
    if (!grow_line(line.block, size)) return {};
  }
  line.text = line.block.get();
  return line;
}

}  // namespace

FileLine read_line(std::FILE* stream, char* buffer, std::int32_t buffer_length,
                   std::size_t& length) {
  if (buffer_length < 1) {
    assertion_report(here(), "buflen %d <= 0", static_cast<int>(buffer_length));
  }
  const auto size = static_cast<std::size_t>(buffer_length);
  bool full = false;
  if (!read_piece(stream, buffer, size, full)) {
    reports_failure(here(), stream);
    return {};
  }
  FileLine line;
  if (full) {
    line = read_long_line(stream, buffer, size - 1);
    if (line.text == nullptr) return {};
  } else {
    line.text = buffer;
  }
  length = finish_line(line.text);
  return line;
}

FullPath::FullPath(const char* path) : text_(path) {
  const DWORD length = GetFullPathNameA(path, sizeof full_, full_, nullptr);
  if (length != 0 && length < sizeof full_) text_ = full_;
}

File open_for_reading(const char* path, const char* mode) {
  const FullPath full(path);
  struct stat status;
  if (stat(full.text(), &status) == 0 && S_ISDIR(status.st_mode)) {
    errno = EACCES;
    return {nullptr, std::fclose};
  }
  return {std::fopen(full.text(), mode), std::fclose};
}

namespace {

File open_text(ReportSite site, const char* path) {
  File file = open_for_reading(path, "r");
  if (file == nullptr) {
    begin_system_error(site, "fopen");
    report(ADD_WARN, site, "cannot open %s", path);
  }
  return file;
}

enum class Comparison { SAME, DIFFERENT, UNREADABLE };

Comparison compare(std::FILE* a, std::FILE* b) {
  char piece_a[16384];
  char piece_b[sizeof piece_a];
  for (;;) {
    const std::size_t length = std::fread(piece_a, 1, sizeof piece_a, a);
    const std::size_t length_b = std::fread(piece_b, 1, sizeof piece_b, b);
    if (std::ferror(a) != 0 || std::ferror(b) != 0) return Comparison::UNREADABLE;
    if (length != length_b || std::memcmp(piece_a, piece_b, length) != 0) {
      return Comparison::DIFFERENT;
    }
    if (length == 0) return Comparison::SAME;
  }
}

Comparison compare_files(const char* path_a, const char* path_b) {
  const File a = open_text(here(), path_a);
  if (a == nullptr) return Comparison::UNREADABLE;
  const File b = open_text(here(), path_b);
  if (b == nullptr) return Comparison::UNREADABLE;
  const Comparison result = compare(a.get(), b.get());
  if (result == Comparison::UNREADABLE) {
    begin_system_error(here(), "fread");
    report(ADD_WARN, here(), "cannot read %s", std::ferror(a.get()) != 0 ? path_a : path_b);
  }
  return result;
}

}  // namespace

int remove_if_identical(const char* path_a, const char* path_b) {
  switch (compare_files(path_a, path_b)) {
    case Comparison::UNREADABLE: return -1;
    case Comparison::DIFFERENT: return 0;
    case Comparison::SAME: break;
  }
  if (std::remove(FullPath(path_a).text()) == 0) return 0;
  begin_system_error(here(), "unlink");
  return report(ADD_WARN, here(), "cannot delete %s", path_a);
}

// ---- Time -------------------------------------------------------------------------------------

namespace {

constexpr std::int32_t MICROSECONDS = 1'000'000;

}  // namespace

TimeValue current_time() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t ms = duration_cast<milliseconds>(now).count();
  return {static_cast<std::int32_t>(ms / 1000), static_cast<std::int32_t>(ms % 1000 * 1000)};
}

std::int32_t elapsed_ms(const TimeValue& a, const TimeValue& b) {
  std::int64_t seconds = std::int64_t{a.seconds} - b.seconds;
  std::int32_t microseconds = a.microseconds - b.microseconds;
  if (microseconds < 0) {
    --seconds;
    microseconds += MICROSECONDS;
  }
  return static_cast<std::int32_t>(seconds * 1000 + microseconds / 1000);
}

void add_ms(TimeValue& time, std::int32_t milliseconds) {
  const std::int64_t microseconds =
      std::int64_t{time.microseconds} + std::int64_t{milliseconds % 1000} * 1000;
  std::int64_t seconds = std::int64_t{time.seconds} + milliseconds / 1000;
  if (microseconds >= MICROSECONDS) seconds += microseconds / MICROSECONDS;
  time.seconds = static_cast<std::int32_t>(seconds);
  time.microseconds = static_cast<std::int32_t>(
      microseconds >= MICROSECONDS ? microseconds % MICROSECONDS : microseconds);
}

std::int32_t now_seconds() { return current_time().seconds; }

std::uint32_t now_ms() {
  const TimeValue now = current_time();
  return static_cast<std::uint32_t>(now.seconds) * 1000U +
         static_cast<std::uint32_t>(now.microseconds / 1000);
}

// ---- Names ------------------------------------------------------------------------------------

int get_user_name(char* buffer, std::int32_t size) {
  if (buffer == nullptr || size < 1) return -1;
  DWORD length = static_cast<DWORD>(size);
  if (GetUserNameA(buffer, &length) != FALSE) return 0;
  *buffer = '\0';
  return -1;
}

namespace {

bool name_lookup_allowed = true;

/// Name services need Windows Sockets started, once.
void start_sockets() {
  static const int started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(1, 1), &data);
  }();
  static_cast<void>(started);
}

}  // namespace

bool set_name_lookup(bool allowed) {
  name_lookup_allowed = allowed;
  return allowed;
}

int resolve_ipv4(const char* text, std::uint32_t& address) {
  const std::uint32_t value = inet_addr(text);
  if (value != INADDR_NONE) {
    address = value;
    return 0;
  }
  if (!name_lookup_allowed) return -1;
  // The platform's functions do not set it.
  const ErrnoKeeper kept;
  start_sockets();
  const hostent* host = gethostbyname(text);
  if (host == nullptr || host->h_addr_list[0] == nullptr)
    return report(BEGIN_ERROR, here(), "illegal address or name %s", text);
  std::memcpy(&address, host->h_addr_list[0], sizeof address);
  return 0;
}

int ipv6_supported() {
  static const int supported = [] {
    OsIdentity identity;
    uname(identity);
    const std::string_view release = identity.release;
    const std::string_view number = release.size() > 3 ? release.substr(3, 3) : "";
    for (const char* with_ipv6 : {"5.1", "5.2", "6.0", "6.1"}) {
      if (number == with_ipv6) return 1;
    }
    return 0;
  }();
  return supported;
}

namespace {

/// The platform's resolver, which the oldest hosts that know IPv6 have in a library of its own.
struct Resolver {
  decltype(&getaddrinfo) get = nullptr;
  decltype(&freeaddrinfo) release = nullptr;
};

template <typename Function>
Function locate(HMODULE library, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

Resolver find_resolver() {
  char directory[MAX_PATH];
  const UINT length = GetSystemDirectoryA(directory, sizeof directory);
  if (length == 0 || length >= sizeof directory) return {};
  for (const char* name : {"\\ws2_32", "\\wship6"}) {
    char path[MAX_PATH + 16];
    std::snprintf(path, sizeof path, "%s%s", directory, name);
    const HMODULE library = LoadLibraryA(path);
    if (library == nullptr) continue;
    const Resolver resolver = {locate<decltype(&getaddrinfo)>(library, "getaddrinfo"),
                               locate<decltype(&freeaddrinfo)>(library, "freeaddrinfo")};
    if (resolver.get != nullptr && resolver.release != nullptr &&
        GetProcAddress(library, "getnameinfo") != nullptr) {
      return resolver;
    }
    FreeLibrary(library);
  }
  return {};
}

/// Asks the resolver, found once, for an IPv6 address; false when there is none. Without a resolver
/// the host knows IPv4 names only.
bool look_up_ipv6(const char* text, sockaddr_in6& address) {
  static const Resolver resolver = find_resolver();
  if (resolver.get == nullptr) return false;
  addrinfo hints = {};
  hints.ai_family = AF_INET6;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* answer = nullptr;
  if (resolver.get(text, nullptr, &hints, &answer) != 0 || answer == nullptr) return false;
  std::memcpy(&address, answer->ai_addr, std::min<std::size_t>(answer->ai_addrlen, sizeof address));
  resolver.release(answer);
  return true;
}

}  // namespace

int resolve_ipv6(const char* text, sockaddr_in6& address) {
  if (ipv6_supported() == 0) return report(BEGIN_ERROR, here(), "IPv6 not supported by OS");
  const ErrnoKeeper kept;
  start_sockets();
  if (look_up_ipv6(text, address)) return 0;
  return report(BEGIN_ERROR, here(),
                "cannot resolve to IPv6 address, or incorrect IPv6 address format");
}

// ---- Addresses as object identifiers ----------------------------------------------------------

namespace {

/// Reads the four bytes of an address; false when one is out of range.
bool read_address_bytes(const char* text, std::uint8_t (&bytes)[4]) {
  if (!is_digit(*text) && *text != '.') return false;
  const TextBlock copy = copy_text(text);
  SplitList pieces;
  split_at_char(copy.get(), '.', true, pieces);
  const std::int32_t first = pieces.count > 4 ? 1 : 0;
  bool in_range = true;
  for (std::int32_t i = 0; i < 4; ++i) {
    const bool given = first + i < pieces.count;
    const std::int32_t value = given ? decimal_value(pieces.pieces[first + i]) : 0;
    in_range = in_range && value >= 0 && value <= 255;
    bytes[i] = static_cast<std::uint8_t>(value);
  }
  split_release(pieces);
  return in_range;
}

}  // namespace

int ipv4_text_to_oid(const char* text, Oid& oid) {
  std::uint8_t bytes[4];
  if (!read_address_bytes(text, bytes)) return -1;
  oid.clear();
  for (const std::uint8_t byte : bytes) oid.append_id(byte);
  return 0;
}

int ipv4_text_to_address(const char* text, std::uint32_t& address) {
  std::uint8_t bytes[4];
  if (!read_address_bytes(text, bytes)) return -1;
  std::memcpy(&address, bytes, sizeof address);
  return 0;
}

int oid_to_ipv4(const Oid& oid, std::uint32_t& address) {
  std::uint8_t bytes[4];
  for (std::int32_t i = 0; i < 4; ++i) {
    if (oid.at(i) > 255) return -1;
    bytes[i] = static_cast<std::uint8_t>(oid.at(i));
  }
  std::memcpy(&address, bytes, sizeof address);
  return 0;
}

int ipv4_to_oid(std::uint32_t address, Oid& oid) {
  std::uint8_t bytes[4];
  std::memcpy(bytes, &address, sizeof bytes);
  oid.clear();
  for (const std::uint8_t byte : bytes) oid.append_id(byte);
  return 0;
}

// ---- Reports ----------------------------------------------------------------------------------

namespace {

constexpr std::int32_t DUMP_ROW = 12;
constexpr std::size_t DUMP_PREFIX = 203;

/// One row of a dump: the prefix, `n` bytes in hexadecimal, the same as characters.
void write_dump_row(const unsigned char* bytes, std::int32_t n, std::string_view prefix) {
  char row[256];
  char* at = row + prefix.copy(row, DUMP_PREFIX);
  for (std::int32_t i = 0; i < DUMP_ROW; ++i) {
    if (i == 4 || i == 8) *at++ = ' ';
    constexpr char DIGITS[] = "0123456789ABCDEF";
    *at++ = i < n ? DIGITS[bytes[i] >> 4] : ' ';
    *at++ = i < n ? DIGITS[bytes[i] & 15] : ' ';
    *at++ = ' ';
  }
  *at++ = ' ';
  *at++ = ' ';
  for (std::int32_t i = 0; i < n; ++i) {
    *at++ = bytes[i] >= ' ' && bytes[i] <= '~' ? static_cast<char>(bytes[i]) : '.';
  }
  *at = '\0';
  write_info("%s", row);
}

}  // namespace

void hex_dump(const void* bytes, std::int32_t n, const char* prefix) {
  const auto* at = static_cast<const unsigned char*>(bytes);
  for (; n > 0; n -= DUMP_ROW, at += DUMP_ROW) {
    write_dump_row(at, std::min(n, DUMP_ROW), prefix);
  }
}

int report_lines(const char* text) {
  report(BEGIN_ERROR, here(), "%s", "");
  const std::size_t size = std::strlen(text) + 1;
  const TextBlock copy(static_cast<char*>(std::malloc(size)));
  if (copy == nullptr) {
    report(BEGIN_ERROR, here(), "out of memory");
    return -1;
  }
  std::memcpy(copy.get(), text, size);
  SplitList lines;
  split_at_char(copy.get(), '\n', false, lines);
  for (std::int32_t i = lines.count - 1; i >= 0; --i) {
    report(i == lines.count - 1 ? BEGIN_ERROR : ADD_WARN, here(), "%s", lines.pieces[i]);
  }
  return split_release(lines);
}

int file_type_list(char* buffer, std::size_t size) {
  copy_cut(buffer, size,
           "{*.ztcl {ZARVO Tcl scripts} {edit yes} {new yes}} "
           "{*.tcl {Tcl script files} {edit yes} {new yes}} "
           "{*.dll {C/C++ DLL files} {edit no} {new no}}");
  return 0;
}
