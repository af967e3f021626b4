#include "tests/support/hosts.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>

#include "shared/include/vmk_errmsg.h"
#include "tests/support/program.h"

TestHost::TestHost(const std::string& description) {
  auto host = std::make_unique<SimulatedHost>(
      parse_description("time.sleep = false\n" + description, "test"));
  host_ = host.get();
  before_ = install_host(std::move(host));
  // What begins a message must not keep it.
  errmsg_push("left over");
}

TestHost::~TestHost() { install_host(std::move(before_)); }

std::vector<std::string> held_lines() {
  std::istringstream text(normalised(errmsg_compose()));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

void capture_standard_error() { testing::internal::CaptureStderr(); }

std::string take_standard_error() { return normalised(testing::internal::GetCapturedStderr()); }

void expect_stop(const std::function<void()>& action, const std::string& report) {
  // What is expected is looked for on standard error.
  const auto act = [&action] {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    action();
  };
  EXPECT_EXIT(act(), testing::ExitedWithCode(3), report);
}

std::string one_adapter(const std::string& addresses, int blank_slots) {
  return "[[adapters]]\nname = \"E100B1\"\ndescription = \"Ethernet\"\nindex = 2\naddresses = [" +
         addresses + "]\nblank_slots = " + std::to_string(blank_slots) + "\n";
}
