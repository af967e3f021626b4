// The terminal that the program was started at, as the platform's console: it edits and recalls
// lines for every program, has a title, and is not led astray by what a program writes. Where
// standard input or output is no terminal, nothing of this is there.
#pragma once

#include <string>
#include <string_view>

/// Puts the console behind the standard streams; what they are at that moment counts. Once.
void open_console();

/// The title that was set last; empty for the terminal's own.
[[nodiscard]] const std::string& console_title();

/// Shows a title; an empty one puts back the terminal's own. False where there is no console.
[[nodiscard]] bool set_console_title(std::string_view title);
