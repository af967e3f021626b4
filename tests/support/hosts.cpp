#include "tests/support/hosts.h"

#include <unistd.h>

#include <sstream>

#include "shared/include/vmk_dhcpcsvc.h"
#include "shared/include/vmk_iphlpapi.h"
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

Bindings::Bindings(const std::string& description) : TestHost(description) {
  EXPECT_EQ(iphlpapi_load(), 0);
  EXPECT_EQ(dhcpcsvc_load(), 0);
}

Bindings::~Bindings() {
  EXPECT_EQ(iphlpapi_unload(), 0);
  EXPECT_EQ(dhcpcsvc_unload(), 0);
}

std::vector<std::string> held_lines() { return lines_of(normalised(errmsg_compose())); }

std::string written_by(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  action();
  return normalised(testing::internal::GetCapturedStderr());
}

void expect_stop(const std::function<void()>& action, const std::string& report) {
  // What is expected is looked for on standard error.
  const auto act = [&action] {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    action();
  };
  EXPECT_EXIT(act(), testing::ExitedWithCode(3), report);
}

std::string one_adapter(const std::string& addresses, int blank_slots) {
  std::istringstream words(addresses);
  std::string list;
  for (std::string address; words >> address;) list += "'" + address + "',";
  return "[[adapters]]\nname = 'E100B1'\ndescription = 'Ethernet'\nindex = 2\naddresses = [" +
         list + "]\nblank_slots = " + std::to_string(blank_slots) + "\n";
}
