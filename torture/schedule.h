// Which of a series of calls go wrong.
#pragma once

#include <cstdint>

/// Counts calls of one kind and says which of them go wrong; none before `start`. Needs no memory
/// and nothing set up before: the first calls come before `main`.
class Schedule {
 public:
  /// From now on call `nth` goes wrong (1 is the next one), and with `lasting` set every later one
  /// too. Each that does is counted in `met`, which the caller keeps.
  void start(std::uint64_t nth, bool lasting, std::uint64_t& met);

  /// Counts a call and says whether it goes wrong.
  [[nodiscard]] bool strikes();

  [[nodiscard]] bool is_lasting() const;

 private:
  friend class Truce;

  bool armed_ = false;
  std::uint64_t calls_ = 0;
  std::uint64_t first_ = 0;
  std::uint64_t last_ = 0;
  std::uint64_t* met_ = nullptr;
};

/// While it lives, no call of a schedule goes wrong, and none is counted.
class Truce {
 public:
  explicit Truce(Schedule& schedule);
  ~Truce();
  Truce(const Truce&) = delete;
  Truce& operator=(const Truce&) = delete;

 private:
  Schedule& schedule_;
  bool armed_before_;
};
