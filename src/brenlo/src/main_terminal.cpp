// The entry off Windows: it opens the terminal, on the host that the environment names.

#include <string>

#include "brenlo/src/kadrix.h"
#include "platform/host/host.h"
#include "platform/terminal/terminal.h"
#include "shared/include/vmk_errmsg.h"

int main(int argument_count, char** arguments) {
  open_missing_streams();
  open_terminal("kadrix: " + std::string(current_host().kind()), interrupt_stress);
  set_stop_action(restore_terminal_title);
  const int status = run_kadrix(argument_count, arguments);
  restore_terminal_title();
  return status;
}
