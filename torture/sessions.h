// The whole sessions that are put to the torture: each is a host, an environment, calls of modules
// that no command reaches, and what is typed at the prompt.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "brenlo/src/system.h"

using Setting = std::pair<const char*, std::string>;

/// The description of a host of that name, below the project's folder.
[[nodiscard]] std::string host_file(const std::string& host);

struct Session {
  const char* name;
  /// The simulated host; empty: the one that the environment names.
  std::string host = {};
  std::vector<Setting> environment = {};
  /// Work before the System exists, and on it before anything is typed; null for none.
  void (*before_system)(const std::string& folder) = nullptr;
  void (*before_typing)(System& system, const std::string& folder) = nullptr;
  std::string typed = {};

  /// Whether it plays on this machine's kernel, in the namespace that enter_namespace made.
  [[nodiscard]] bool is_live() const;
};

/// The sessions, with their files in a folder that exists and that they only read, but for copies
/// that they make there and remove.
[[nodiscard]] std::vector<Session> all_sessions(const std::string& folder);

/// Moves this process to a network namespace of its own with an interface t0; false where this
/// machine allows none. lay_out_addresses gives t0 what the live session starts from.
[[nodiscard]] bool enter_namespace();
void lay_out_addresses();
