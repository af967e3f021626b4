// The terminal that the program was started at, as the platform's console: it edits and recalls
// lines for every program, has a title, and is not led astray by what a program writes.
#pragma once

#include <string_view>

/// Opens the null device in place of each standard stream that is closed, so that nothing else gets
/// its number.
void open_missing_streams();

/// Puts the terminal behind the standard streams; what they are at that moment counts. Once.
/// Standard error, when it is a terminal, shows control and format characters in plain ones. Where
/// standard input is one, `interrupt` is asked at SIGINT, in a signal handler, and answers whether
/// the program goes on. Where standard output is one as well, lines are edited, the prompt has the
/// title `prompt_title`, and a signal that ends the program gives the terminal its own title back
/// first.
void open_terminal(std::string_view prompt_title, bool (*interrupt)());

/// Gives the terminal its own title back. A signal handler may call it.
void restore_terminal_title();

/// The title that was set last; empty for the terminal's own.
[[nodiscard]] const char* terminal_title();

/// Shows a title; an empty one puts back the terminal's own. False where there is no terminal, or
/// none that has a title.
[[nodiscard]] bool set_terminal_title(std::string_view title);
