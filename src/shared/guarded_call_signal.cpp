#include "shared/include/guarded_call.h"

#include <csetjmp>
#include <csignal>

#include "base/not_copied.h"

namespace {

sigjmp_buf* landing = nullptr;

void leave_call(int /*signal*/) { siglongjmp(*landing, 1); }

/// While it lives, a fault of this thread lands in the guarded call.
class FaultTrap : NotCopied {
 public:
  FaultTrap() {
    struct sigaction action = {};
    action.sa_handler = leave_call;
    sigemptyset(&action.sa_mask);
    sigaction(SIGSEGV, &action, &segv_);
    sigaction(SIGBUS, &action, &bus_);
  }
  ~FaultTrap() {
    sigaction(SIGSEGV, &segv_, nullptr);
    sigaction(SIGBUS, &bus_, nullptr);
  }

 private:
  struct sigaction segv_ = {};
  struct sigaction bus_ = {};
};

}  // namespace

bool guarded_call(void (*function)(void* argument), void* argument) {
  const FaultTrap trap;
  sigjmp_buf buffer;
  sigjmp_buf* const outer = landing;
  // Read after the jump, so it must not live in a register that the jump restores.
  volatile bool returned = false;
  if (sigsetjmp(buffer, 1) == 0) {
    landing = &buffer;
    function(argument);
    returned = true;
  }
  landing = outer;
  return returned;
}
