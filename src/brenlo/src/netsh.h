// Runs a command hidden and reads what it prints, for the IPv6 addresses of an adapter.
#pragma once

#include <winsock2.h>

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "shared/include/utils.h"

/// The groups of an IPv6 address text as they stand in it, hexadecimal; "::" adds none, groups
/// beyond the eighth are left out, missing ones are 0. Always returns 0.
int parse_ipv6_groups(const char* text, std::uint16_t (&groups)[8]);

/// Starts a command line without a window, with these handles as its standard output and input;
/// does not wait for it. Non-zero when it started, else 0.
[[nodiscard]] int run_hidden_process(const char* command_line, HANDLE output, HANDLE input);

/// Closes the write end of a pipe and reads the other to its end. Gives the text, terminated, and
/// its length; null when the write end cannot be closed or memory is exhausted.
TextBlock read_pipe_output(std::size_t& length, HANDLE write_end, HANDLE read_end);

enum class CommandResult { NOT_STARTED, FAILED, SUCCEEDED };

/// Runs netsh on an IPv6 address of a connection; `verb` is "add" or "del". It succeeded when its
/// output holds "Ok.".
CommandResult run_netsh(const char* verb, const char* connection, const char* address);
