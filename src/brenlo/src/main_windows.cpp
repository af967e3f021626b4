// The entry on Windows: it brings the console's texts into the code page of the host's own, has
// Ctrl-C end a stress test instead of the program, and leaves the console as it found it.

#include <windows.h>

#include <cstring>

#include "brenlo/src/kadrix.h"
#include "shared/include/vmk_errmsg.h"

namespace {

bool is_console(DWORD stream) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(stream), &mode) != FALSE;
}

/// The console as the program found it. Written once, before any handler can run.
struct FoundConsole {
  bool reads = false;
  bool writes = false;
  UINT input_page = 0;
  UINT output_page = 0;
  char title[4096] = "";
};

FoundConsole found;

void open_console() {
  found.reads = is_console(STD_INPUT_HANDLE);
  found.writes = is_console(STD_OUTPUT_HANDLE) || is_console(STD_ERROR_HANDLE);
  found.input_page = GetConsoleCP();
  found.output_page = GetConsoleOutputCP();
  GetConsoleTitleA(found.title, sizeof found.title);
  if (found.reads) SetConsoleCP(GetACP());
  if (found.writes) SetConsoleOutputCP(GetACP());
}

void restore_console() {
  char title[sizeof found.title] = "";
  GetConsoleTitleA(title, sizeof title);
  if (std::strcmp(title, found.title) != 0) SetConsoleTitleA(found.title);
  if (found.reads) SetConsoleCP(found.input_page);
  if (found.writes) SetConsoleOutputCP(found.output_page);
}

/// Runs in a thread of its own. What it does not answer ends the program.
BOOL WINAPI handle_control(DWORD kind) {
  if (kind == CTRL_C_EVENT && found.reads && interrupt_stress()) return TRUE;
  restore_console();
  return FALSE;
}

}  // namespace

int main(int argument_count, char** arguments) {
  open_console();
  SetConsoleCtrlHandler(handle_control, TRUE);
  set_stop_action(restore_console);
  const int status = run_kadrix(argument_count, arguments);
  restore_console();
  return status;
}
