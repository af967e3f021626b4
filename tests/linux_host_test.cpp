#include "platform/hosts/linux_host.h"

#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/hosts/ipv4.h"
#include "tests/support/hosts.h"
#include "tests/support/namespace.h"
#include "tests/support/program.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr DWORD WIDE = 0x0000FFFF;    // 255.255.0.0
constexpr DWORD NARROW = 0x00FFFFFF;  // 255.255.255.0

Outcome run_session(const std::string& input) {
  return run_program({.environment = {"ZARVO_HOST=linux"}, .input = input});
}

/// A namespace with the ends of a cable, a0 and b0, and the host over it.
class LinuxHosts : public testing::Test {
 protected:
  void SetUp() override {
    if (!namespace_.refusal().empty()) GTEST_SKIP() << namespace_.refusal();
    EXPECT_THAT(host_addresses(), IsEmpty());
    EXPECT_EQ(adapters().size(), 1U) << "where nothing is up or routed yet";
    run_shell(
        "ip link set lo up; ip link add a0 type veth peer name b0;"
        "ip link set a0 up; ip link set b0 up");
    a0_ = if_nametoindex("a0");
    b0_ = if_nametoindex("b0");
  }

  DWORD add(const char* address, DWORD mask, DWORD interface_index) {
    return host_.add_address(inet_addr(address), mask, interface_index, context_);
  }

  std::span<const HostAddress> addresses() {
    std::span<const HostAddress> found;
    EXPECT_EQ(host_.read_addresses(Reading::FRESH, found), 0U);
    return found;
  }

  std::map<std::string, HostAdapter> adapters() {
    std::span<const HostAdapter> found;
    EXPECT_EQ(host_.read_adapters(Reading::FRESH, found), 0U);
    std::map<std::string, HostAdapter> by_name;
    for (const HostAdapter& adapter : found) by_name[adapter.name] = adapter;
    return by_name;
  }

  /// The host's addresses in the words of kernel_addresses.
  std::vector<std::string> host_addresses() {
    std::vector<std::string> texts;
    for (const HostAddress& address : addresses()) {
      char name[IF_NAMESIZE] = "";
      if_indextoname(address.interface_index, name);
      EXPECT_EQ(dotted(address.address), address.address_text);
      EXPECT_EQ(dotted(address.mask), address.mask_text);
      texts.push_back(std::string(name) + " " + address.address_text + "/" +
                      std::to_string(std::popcount(address.mask)));
    }
    std::sort(texts.begin(), texts.end());
    return texts;
  }

  DWORD context_of(const char* address, DWORD mask) {
    for (const HostAddress& row : addresses()) {
      if (row.address == inet_addr(address) && row.mask == mask) return row.context;
    }
    return 0;
  }

  NetworkNamespace namespace_;
  LinuxHost host_;
  DWORD a0_ = 0;
  DWORD b0_ = 0;
  DWORD context_ = 0;
};

TEST_F(LinuxHosts, RefuseWhatThePlatformRefuses) {
  run_shell("ip addr add 10.0.0.1/8 dev b0");
  const auto adding = [this](const char* address, DWORD mask, DWORD interface_index) {
    return add(address, mask, interface_index);
  };
  expect_refusals(adding, b0_, "10.0.0.1");
  EXPECT_EQ(add("10.0.0.1", WIDE, a0_), 5010U) << "another interface has it";
  EXPECT_THAT(kernel_addresses(), ElementsAre("b0 10.0.0.1/8", "lo 127.0.0.1/8"));
}

TEST_F(LinuxHosts, TakeNothingButTheAddressThatIsDeleted) {
  run_shell("ip addr add 10.1.0.1/16 dev a0; ip addr add 10.1.0.1/24 dev a0");
  EXPECT_EQ(add("10.1.0.2", WIDE, a0_), 0U);
  const DWORD added = context_;
  EXPECT_EQ(add("10.1.0.3", WIDE, a0_), 0U);
  EXPECT_EQ(host_.delete_address(context_of("10.1.0.1", NARROW)), 0U);
  EXPECT_THAT(kernel_addresses(),
              ElementsAre("a0 10.1.0.1/16", "a0 10.1.0.2/16", "a0 10.1.0.3/16", "lo 127.0.0.1/8"));
  // With the first of its subnet the kernel by itself would take the others.
  EXPECT_EQ(host_.delete_address(context_of("10.1.0.1", WIDE)), 0U);
  EXPECT_EQ(host_.delete_address(added), 0U);
  EXPECT_EQ(host_.delete_address(added), 1168U);
  EXPECT_THAT(kernel_addresses(), ElementsAre("a0 10.1.0.3/16", "lo 127.0.0.1/8"));
  run_shell(
      "ip addr add 10.1.0.4/16 dev a0; echo 0 >/proc/sys/net/ipv4/conf/a0/promote_secondaries");
  EXPECT_EQ(host_.delete_address(context_), 0U);
  EXPECT_THAT(kernel_addresses(), ElementsAre("a0 10.1.0.4/16", "lo 127.0.0.1/8"));
  EXPECT_EQ(host_addresses(), kernel_addresses());
}

TEST_F(LinuxHosts, KeepTheContextOfAnAddressWhileItStands) {
  EXPECT_EQ(add("10.2.0.1", WIDE, a0_), 0U);
  const DWORD first = context_;
  run_shell("ip addr add 10.2.0.2/16 dev a0; ip link set a0 down; ip link set a0 up");
  EXPECT_EQ(context_of("10.2.0.1", WIDE), first);
  run_shell("ip addr del 10.2.0.1/16 dev a0; ip addr add 10.2.0.1/16 dev a0");
  const DWORD second = context_of("10.2.0.1", WIDE);
  EXPECT_NE(second, 0U);
  EXPECT_NE(second, first);
  EXPECT_EQ(host_.delete_address(first), 1168U);
  EXPECT_EQ(host_.delete_address(second), 0U);
  EXPECT_EQ(add("10.2.0.1", WIDE, b0_), 0U);
  EXPECT_GT(context_, second);
}

TEST_F(LinuxHosts, SeeWhatOthersDoHoweverMuch) {
  EXPECT_THAT(host_addresses(), ElementsAre("lo 127.0.0.1/8"));
  // Far more news than may wait to be read.
  run_shell(
      "for c in 1 2 3 4 5 6; do for d in $(seq 1 250); do echo addr add 10.3.$c.$d/24 dev a0;"
      "done; done | ip -batch -");
  EXPECT_EQ(addresses().size(), 1501U);
  EXPECT_EQ(host_addresses(), kernel_addresses());
  run_shell("ip addr flush dev a0 to 10.3.1.0/24");
  EXPECT_EQ(host_addresses(), kernel_addresses());
  run_shell("ip link del a0");
  EXPECT_THAT(host_addresses(), ElementsAre("lo 127.0.0.1/8"));
}

TEST_F(LinuxHosts, ReadAHostThatKeepsChanging) {
  // More than one message of the kernel holds, and one at the list's head away every now and then:
  // a reading that goes on across such a change lacks another.
  run_shell(
      "for c in 1 2 3 4 5 6 7 8; do for d in $(seq 1 250); do echo addr add 10.4.$c.$d/16 dev b0;"
      "done; done | ip -batch -; echo 1 >/proc/sys/net/ipv4/conf/b0/promote_secondaries");
  std::atomic<bool> done = false;
  std::thread changes([&done] {
    run_shell(
        "for d in $(seq 1 100); do ip addr del 10.4.1.$d/16 dev b0; ip addr add 10.4.1.$d/16 dev "
        "b0;"
        "done");
    done = true;
  });
  int read = 0;
  while (!done) {
    LinuxHost fresh;
    std::span<const HostAddress> found;
    const DWORD code = fresh.read_addresses(Reading::FRESH, found);
    if (code != 0) {
      EXPECT_EQ(code, 1237U);
      continue;
    }
    ++read;
    EXPECT_GE(found.size(), 2000U);
    EXPECT_LE(found.size(), 2001U);
  }
  changes.join();
  EXPECT_GT(read, 0);
  EXPECT_EQ(host_addresses(), kernel_addresses());
}

TEST_F(LinuxHosts, WaitWithoutTheTimersSlack) {
  host_.sleep(1);
  EXPECT_EQ(prctl(PR_GET_TIMERSLACK), 1);
}

TEST_F(LinuxHosts, ShowInterfacesAsTheKernelGivesThem) {
  run_shell(
      "ip link set a0 down; ip link set a0 address 02:00:00:00:0a:01 mtu 1400 name cable0;"
      "ip link set cable0 up; ip addr add 10.6.0.1/16 dev cable0; ip addr add 10.7.0.1/16 dev b0;"
      "ip route add default via 10.6.0.254; ip route add default via 10.6.0.254 metric 9;"
      "ip route add 10.9.0.0/16 via 10.7.0.9;"
      "ip route add default metric 5 nexthop via 10.7.0.253 nexthop via 10.6.0.253");
  auto by_name = adapters();
  const HostAdapter& cable = by_name["cable0"];
  EXPECT_EQ(cable.row.dwIndex, a0_);
  EXPECT_EQ(cable.row.dwType, 6U);
  EXPECT_EQ(cable.row.dwMtu, 1400U);
  EXPECT_EQ(std::string(cable.row.bPhysAddr, cable.row.bPhysAddr + cable.row.dwPhysAddrLen),
            std::string("\x02\0\0\0\x0a\x01", 6));
  EXPECT_EQ(std::string(cable.row.bDescr, cable.row.bDescr + cable.row.dwDescrLen), "cable0");
  EXPECT_THAT(cable.gateways, ElementsAre("10.6.0.254", "10.6.0.253"));
  EXPECT_THAT(by_name["b0"].gateways, ElementsAre("10.7.0.253"));
  EXPECT_EQ(by_name["lo"].row.dwType, 24U);

  EXPECT_EQ(host_.set_admin_status(b0_, 2), 0U);
  run_shell("ip route flush exact default via 10.6.0.254");
  by_name = adapters();
  EXPECT_EQ(by_name["b0"].row.dwAdminStatus, 2U);
  EXPECT_THAT(by_name["b0"].gateways, IsEmpty());
  EXPECT_THAT(by_name["cable0"].gateways, ElementsAre("10.6.0.253"));
}

TEST_F(LinuxHosts, ShowARegistryOfTheSameFacts) {
  run_shell(
      "ip addr add 10.8.0.9/16 dev a0; ip addr add 10.8.0.1/16 dev a0;"
      "ip route add default via 10.8.0.254");
  const std::string interfaces =
      "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\";
  const auto text_of = [this](const std::string& key, const char* name) {
    const RegistryValue* value = nullptr;
    return host_.find_value(key, name, value) == 0 ? value->data : "none";
  };
  using std::string_literals::operator""s;
  EXPECT_EQ(text_of("SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Linkage", "Bind"),
            "\\Device\\b0\0\\Device\\a0\0\0"s);
  EXPECT_EQ(text_of(interfaces + "a0", "IpAddress"), "10.8.0.9\00010.8.0.1\0\0"s);
  EXPECT_EQ(text_of(interfaces + "a0", "SubnetMask"), "255.255.0.0\000255.255.0.0\0\0"s);
  EXPECT_EQ(text_of(interfaces + "a0", "DefaultGateway"), "10.8.0.254\0\0"s);
  EXPECT_EQ(text_of(interfaces + "b0", "IPAddress"), "0.0.0.0\0\0"s);
  EXPECT_EQ(text_of("SYSTEM\\CurrentControlSet\\Control\\Network\\"
                    "{4D36E972-E325-11CE-BFC1-08002BE10318}\\a0\\Connection",
                    "Name"),
            "a0\0"s);
  EXPECT_EQ(host_.find_key(interfaces + "c0"), 2U);
  EXPECT_EQ(host_.set_value(interfaces + "a0", "IPAddress", {}), 5U);
  EXPECT_EQ(host_.create_key("Software"), 5U);
  EXPECT_EQ(add("10.8.0.2", WIDE, a0_), 0U);
  EXPECT_EQ(text_of(interfaces + "a0", "IpAddress"), "10.8.0.9\00010.8.0.1\00010.8.0.2\0\0"s);
}

TEST_F(LinuxHosts, GiveEveryRefusalOfTheKernelItsCode) {
  run_shell("ip link set lo mtu 60");
  EXPECT_EQ(add("10.9.0.2", WIDE, 1), 50U) << "an interface without IPv4";
  run_shell("ip link set a0 down");
  EXPECT_EQ(add("10.9.0.2", WIDE, a0_), 0U) << "an interface that is down";
  run_shell("ip link del a0");
  EXPECT_EQ(add("10.9.0.3", WIDE, a0_), 55U) << "an interface that is gone";
  EXPECT_EQ(host_.delete_address(context_), 1168U);
  EXPECT_EQ(host_.set_admin_status(a0_, 1), 55U);
}

TEST_F(LinuxHosts, TellTheOperatorWhy) {
  run_shell("ip addr add 10.10.0.1/16 dev a0");
  const std::string session =
      "add 10.10.0.2 255.255.0.0 a0\nadd 10.10.0.2 255.255.0.0 b0\nadd 240.0.0.1 255.0.0.0 a0\n"
      "add 10.10.0.3 255.255.0.0 no0\ndel 10.10.0.1 a0\npurge 10.10.0.1 a0\nprint\nquit\n";
  const Outcome outcome = run_session(session);
  EXPECT_EQ(outcome.status, 0);
  for (const char* words :
       {"address <10.10.0.1> was created by another application.", "The parameter is incorrect.",
        "Cannot find <no0> adapter.", "Operating system : Windows NT ", " Linux "}) {
    EXPECT_THAT(outcome.errors, HasSubstr(words));
  }
  EXPECT_THAT(kernel_addresses(), ElementsAre("a0 10.10.0.2/16", "lo 127.0.0.1/8"));

  const Outcome denied =
      run_program({.program = "/usr/bin/setpriv",
                   .arguments = {"--bounding-set=-net_admin", KADRIX_PROGRAM},
                   .environment = {"ZARVO_HOST=linux"},
                   .input = "add 10.10.0.4 255.255.0.0 a0\npurge 10.10.0.2 a0\n"});
  EXPECT_THAT(denied.errors, HasSubstr("AddIPAddress Failed. Reason=Access is denied."));
  EXPECT_THAT(denied.errors, HasSubstr("DeleteIPAddress Failed. Reason=Access is denied."));
  EXPECT_THAT(kernel_addresses(), ElementsAre("a0 10.10.0.2/16", "lo 127.0.0.1/8"));
}

TEST_F(LinuxHosts, FillTheTableWhoseSizeTheyGave) {
  struct Restored {
    std::unique_ptr<Host> before = install_host(std::make_unique<LinuxHost>());
    ~Restored() { install_host(std::move(before)); }
  } const restored;
  alignas(IP_ADAPTER_INFO) char buffer[16384];
  ULONG size = 0;
  ULONG list_size = 0;
  EXPECT_EQ(GetIpAddrTable(nullptr, &size, TRUE), 122U);
  EXPECT_EQ(GetAdaptersInfo(nullptr, &list_size), 111U);
  run_shell("ip addr add 10.12.0.1/16 dev a0; ip link add c0 type veth peer name d0");
  auto* table = reinterpret_cast<MIB_IPADDRTABLE*>(buffer);
  EXPECT_EQ(GetIpAddrTable(table, &size, TRUE), 0U);
  EXPECT_EQ(table->dwNumEntries, 1U);
  EXPECT_EQ(GetAdaptersInfo(reinterpret_cast<IP_ADAPTER_INFO*>(buffer), &list_size), 0U);
  EXPECT_EQ(GetIpAddrTable(table, &size, TRUE), 122U);
  EXPECT_EQ(GetIpAddrTable(table, &size, TRUE), 0U);
  EXPECT_EQ(table->dwNumEntries, 2U);
}

/// Starts the program on a session that loads a0, and returns its process.
pid_t start_stress() {
  const pid_t child = fork();
  if (child != 0) return child;
  std::FILE* input = std::tmpfile();
  std::fputs("stress 99 100 10.11.1.1 255.255.0.0 a0\n", input);
  std::rewind(input);
  dup2(fileno(input), STDIN_FILENO);
  std::freopen("/dev/null", "w", stdout);
  std::freopen("/dev/null", "w", stderr);
  setenv("ZARVO_HOST", "linux", 1);
  execl(KADRIX_PROGRAM, KADRIX_PROGRAM, nullptr);
  _exit(127);
}

TEST_F(LinuxHosts, LeaveAContiguousRunWhenKilled) {
  run_shell("ip addr add 10.11.255.254/16 dev a0");
  const std::vector<std::string> before = kernel_addresses();
  const pid_t child = start_stress();
  while (addresses().size() == before.size()) {
    ASSERT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "the program ended before it added anything";
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  // Somewhere in the adding or the deleting of a hundred addresses.
  const char* given = std::getenv("KADRIX_KILL_AFTER");
  const int moment = given != nullptr ? std::atoi(given) : child % 200;
  SCOPED_TRACE("killed after ms: " + std::to_string(moment));
  std::this_thread::sleep_for(std::chrono::milliseconds(moment));
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the program ended by itself: " << status;

  std::vector<int> left;
  std::string purges;
  for (const HostAddress& row : addresses()) {
    const std::string text = row.address_text;
    if (!text.starts_with("10.11.1.")) continue;
    left.push_back(std::stoi(text.substr(8)));
    purges += "purge " + text + " a0\n";
  }
  if (!left.empty()) {
    EXPECT_EQ(left.back() - left.front() + 1, static_cast<int>(left.size()));
    EXPECT_TRUE(left.front() == 1 || left.back() == 100);
  }
  run_session(purges);
  EXPECT_EQ(kernel_addresses(), before);
  const Outcome next = run_session("stress 1 50 10.11.1.1 255.255.0.0 a0\n");
  EXPECT_THAT(next.errors, HasSubstr("------"));
  EXPECT_EQ(kernel_addresses(), before);
}

}  // namespace
