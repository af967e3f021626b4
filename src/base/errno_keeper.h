#pragma once

#include <cerrno>

/// Leaves errno as it was: the message log reports it, and the platform's functions do not touch
/// it.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = kept_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int kept_ = errno;
};
