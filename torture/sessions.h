// The whole sessions that are put to the torture: each is a host, an environment, calls of modules
// that no command reaches, and what is typed at the prompt. They play in a folder of their own.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "brenlo/src/system.h"
#include "tests/support/folder.h"

/// The description of a host of that name.
[[nodiscard]] std::string host_file(const std::string& host);

struct TortureSession {
  const char* name;
  /// The simulated host; empty: the one that the environment names.
  std::string host = {};
  std::vector<std::pair<const char*, std::string>> environment = {};
  /// Work before the System exists, and on it before anything is typed; null for none.
  void (*before_system)() = nullptr;
  void (*before_typing)(System& system) = nullptr;
  std::string typed = {};
  /// The command of the shell that lays out what the session starts from; null for none.
  const char* layout = nullptr;
};

/// The sessions, with the files in the folder that they read. A copy of "first", named "copy", they
/// remove. The one on this machine's kernel wants interfaces a0 and b0 that it may change.
[[nodiscard]] std::vector<TortureSession> all_sessions(const TestFolder& folder);
