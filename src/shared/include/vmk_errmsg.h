// The message log: the one channel through which the program tells the operator anything.
//
// A report is formatted at once and held as a piece of the current message. A function that meets a
// failure begins a message and reports the cause; each caller adds its own report; the outermost
// caller flushes, and the whole chain goes to standard error as one block, outermost report first.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/not_copied.h"

constexpr int MAX_MESSAGE_PIECES = 64;
constexpr int DIAGNOSTIC_RESERVE_SIZE = 4096;
constexpr int REPORT_BUFFER_SIZE = 16384;
constexpr char OUT_OF_MEMORY_NOTICE[] = "ERROR diagnostic subsystem out of memory\n";

/// The memory functions that a log works with; each behaves as its standard namesake.
struct MemoryOperations {
  void* (*zeroed_allocate)(std::size_t count, std::size_t size);
  void* (*allocate)(std::size_t size);
  void (*release)(void* block);
  void* (*resize)(void* block, std::size_t size);
  void (*release_resized)(void* block);
};

extern const MemoryOperations STANDARD_MEMORY;

/// A growable text: `length` characters and a NUL in a block of `capacity` bytes.
struct MessagePiece {
  char* text;
  std::int32_t length;
  std::int32_t capacity;
};

/// Holds the pieces of one message and composes them. Owns its blocks; not copyable. The blocks
/// that the texts start with are part of the log, so that short messages never wait for memory.
class MessageLog : NotCopied {
 public:
  /// Allocates the reserve; without it the process ends with an assertion report.
  /// `memory` must outlive the log.
  explicit MessageLog(const MemoryOperations& memory);
  ~MessageLog();

  /// Starts a new message, unless the enable counter is 0.
  void begin();

  /// Holds a copy of `text` as the next piece. Returns 0, or -1 when it had to be dropped: 64
  /// pieces are held already, or memory ran out. Does nothing (0) while the enable counter is 0.
  int push(const char* text);

  /// Composes the held pieces, newest first; the level words of all but the newest are blanked.
  /// The text belongs to the log and stands until the next composition.
  const char* compose();

  /// The same for a text that is to be written: it stands until the next one is.
  const char* compose_last();

  /// The text of the last compose_last, empty before the first.
  [[nodiscard]] const char* last() const { return last_.text; }

  /// True when the last composition had no room left for the out-of-memory notice, which the
  /// writer then owes the operator.
  [[nodiscard]] bool owes_notice() const { return owes_notice_; }

  void suspend() { --enabled_; }
  void resume() { ++enabled_; }
  [[nodiscard]] bool enabled() const { return enabled_ > 0; }

 private:
  static constexpr std::int32_t FIRST_BLOCK_SIZE = 128;
  using FirstBlock = char[FIRST_BLOCK_SIZE];

  static MessagePiece empty_piece(FirstBlock& block);
  static bool is_grown(const MessagePiece& piece) { return piece.capacity > FIRST_BLOCK_SIZE; }
  [[nodiscard]] bool grow(MessagePiece& piece, std::int32_t capacity);
  void compose_into(MessagePiece& output);
  [[nodiscard]] bool make_room(MessagePiece& output, std::int32_t need);
  [[nodiscard]] bool append(MessagePiece& output, const MessagePiece& piece);
  [[nodiscard]] bool append_notice(MessagePiece& output);

  const MemoryOperations& memory_;
  std::int32_t enabled_ = 1;
  std::int32_t piece_count_ = 0;
  MessagePiece pieces_[MAX_MESSAGE_PIECES];
  MessagePiece output_;
  MessagePiece last_;
  FirstBlock first_blocks_[MAX_MESSAGE_PIECES + 2];
  void* reserve_;
  bool owes_notice_ = false;
};

/// The process-wide log (shared_state.h); null until it is made.
extern MessageLog* message_log;

// ---- Operations on the process-wide log -------------------------------------------------------

/// Starts a new message.
inline void errmsg_begin() { message_log->begin(); }

/// Sets the place that the following ERROR, WARN and DEBUG reports name: the part of `path` after
/// its last backslash (at most 127 characters), and the line.
void errmsg_set_location(const char* path, std::int32_t line);

/// Format a report of the level and hold it; printf conventions, no line end needed. A report is
/// cut to REPORT_BUFFER_SIZE - 1 characters, header included.
[[gnu::format(printf, 1, 2)]] void errmsg_error(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void errmsg_warn(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void errmsg_debug(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void errmsg_info(const char* format, ...);

/// Reads the platform's last-error code, keeps it for errmsg_error_system and returns it.
std::uint32_t errmsg_save_last_error();

/// Reports "TEXT: REASON" at level ERROR. The reason is the standard library's text when errno is
/// not 0, otherwise the platform's text for the saved code.
void errmsg_error_system(const char* text);

/// Composes the message and writes it to standard error. The pieces stay held until the next
/// errmsg_begin. Does nothing while the log is suspended.
void errmsg_flush();

/// True while the log takes reports.
[[nodiscard]] inline bool errmsg_enabled() { return message_log->enabled(); }

/// Holds a finished text; see MessageLog::push.
inline int errmsg_push(const char* text) { return message_log->push(text); }

/// The composed text of the held pieces; see MessageLog::compose.
inline const char* errmsg_compose() { return message_log->compose(); }

/// Lower and raise the enable counter; calls nest.
inline void errmsg_suspend() { message_log->suspend(); }
inline void errmsg_resume() { message_log->resume(); }

/// The text that the last flush wrote, empty before the first; stands until the next flush.
inline const char* errmsg_last_message() { return message_log->last(); }

/// Formats a text without a header and holds it.
[[gnu::format(printf, 1, 2)]] void errmsg_push_format(const char* format, ...);

/// Holds the standard library's text for errno.
void errmsg_push_errno();

// ---- Reports with their place -----------------------------------------------------------------
//
// The form in which every module reports; silent while the log is suspended. A module gives its
// place with a function `here()` of its own, whose default argument takes the line.

/// Where a report is made: the path by which the module names itself, such as ".\system", and the
/// line of the report.
struct ReportSite {
  const char* module;
  std::int32_t line;
};

/// The index of a level's word in the table of level words.
enum Level { LEVEL_ERROR, LEVEL_WARN, LEVEL_DEBUG, LEVEL_INFO };

/// What a report does to the message: whether it begins a new one, and whether it is written at
/// once.
struct ReportKind {
  Level level;
  bool begins;
  bool flushes;
};

/// A failure met here; the caller up the chain adds to it and flushes.
constexpr ReportKind BEGIN_ERROR = {LEVEL_ERROR, true, false};
/// More about the failure that a callee began.
constexpr ReportKind ADD_ERROR = {LEVEL_ERROR, false, false};
constexpr ReportKind ADD_WARN = {LEVEL_WARN, false, false};
/// The last word on the failure that a callee began.
constexpr ReportKind CLOSE_ERROR = {LEVEL_ERROR, false, true};
constexpr ReportKind CLOSE_WARN = {LEVEL_WARN, false, true};
/// A message of its own.
constexpr ReportKind WRITE_ERROR = {LEVEL_ERROR, true, true};
constexpr ReportKind WRITE_DEBUG = {LEVEL_DEBUG, true, true};

/// Always -1, which is what a function that failed gives.
[[gnu::format(printf, 3, 4)]] int report(ReportKind kind, ReportSite site, const char* format, ...);

/// Begins a message of "CALL: REASON" at level ERROR, the reason that of the platform call that has
/// just failed; see errmsg_error_system.
void begin_system_error(ReportSite site, const char* call);

/// An INFO line: a message of its own, written at once and cleared.
[[gnu::format(printf, 1, 2)]] void write_info(const char* format, ...);

// ---- Assertion reports ------------------------------------------------------------------------

/// Writes "ERROR MODULE:LINE: assertion failed - REASON" to standard output, past the log.
void write_assertion_text(ReportSite site, const char* reason);

/// Has `action` done before an assertion report ends the process; null for nothing.
void set_stop_action(void (*action)());

/// Writes the assertion text with a printf-style reason and ends the process with status 3.
/// For conditions that a module cannot survive; allocates nothing.
[[noreturn, gnu::format(printf, 2, 3)]] void assertion_report(ReportSite site, const char* format,
                                                              ...);
