#pragma once

/// A base of objects that are neither copied nor moved.
class NotCopied {
 public:
  NotCopied() = default;
  NotCopied(const NotCopied&) = delete;
  NotCopied& operator=(const NotCopied&) = delete;
};
