// Helpers of the product's shared library: texts, lines of files, ranges, time, names, dumps.
//
// Reports go to the message log; a helper that reports begins the message and does not flush,
// unless it says otherwise. "White space" is space, tab, line feed, vertical tab, form feed and
// carriage return. Helpers that copy texts end the process with an assertion report when memory
// runs out.
#pragma once

#include <winsock2.h>

#include <windows.h>

#include <ws2tcpip.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

#include "base/errno_keeper.h"
#include "base/text.h"
#include "shared/include/dynstore.h"
#include "shared/include/oid.h"
#include "shared/include/text_block.h"

// ---- Texts ------------------------------------------------------------------------------------

/// The first character of `text` that is not white space.
[[nodiscard]] const char* skip_blanks(const char* text);

/// Remove white space at the front, at the end, at both, in place. Always 0.
int trim_leading(char* text);
int trim_trailing(char* text);
int trim(char* text);

/// A new copy of `text`, owned by the caller.
[[nodiscard]] TextBlock copy_text(const char* text);

/// Replaces \0, \n, \r, \s and \t by NUL, line feed, carriage return, space and tab, in place; a
/// backslash before any other character, or at the end, stays. Returns the text.
char* unescape(char* text);

/// What normalize_blanks leaves as it is.
enum QuotingFlags : unsigned {
  QUOTE_SINGLE = 1,
  QUOTE_BACK = 2,
  QUOTE_DOUBLE = 4,
  BRACKET_CURLY = 8,
  BRACKET_ROUND = 16,
  BRACKET_SQUARE = 32,
  ESCAPE_BACKSLASH = 64,
};

/// Collapses runs of spaces and tabs outside the quoted and bracketed sections that `flags` name to
/// one space, drops them at both ends, and ends the text at the first of the `stops` (or null)
/// outside such a section. In place; always 0.
int normalize_blanks(char* text, unsigned flags, const char* stops);

/// The pieces of a text that was split in place; they lie in that text.
struct SplitList {
  std::int32_t count = 0;
  char** pieces = nullptr;
};

/// Splits at a character. Empty pieces are skipped when `skip_empty` is set; a separator at the
/// very end adds none either way. The list must be released. Always 0.
int split_at_char(char* text, char separator, bool skip_empty, SplitList& list);

/// Splits at a text, which must not be empty. Returns 1, or 0 when the text ends with the
/// separator. The list must be released.
int split_at_text(char* text, const char* separator, SplitList& list);

/// Releases the list's array. Always 0.
int split_release(SplitList& list);

/// 0 when the first `n` bytes are all printable ASCII characters, or n < 1; else 1.
[[nodiscard]] int has_unprintable(const char* buffer, std::int32_t n);

/// 1 when the text with its NUL fits in `n` bytes, else 0.
[[nodiscard]] int fits_in(const char* text, std::int32_t n);

/// Turn slashes into backslashes, backslashes into slashes, in place. 0, or -1 for no text.
int to_backslashes(char* text);
int to_slashes(char* text);

/// Turns backslashes into slashes and capital ASCII letters into small ones. 0, or -1 for no text.
int normalize_path(char* text);

// ---- Numbers ----------------------------------------------------------------------------------

/// The value of a hexadecimal digit, -1 for any other character.
[[nodiscard]] int hex_value(char c);

/// Reads a decimal number at `*text`: leading white space, an optional sign, digits. On success
/// stores it, moves `*text` behind it and returns true; a number beyond 32 bits becomes the nearest
/// one within. Without digits returns false and changes nothing.
bool scan_decimal(const char** text, std::int32_t* value);

/// The decimal number at the start of `text`, read like scan_decimal; 0 without digits.
std::int32_t decimal_value(const char* text);

/// Reads up to four decimal numbers separated by full stops into `numbers` (a number that the text
/// does not give stays as it is). Returns how many were read.
int scan_quad(const char* text, std::int32_t (&numbers)[4]);

/// Converts hexadecimal digits, with white space, ":" and "-" between bytes, to bytes, in place and
/// followed by a NUL. Returns 0 and the number of bytes; -1 after a report at a character that does
/// not belong, with `length` not set.
[[nodiscard]] int hex_to_bytes(char* text, std::int32_t& length);

/// Sets flags[k] to `value` for every position k from 1 to n that a list such as "1-3,5" names;
/// what lies outside is ignored. `flags` has n + 1 bytes. Always 0.
int ranges_to_flags(const char* ranges, std::uint8_t* flags, std::int32_t n, std::uint8_t value);

/// Puts the ranges of positions from 1 to n whose flags have a bit of `mask` into `text`. Always 0.
int flags_to_ranges(const std::uint8_t* flags, std::int32_t n, DynStore& text, std::uint8_t mask);

// ---- Files ------------------------------------------------------------------------------------

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// A path as the functions of the C library take it, which know no drives on some systems; one that
/// the platform cannot make full stands for itself.
class FullPath {
 public:
  explicit FullPath(const char* path);

  [[nodiscard]] const char* text() const { return text_; }

 private:
  const char* text_;
  char full_[MAX_PATH + 1024];
};

/// Opens a file for reading; null, with errno set, when it cannot be opened or is a directory,
/// which some systems open and then cannot read.
[[nodiscard]] File open_for_reading(const char* path, const char* mode);

/// A line of a file: in the caller's buffer, or in the block when it did not fit.
struct FileLine {
  char* text = nullptr;  ///< null when there is no line
  TextBlock block;
};

/// Reads one line without its line feed; `length` is its length, up to its first NUL. There is
/// no line at the end of the stream, nor after a failure, which is reported. A `buffer_length`
/// below 1 ends the process with an assertion report.
FileLine read_line(std::FILE* stream, char* buffer, std::int32_t buffer_length,
                   std::size_t& length);

/// Deletes the first file when both have the same content, which a file has with itself. 0 whether
/// it did or not; -1, reported, when a file could not be read or the file could not be deleted.
[[nodiscard]] int remove_if_identical(const char* path_a, const char* path_b);

// ---- Time -------------------------------------------------------------------------------------

struct TimeValue {
  std::int32_t seconds;
  std::int32_t microseconds;
};

/// The platform's clock, in steps of a millisecond.
[[nodiscard]] TimeValue current_time();

/// a - b in milliseconds.
[[nodiscard]] std::int32_t elapsed_ms(const TimeValue& a, const TimeValue& b);

/// Adds milliseconds, which must not be negative. Wraps at 32 bits of seconds.
void add_ms(TimeValue& time, std::int32_t milliseconds);

[[nodiscard]] std::int32_t now_seconds();
/// Wraps at 32 bits.
[[nodiscard]] std::uint32_t now_ms();

// ---- Names ------------------------------------------------------------------------------------

/// The logged-on user's name. 0, or -1 with the buffer emptied (or missing).
int get_user_name(char* buffer, std::int32_t size);

/// Allows resolve_ipv4 to ask the name service; on at the start. Returns the value set.
[[nodiscard]] bool set_name_lookup(bool allowed);

/// The address (network byte order) that a dotted text or a host name stands for. 0 or -1; an
/// unknown name is reported.
int resolve_ipv4(const char* text, std::uint32_t& address);

/// 1 when the release of the system supports IPv6, else 0; asked once.
[[nodiscard]] int ipv6_supported();

/// The IPv6 socket address of a text. 0, or -1 after a report.
int resolve_ipv6(const char* text, sockaddr_in6& address);

// ---- Addresses as object identifiers -----------------------------------------------------------
//
// Addresses are in network byte order. 0, or -1 for what is no address: the target is then
// unchanged.

/// Read up to four numbers from 0 to 255 separated by full stops, missing ones 0; of five or more
/// the first is left out. The identifier becomes exactly the four numbers.
int ipv4_text_to_oid(const char* text, Oid& oid);
int ipv4_text_to_address(const char* text, std::uint32_t& address);

/// The first four sub-identifiers, 0 beyond the end; each must be at most 255.
int oid_to_ipv4(const Oid& oid, std::uint32_t& address);

/// Always 0.
int ipv4_to_oid(std::uint32_t address, Oid& oid);

// ---- Reports ----------------------------------------------------------------------------------

/// Writes bytes as INFO lines of 12, in hexadecimal and as characters, each behind the prefix (cut
/// to 203 characters).
void hex_dump(const void* bytes, std::int32_t n, const char* prefix);

/// Holds a text of several lines as one ERROR message that shows them in order. 0 or -1.
int report_lines(const char* text);

/// Writes the script editor's table of file types, as Tcl lists, cut to `size` (at least 1) bytes.
/// Always 0.
int file_type_list(char* buffer, std::size_t size);
