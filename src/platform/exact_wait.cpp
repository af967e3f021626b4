#include "platform/exact_wait.h"

#include <sys/prctl.h>

#include <chrono>
#include <thread>

void wait_exactly(DWORD milliseconds) {
  // In nanoseconds; a system that refuses waits somewhat longer.
  constexpr unsigned long TIMER_SLACK = 1;
  static_cast<void>(prctl(PR_SET_TIMERSLACK, TIMER_SLACK));
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
