#include "platform/host/exact_wait.h"

#include <sys/prctl.h>

#include <chrono>
#include <thread>

void wait_exactly(DWORD milliseconds) {
  // Set once, in nanoseconds, for the only thread there is; a system that refuses waits longer.
  constexpr unsigned long TIMER_SLACK = 1;
  [[maybe_unused]] static const int slack_set = prctl(PR_SET_TIMERSLACK, TIMER_SLACK);
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
