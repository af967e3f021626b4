#include "torture/schedule.h"

#include <limits>
#include <utility>

void Schedule::start(std::uint64_t nth, bool lasting, std::uint64_t& met) {
  calls_ = 0;
  first_ = nth;
  last_ = lasting ? std::numeric_limits<std::uint64_t>::max() : nth;
  met_ = &met;
  armed_ = true;
}

bool Schedule::strikes() {
  if (!armed_ || ++calls_ < first_ || calls_ > last_) return false;
  ++*met_;
  return true;
}

bool Schedule::is_lasting() const { return last_ > first_; }

Truce::Truce(Schedule& schedule)
    : schedule_(schedule), armed_before_(std::exchange(schedule.armed_, false)) {}

Truce::~Truce() { schedule_.armed_ = armed_before_; }
