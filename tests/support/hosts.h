// Hosts for tests of the modules, and what every such test uses.
#pragma once

#include <winsock2.h>

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "base/not_copied.h"
#include "platform/simulated/simulated_host.h"
#include "shared/include/vmk_errmsg.h"

/// The host of a description text, behind the layer while the object lives.
class TestHost : NotCopied {
 public:
  explicit TestHost(const std::string& description);
  ~TestHost();

  SimulatedHost* operator->() const { return host_; }

 private:
  std::unique_ptr<Host> before_;
  SimulatedHost* host_;
};

/// A host whose libraries are loaded while the object lives.
class Bindings : public TestHost {
 public:
  explicit Bindings(const std::string& description);
  ~Bindings();
};

/// What the message log holds now, composed and normalised, a line each.
std::vector<std::string> held_lines();

/// What `action` writes to standard error, normalised.
std::string written_by(const std::function<void()>& action);

/// What must end a process with status 3 and one report on standard output, matched by `report`.
void expect_stop(const std::function<void()>& action, const std::string& report);

/// One adapter with the index 2 whose registry lists and address table hold these addresses, as in
/// "10.0.0.1/8 10.0.0.9/255.0.0.0".
std::string one_adapter(const std::string& addresses, int blank_slots = 0);
