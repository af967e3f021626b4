#pragma once

#include <cerrno>

#include "base/not_copied.h"

/// Leaves errno as it was: the message log reports it, and the platform's functions do not touch
/// it.
class ErrnoKeeper : NotCopied {
 public:
  ~ErrnoKeeper() { errno = kept_; }

 private:
  int kept_ = errno;
};
