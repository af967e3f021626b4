#include "shared/include/vmk_errmsg.h"

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

// Calls instead of the functions' addresses, which would have to be looked up at every start.
const MemoryOperations STANDARD_MEMORY = {
    [](std::size_t count, std::size_t size) { return std::calloc(count, size); },
    [](std::size_t size) { return std::malloc(size); }, [](void* block) { std::free(block); },
    [](void* block, std::size_t size) { return std::realloc(block, size); },
    [](void* block) { std::free(block); }};

namespace {

constexpr char MODULE[] = ".\\vmk_errmsg";
constexpr int GROWTH_STEP = 128;
constexpr int SYSTEM_TEXT_SIZE = 8192;
constexpr int NOTICE_LENGTH = sizeof OUT_OF_MEMORY_NOTICE - 1;

/// The level words, padded to the width of the longest and followed by a blank.
constexpr const char* LEVEL_COLUMNS[] = {"ERROR ", "WARN  ", "DEBUG ", "INFO  "};

ReportSite here(int line = __builtin_LINE()) { return {MODULE, line}; }

/// What reports share beside the log: the place set last, and the saved error code.
struct ReportState {
  char file[128] = "";
  std::int32_t line = 0;
  std::uint32_t last_error = 0;
};

ReportState report_state;

}  // namespace

// ---- MessageLog -------------------------------------------------------------------------------

MessagePiece MessageLog::empty_piece(FirstBlock& block) {
  block[0] = '\0';
  return {block, 0, FIRST_BLOCK_SIZE};
}

MessageLog::MessageLog(const MemoryOperations& memory) : memory_(memory) {
  for (std::size_t i = 0; i < std::size(pieces_); ++i) pieces_[i] = empty_piece(first_blocks_[i]);
  output_ = empty_piece(first_blocks_[std::size(pieces_)]);
  last_ = empty_piece(first_blocks_[std::size(pieces_) + 1]);
  reserve_ = memory_.allocate(DIAGNOSTIC_RESERVE_SIZE);
  if (reserve_ == nullptr) assertion_report(here(), "not enough memory for diagnostics");
}

MessageLog::~MessageLog() {
  piece_count_ = 0;
  memory_.release(reserve_);
  if (is_grown(output_)) memory_.release_resized(output_.text);
  if (is_grown(last_)) memory_.release_resized(last_.text);
  for (const MessagePiece& piece : pieces_) {
    if (is_grown(piece)) memory_.release_resized(piece.text);
  }
}

void MessageLog::begin() {
  if (enabled_ != 0) piece_count_ = 0;
}

/// Resizes the piece's block; when memory is short, gives the reserve back once and tries again.
/// Leaves errno as it was: the log reports errno, and must not be what sets it.
bool MessageLog::grow(MessagePiece& piece, std::int32_t capacity) {
  const int kept_errno = errno;
  const auto size = static_cast<std::size_t>(capacity);
  const bool had_grown = is_grown(piece);
  void* const grown = had_grown ? piece.text : nullptr;
  void* block = memory_.resize(grown, size);
  if (block == nullptr && reserve_ != nullptr) {
    memory_.release(reserve_);
    reserve_ = nullptr;
    block = memory_.resize(grown, size);
  }
  errno = kept_errno;
  if (block == nullptr) return false;
  if (!had_grown) std::memcpy(block, piece.text, FIRST_BLOCK_SIZE);
  piece.text = static_cast<char*>(block);
  piece.capacity = capacity;
  return true;
}

int MessageLog::push(const char* text) {
  if (enabled_ == 0) return 0;
  if (piece_count_ == MAX_MESSAGE_PIECES) return -1;
  MessagePiece& piece = pieces_[piece_count_];
  const auto length = static_cast<std::int32_t>(std::strlen(text));
  const bool fits = piece.capacity > length + 1;
  if (!fits && !grow(piece, length + 1 + GROWTH_STEP)) return -1;
  std::memcpy(piece.text, text, static_cast<std::size_t>(length) + 1);
  piece.length = length;
  ++piece_count_;
  return 0;
}

bool MessageLog::make_room(MessagePiece& output, std::int32_t need) {
  return output.capacity > need || grow(output, need + GROWTH_STEP);
}

bool MessageLog::append(MessagePiece& output, const MessagePiece& piece) {
  if (!make_room(output, output.length + piece.length + 2)) return false;
  std::memcpy(output.text + output.length, piece.text, static_cast<std::size_t>(piece.length));
  output.length += piece.length;
  if (piece.length == 0 || output.text[output.length - 1] != '\n') {
    output.text[output.length++] = '\n';
  }
  output.text[output.length] = '\0';
  return true;
}

bool MessageLog::append_notice(MessagePiece& output) {
  const std::int32_t end = output.length + NOTICE_LENGTH;
  if (!make_room(output, end)) return false;
  std::memcpy(output.text + output.length, OUT_OF_MEMORY_NOTICE, sizeof OUT_OF_MEMORY_NOTICE);
  output.length = end;
  return true;
}

void MessageLog::compose_into(MessagePiece& output) {
  output.length = 0;
  output.text[0] = '\0';
  for (std::int32_t i = piece_count_ - 1; i >= 0; --i) {
    const std::int32_t start = output.length;
    if (!append(output, pieces_[i])) break;
    if (i == piece_count_ - 1) continue;
    char* cause = output.text + start;
    std::fill(cause, cause + std::strcspn(cause, " \n"), ' ');
  }
  owes_notice_ = reserve_ == nullptr && !append_notice(output);
}

const char* MessageLog::compose() {
  compose_into(output_);
  return output_.text;
}

const char* MessageLog::compose_last() {
  compose_into(last_);
  return last_.text;
}

// ---- Formatting -------------------------------------------------------------------------------

namespace {

/// The current local time as "month/day.hour:minute:second", kept for the reports of the same
/// second. Leaves errno as it was.
const char* time_stamp() {
  static std::time_t stamped = -1;
  static char text[64];
  const std::time_t now = std::time(nullptr);
  if (now != stamped) {
    const int kept_errno = errno;
    stamped = now;
    const std::tm* local = std::localtime(&now);
    const std::tm clock = local != nullptr ? *local : std::tm{};
    std::snprintf(text, sizeof text, "%02d/%02d.%02d:%02d:%02d", clock.tm_mon + 1, clock.tm_mday,
                  clock.tm_hour, clock.tm_min, clock.tm_sec);
    errno = kept_errno;
  }
  return text;
}

/// A report under construction: header first, then the caller's text, cut at the buffer's end.
struct ReportBuffer {
  char text[REPORT_BUFFER_SIZE];
  std::size_t length = 0;

  /// Most reports are texts and whole numbers put together: these are written by hand, and what
  /// follows the first other conversion is left to the formatter.
  [[gnu::format(printf, 2, 0)]] void append(const char* format, std::va_list arguments) {
    for (;;) {
      const char* conversion = std::strchr(format, '%');
      if (conversion == nullptr) conversion = format + std::strlen(format);
      append_text({format, conversion});
      format = conversion;
      const char kind = *format != '\0' ? format[1] : '\0';
      if (kind == 's') {
        const char* argument = va_arg(arguments, const char*);
        append_text(argument != nullptr ? argument : "(null)");
      } else if (kind == 'd') {
        append_number(va_arg(arguments, int));
      } else {
        break;
      }
      format += 2;
    }
    text[length] = '\0';
    if (*format != '\0') append_formatted(format, arguments);
  }

  [[gnu::format(printf, 2, 0)]] void append_formatted(const char* format, std::va_list arguments) {
    const int added = std::vsnprintf(text + length, sizeof text - length, format, arguments);
    if (added < 0) text[length] = '\0';
    length = std::min(length + static_cast<std::size_t>(std::max(added, 0)), sizeof text - 1);
  }

  void append_text(std::string_view added) {
    const std::size_t size = std::min(added.size(), sizeof text - 1 - length);
    std::memcpy(text + length, added.data(), size);
    length += size;
  }

  void append_number(int number) {
    char digits[std::numeric_limits<int>::digits10 + 2];
    append_text({digits, std::to_chars(digits, std::end(digits), number).ptr});
  }

  /// "LEVEL TIME FILE:LINE - ", the level word in five columns; INFO names no place. Put together
  /// by hand: every report passes here.
  void append_header(Level level) {
    append_text(LEVEL_COLUMNS[level]);
    append_text(time_stamp());
    if (level != LEVEL_INFO) {
      append_text(" ");
      append_text(report_state.file);
      append_text(":");
      append_number(report_state.line);
    }
    append_text(" - ");
  }
};

[[gnu::format(printf, 2, 0)]] void hold_report(Level level, const char* format,
                                               std::va_list arguments) {
  ReportBuffer report;
  report.append_header(level);
  report.append(format, arguments);
  message_log->push(report.text);
}

/// The reason that errmsg_error_system gives, in a buffer of SYSTEM_TEXT_SIZE characters.
void system_reason(char* buffer) {
  if (errno != 0) {
    std::snprintf(buffer, SYSTEM_TEXT_SIZE, "%s", std::strerror(errno));
    return;
  }
  buffer[0] = '\0';
  const DWORD length = FormatMessageA(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, report_state.last_error,
      MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), buffer, SYSTEM_TEXT_SIZE, nullptr);
  if (length == 0) {
    std::snprintf(buffer, SYSTEM_TEXT_SIZE, "GetLastError %d",
                  static_cast<int>(report_state.last_error));
  } else if (length >= 2 && buffer[length - 2] == '\r') {
    buffer[length - 2] = '\0';
  }
}

}  // namespace

// ---- Operations -------------------------------------------------------------------------------

void errmsg_set_location(const char* path, std::int32_t line) {
  const char* backslash = std::strrchr(path, '\\');
  const char* name = backslash != nullptr ? backslash + 1 : path;
  const std::size_t length = std::min(std::strlen(name), sizeof report_state.file - 1);
  std::memcpy(report_state.file, name, length);
  report_state.file[length] = '\0';
  report_state.line = line;
}

void errmsg_error(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  hold_report(LEVEL_ERROR, format, arguments);
  va_end(arguments);
}

void errmsg_warn(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  hold_report(LEVEL_WARN, format, arguments);
  va_end(arguments);
}

void errmsg_debug(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  hold_report(LEVEL_DEBUG, format, arguments);
  va_end(arguments);
}

void errmsg_info(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  hold_report(LEVEL_INFO, format, arguments);
  va_end(arguments);
}

std::uint32_t errmsg_save_last_error() {
  report_state.last_error = GetLastError();
  return report_state.last_error;
}

void errmsg_error_system(const char* text) {
  char reason[SYSTEM_TEXT_SIZE];
  system_reason(reason);
  errmsg_error("%s: %s", text, reason);
}

void errmsg_flush() {
  if (!errmsg_enabled()) return;
  const int kept_errno = errno;
  // Standard error is unbuffered: one call, one write.
  std::fputs(message_log->compose_last(), stderr);
  if (message_log->owes_notice()) std::fputs(OUT_OF_MEMORY_NOTICE, stderr);
  std::fflush(stderr);
  errno = kept_errno;
}

void errmsg_push_format(const char* format, ...) {
  ReportBuffer report;
  std::va_list arguments;
  va_start(arguments, format);
  report.append(format, arguments);
  va_end(arguments);
  errmsg_push(report.text);
}

void errmsg_push_errno() { errmsg_push(std::strerror(errno)); }

// ---- Reports with their place -----------------------------------------------------------------

int report(ReportKind kind, ReportSite site, const char* format, ...) {
  if (!errmsg_enabled()) return -1;
  if (kind.begins) errmsg_begin();
  errmsg_set_location(site.module, site.line);
  std::va_list arguments;
  va_start(arguments, format);
  hold_report(kind.level, format, arguments);
  va_end(arguments);
  if (kind.flushes) errmsg_flush();
  return -1;
}

void begin_system_error(ReportSite site, const char* call) {
  errmsg_save_last_error();
  if (!errmsg_enabled()) return;
  errmsg_begin();
  errmsg_set_location(site.module, site.line);
  errmsg_error_system(call);
}

void write_info(const char* format, ...) {
  if (!errmsg_enabled()) return;
  errmsg_begin();
  std::va_list arguments;
  va_start(arguments, format);
  hold_report(LEVEL_INFO, format, arguments);
  va_end(arguments);
  errmsg_flush();
  errmsg_begin();
}

// ---- Assertion reports ------------------------------------------------------------------------

namespace {

void (*stop_action)() = nullptr;

}  // namespace

void set_stop_action(void (*action)()) { stop_action = action; }

void write_assertion_text(ReportSite site, const char* reason) {
  std::printf("ERROR %s:%u: assertion failed - ", site.module, static_cast<unsigned>(site.line));
  std::printf("%s", reason);
  std::printf("\n");
  std::fflush(stdout);
}

void assertion_report(ReportSite site, const char* format, ...) {
  char reason[REPORT_BUFFER_SIZE];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(reason, sizeof reason, format, arguments);
  va_end(arguments);
  write_assertion_text(site, reason);
  if (stop_action != nullptr) stop_action();
  // The status of the Windows runtime's abort, without the text that some runtimes add to it.
  std::_Exit(3);
}
