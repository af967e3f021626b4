// Network namespaces for tests that change real addresses: nothing outside is ever touched.
#pragma once

#include <string>

#include "base/not_copied.h"

/// A network namespace of its own, for this process and its children while the object lives.
class NetworkNamespace : NotCopied {
 public:
  NetworkNamespace();
  ~NetworkNamespace();

  /// Empty, or why this machine allows none; then nothing may be changed.
  [[nodiscard]] const std::string& refusal() const { return refusal_; }

 private:
  int before_ = -1;
  std::string refusal_;
};

/// Runs a command of the shell and gives what it says; throws when it fails.
std::string run_shell(const std::string& command);

/// The IPv4 addresses of all interfaces as the system's own tool lists them, sorted, each as
/// "INTERFACE ADDRESS/PREFIX,"; without 127.0.0.1/8.
std::string kernel_addresses();
