#include "platform/linux/linux_host.h"

#include <winsock2.h>

#include <windows.h>

#include <dlfcn.h>
#include <net/if.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <numeric>
#include <set>
#include <thread>
#include <utility>

#include "base/not_copied.h"
#include "platform/host/adapter_keys.h"
#include "platform/host/ipv4.h"
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

// ---- Datagrams that are lost -------------------------------------------------------------------

/// What a receiver gets in place of a datagram: an error, or flags.
struct Loss {
  int error = 0;
  int flags = 0;
};

struct LostDatagram {
  Loss loss = {};
  int left = 0;  ///< the one that is lost, 1 for the next
};

LostDatagram lost_datagram;
std::function<void()> before_next_send;

}  // namespace

// The program's own sockets reach these first.
extern "C" ssize_t recvmsg(int socket, msghdr* header, int flags) {
  using Receive = ssize_t (*)(int, msghdr*, int);
  static const auto next = reinterpret_cast<Receive>(dlsym(RTLD_NEXT, "recvmsg"));
  const ssize_t length = next(socket, header, flags);
  if (length < 0 || lost_datagram.left <= 0 || --lost_datagram.left > 0) return length;
  header->msg_flags |= lost_datagram.loss.flags;
  if (lost_datagram.loss.error == 0) return length;
  errno = lost_datagram.loss.error;
  return -1;
}

extern "C" ssize_t sendto(int socket, const void* data, size_t size, int flags,
                          const sockaddr* address, socklen_t length) {
  using Send = ssize_t (*)(int, const void*, size_t, int, const sockaddr*, socklen_t);
  static const auto next = reinterpret_cast<Send>(dlsym(RTLD_NEXT, "sendto"));
  if (const auto act = std::exchange(before_next_send, nullptr)) act();
  return next(socket, data, size, flags, address, length);
}

namespace {

/// A namespace with the ends of a cable, a0 and b0, and the host over it.
class LinuxHosts : public testing::Test {
 protected:
  void SetUp() override {
    if (!namespace_.refusal().empty()) GTEST_SKIP() << namespace_.refusal();
    EXPECT_EQ(host_addresses(), "");
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

  std::vector<HostAddress> addresses() {
    HostTable<HostAddress> found;
    EXPECT_EQ(host_.read_addresses(found), 0U);
    return *found.rows;
  }

  std::map<std::string, HostAdapter> adapters() {
    HostTable<HostAdapter> found;
    EXPECT_EQ(host_.read_adapters(found), 0U);
    std::map<std::string, HostAdapter> by_name;
    for (const HostAdapter& adapter : *found.rows) by_name[adapter.name] = adapter;
    return by_name;
  }

  /// The host's addresses in the words of kernel_addresses.
  std::string host_addresses() {
    std::set<std::string> texts;
    for (const HostAddress& address : addresses()) {
      char name[IF_NAMESIZE] = "";
      if_indextoname(address.interface_index, name);
      const std::string text =
          dotted(address.address) + "/" + std::to_string(std::popcount(address.mask));
      if (address.address != 0 && text != "127.0.0.1/8") texts.insert(name + (" " + text + ","));
    }
    return std::accumulate(texts.begin(), texts.end(), std::string());
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

TEST_F(LinuxHosts, TakeNothingButTheAddressThatIsDeleted) {
  run_shell("ip addr add 10.1.0.1/16 dev a0; ip addr add 10.1.0.1/24 dev a0");
  EXPECT_EQ(add("10.1.0.2", WIDE, a0_), 0U);
  const DWORD added = context_;
  EXPECT_EQ(add("10.1.0.3", WIDE, a0_), 0U);
  EXPECT_EQ(host_.delete_address(context_of("10.1.0.1", NARROW)), 0U);
  EXPECT_EQ(kernel_addresses(), "a0 10.1.0.1/16,a0 10.1.0.2/16,a0 10.1.0.3/16,");
  // With the first of its subnet the kernel by itself would take the others.
  EXPECT_EQ(host_.delete_address(context_of("10.1.0.1", WIDE)), 0U);
  EXPECT_EQ(host_.delete_address(added), 0U);
  EXPECT_EQ(host_.delete_address(added), 1168U);
  EXPECT_EQ(kernel_addresses(), "a0 10.1.0.3/16,");
  run_shell(
      "ip addr add 10.1.0.4/16 dev a0; echo 0 >/proc/sys/net/ipv4/conf/a0/promote_secondaries");
  EXPECT_EQ(host_.delete_address(context_), 0U);
  EXPECT_EQ(kernel_addresses(), "a0 10.1.0.4/16,");
  EXPECT_EQ(host_addresses(), kernel_addresses());
}

TEST_F(LinuxHosts, KeepTheContextOfAnAddressWhileItStands) {
  EXPECT_EQ(add("10.2.0.1", WIDE, a0_), 0U);
  const DWORD first = context_;
  run_shell("ip addr add 10.2.0.2/16 dev a0; ip link set a0 down; ip link set a0 up");
  EXPECT_EQ(context_of("10.2.0.1", WIDE), first);
  run_shell("ip addr del 10.2.0.1/16 dev a0; ip addr add 10.2.0.1/16 dev a0");
  const DWORD second = context_of("10.2.0.1", WIDE);
  {
    const NetworkNamespace elsewhere;
    EXPECT_EQ(context_of("10.2.0.1", WIDE), second) << "what it follows it does not read again";
  }
  EXPECT_NE(second, 0U);
  EXPECT_NE(second, first);
  EXPECT_EQ(host_.delete_address(first), 1168U);
  EXPECT_EQ(host_.delete_address(second), 0U);
  EXPECT_EQ(add("10.2.0.1", WIDE, b0_), 0U);
  EXPECT_GT(context_, second);
}

TEST_F(LinuxHosts, SeeWhatOthersDoHoweverMuch) {
  EXPECT_EQ(host_addresses(), "");
  EXPECT_EQ(add("10.2.0.1", WIDE, b0_), 0U);
  const DWORD own = context_;
  EXPECT_EQ(add("10.2.0.2", WIDE, b0_), 0U);
  const DWORD lost = context_;
  run_shell("ip link add bridge0 type bridge");
  EXPECT_EQ(adapters().size(), 4U);
  // Far more news than may wait to be read.
  const std::string flood =
      "for c in 1 2 3 4 5 6 7 8; do for d in $(seq 1 250); do echo addr $what 10.3.$c.$d/32 dev a0;"
      "done; done; done | ip -batch -;";
  run_shell("ip addr del 10.2.0.2/16 dev b0; for what in add del add; do " + flood +
            "ip addr add 10.2.0.2/16 dev b0; ip link del bridge0");
  EXPECT_EQ(addresses().size(), 2003U);
  EXPECT_EQ(host_addresses(), kernel_addresses());
  EXPECT_EQ(adapters().size(), 3U);
  EXPECT_EQ(context_of("10.2.0.1", WIDE), own);
  EXPECT_EQ(host_.delete_address(lost), 1168U) << "what stands there now is another's";
  run_shell("for what in del add del; do " + flood);
  EXPECT_EQ(host_addresses(), kernel_addresses());
  run_shell("ip addr add 10.3.1.1/24 dev a0; ip addr flush dev a0; ip link del a0");
  EXPECT_EQ(host_addresses(), "");
  EXPECT_EQ(adapters().size(), 1U);
}

/// Does something again and again beside a test, for as long as it lives.
class Repetition : NotCopied {
 public:
  explicit Repetition(const std::function<void()>& action)
      : thread_([this, action] {
          while (!done_) action();
        }) {}
  ~Repetition() {
    done_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> done_ = false;
  std::thread thread_;
};

TEST_F(LinuxHosts, ReadAHostThatKeepsChanging) {
  // More than one message of the kernel holds, and one at the list's head that comes and goes: a
  // reading that goes on across such a change lacks another.
  run_shell(
      "for c in 1 2 3 4 5 6 7 8; do for d in $(seq 1 250); do echo addr add 10.4.$c.$d/16 dev b0;"
      "done; done | ip -batch -");
  EXPECT_EQ(add("10.5.0.1", WIDE, a0_), 0U);
  const DWORD own = context_;
  {
    LinuxHost other;
    const Repetition addresses_change([&] {
      DWORD context = 0;
      EXPECT_EQ(other.add_address(inet_addr("10.9.0.1"), 0xFFFFFFFF, b0_, context), 0U);
      EXPECT_EQ(other.delete_address(context), 0U);
    });
    const Repetition links_change([] {
      run_shell(
          "ip link add x0 type veth peer name x1; ip addr add 10.77.0.1/24 dev x0; ip link del x0");
    });
    for (int i = 0; i < 150; ++i) {
      LinuxHost fresh;
      HostTable<HostAddress> found;
      ASSERT_EQ(fresh.read_addresses(found), 0U);
      ASSERT_EQ(std::count_if(found.rows->begin(), found.rows->end(),
                              [](const auto& row) { return (row.address & 0xFFFF) == 0x040A; }),
                2000);
      ASSERT_EQ(context_of("10.5.0.1", WIDE), own);
      const RegistryValue* value = nullptr;
      static_cast<void>(host_.find_value(interface_key("x0"), "IPAddress", value));
    }
  }
  EXPECT_EQ(host_addresses(), kernel_addresses());
}

// What the kernel did is told, whatever becomes of its answer: each datagram in turn is lost.
TEST_F(LinuxHosts, FindOutWhatBecameOfARequest) {
  run_shell("ip addr add 10.12.0.9/16 dev a0");
  for (const Loss& loss : {Loss{ENOBUFS}, {ENOMEM}, {0, MSG_TRUNC}, {EAGAIN}}) {
    for (int nth = 1;; ++nth) {
      EXPECT_EQ(addresses().size(), 3U) << "b0 has a row 0.0.0.0";
      lost_datagram = {loss, nth};
      const DWORD added = add("10.12.0.1", WIDE, a0_);
      const bool struck = lost_datagram.left <= 0;
      lost_datagram = {};
      const auto own = HasSubstr("a0 10.12.0.1/16,");
      if (added != 0) {
        EXPECT_THAT(kernel_addresses(), testing::Not(own)) << nth;
        continue;
      }
      EXPECT_THAT(kernel_addresses(), own) << nth;
      EXPECT_EQ(context_of("10.12.0.1", WIDE), context_);
      lost_datagram = {loss, nth};
      const DWORD deleted = host_.delete_address(context_);
      lost_datagram = {};
      if (deleted != 0) {
        EXPECT_THAT(kernel_addresses(), own) << nth;
        EXPECT_EQ(host_.delete_address(context_), 0U) << "it is still known";
      }
      EXPECT_THAT(kernel_addresses(), testing::Not(own)) << nth;
      if (!struck) break;
    }
  }
  // Somebody else was quicker, and the kernel's refusal is lost.
  EXPECT_EQ(addresses().size(), 3U);
  before_next_send = [] { run_shell("ip addr add 10.12.0.1/16 dev a0"); };
  lost_datagram = {{ENOBUFS}, 2};
  EXPECT_NE(add("10.12.0.1", WIDE, a0_), 0U);
  lost_datagram = {};
  EXPECT_NE(context_of("10.12.0.1", WIDE), 0U) << "another's";
}

TEST_F(LinuxHosts, WaitWithoutTheTimersSlack) {
  host_.sleep(1);
  EXPECT_EQ(prctl(PR_GET_TIMERSLACK), 1);
}

TEST_F(LinuxHosts, ShowInterfacesAsTheKernelGivesThem) {
  run_shell(
      "ip link set a0 down; ip link set a0 mtu 1400 name cable0;"
      "ip link set cable0 up; ip addr add 10.6.0.1/16 dev cable0; ip addr add 10.7.0.1/16 dev b0;"
      "ip route add default via 10.6.0.254; ip route add default via 10.6.0.254 metric 9;"
      "ip route add 10.9.0.0/16 via 10.7.0.9; ip route add default dev b0 metric 12;"
      "ip route add default metric 5 nexthop via 10.7.0.253 nexthop via 10.6.0.253");
  auto by_name = adapters();
  const HostAdapter& cable = by_name["cable0"];
  EXPECT_EQ(cable.row.dwIndex, a0_);
  EXPECT_EQ(cable.row.dwMtu, 1400U);
  EXPECT_THAT(cable.gateways, ElementsAre("10.6.0.254", "10.6.0.253"));
  EXPECT_THAT(by_name["b0"].gateways, ElementsAre("10.7.0.253"));
  EXPECT_EQ(by_name["lo"].row.dwType, 24U);
  EXPECT_EQ(cable.row.dwOperStatus, 1U);

  EXPECT_EQ(host_.set_admin_status(b0_, 2), 0U);
  run_shell("ip route flush exact default via 10.6.0.254");
  // The kernel takes the carrier of the other end down a little later.
  for (int i = 0; i < 5000 && adapters()["cable0"].row.dwOperStatus == 1; ++i) usleep(1000);
  by_name = adapters();
  EXPECT_EQ(by_name["b0"].row.dwAdminStatus, 2U);
  EXPECT_EQ(by_name["cable0"].row.dwOperStatus, 2U) << "the other end of the cable is down";
  EXPECT_THAT(by_name["b0"].gateways, IsEmpty());
  EXPECT_THAT(by_name["cable0"].gateways, ElementsAre("10.6.0.253"));
  // One message of such a link is longer than most that the kernel sends.
  run_shell(
      "for i in $(seq 1 400); do echo link property add dev b0 altname $(printf %0100d $i); done |"
      "ip -batch -");
  EXPECT_EQ(adapters().size(), 3U);
  // What the bridge tells of its port is no news of the port.
  run_shell("ip link add bridge0 type bridge; ip link set b0 master bridge0");
  EXPECT_EQ(adapters().size(), 4U);
  run_shell("ip link set b0 nomaster; ip link del bridge0");
  EXPECT_EQ(adapters().size(), 3U);
  if (access("/dev/net/tun", F_OK) != 0) return;
  run_shell("ip tuntap add tunnel0 mode tun");
  by_name = adapters();
  EXPECT_EQ(by_name.size(), 4U);
  EXPECT_EQ(by_name["tunnel0"].row.dwType, 23U);
  EXPECT_EQ(by_name["tunnel0"].row.dwPhysAddrLen, 0U);
}

TEST_F(LinuxHosts, KnowWirelessInterfacesByTheirFolder) {
  if (std::system("unshare --mount true 2>/dev/null") != 0) GTEST_SKIP() << "no mounts of its own";
  // That of b0 is of an interface in another namespace.
  const std::string reports = run_shell(
      "i=$(ip -o link show a0 | cut -d: -f1) unshare --mount sh -c 'mount -t tmpfs none /sys;"
      "mkdir -p /sys/class/net/a0 /sys/class/net/b0; cd /sys/class/net;"
      "printf \"DEVTYPE=wlan\\nIFINDEX=$i\\n\" >a0/uevent;"
      "printf \"DEVTYPE=wlan\\nIFINDEX=4711\\n\" >b0/uevent;"
      "ZARVO_HOST=linux exec \"$0\" print' \"" KADRIX_PROGRAM "\" 2>&1");
  EXPECT_THAT(reports, HasSubstr("Type        : 71 \nINFO  "));
  EXPECT_THAT(reports, HasSubstr("Type        : 6 \nINFO  "));
}

TEST_F(LinuxHosts, FollowTheDefaultRoutes) {
  run_shell(
      "ip addr add 10.6.0.1/16 dev a0; ip addr add 10.6.0.2/16 dev a0; ip addr add "
      "10.7.0.1/16 dev b0; for i in $(seq 0 999); do echo route add 0.$((i / 250)).$((i % "
      "250)).0/24 dev a0; done | ip -batch -");
  const auto gateways = [this] { return adapters()["a0"].gateways; };
  run_shell("ip route add 0.0.0.0/8 via 10.6.0.77");
  EXPECT_THAT(gateways(), IsEmpty());
  run_shell("ip route add default via 10.6.0.254 src 10.6.0.2");
  EXPECT_THAT(gateways(), ElementsAre("10.6.0.254"));
  const auto generation = [this] {
    HostTable<HostAdapter> table;
    EXPECT_EQ(host_.read_adapters(table), 0U);
    return table.generation;
  };
  const Generation before = generation();
  run_shell("ip route add 10.9.0.0/16 via 10.7.0.9; ip addr add 10.6.0.3/16 dev a0");
  EXPECT_TRUE(generation() == before) << "no other route or address matters";
  // The route goes with the address that it prefers.
  run_shell("ip addr del 10.6.0.2/16 dev a0");
  EXPECT_THAT(gateways(), IsEmpty());
  run_shell("ip route add default nexthop via 10.6.0.9 nexthop via 10.7.0.9; ip link set b0 down");
  EXPECT_THAT(gateways(), ElementsAre("10.6.0.9"));
  run_shell(
      "ip route del default; echo 0 >/proc/sys/net/ipv4/nexthop_compat_mode;"
      "ip link set b0 up; ip nexthop add id 5 via 10.6.0.5 dev a0; ip nexthop add id 6 via "
      "10.6.0.6 dev a0; ip nexthop add id 7 group 5/6; ip route add default nhid 7");
  EXPECT_THAT(gateways(), ElementsAre("10.6.0.5", "10.6.0.6"));
  run_shell("ip nexthop replace id 6 via 10.6.0.8 dev a0");
  EXPECT_THAT(gateways(), ElementsAre("10.6.0.5", "10.6.0.8"));
}

TEST_F(LinuxHosts, BindAddressedInterfacesInTheOrderOfTheirIndices) {
  const auto bindings = [this] {
    const RegistryValue* value = nullptr;
    EXPECT_EQ(
        host_.find_value("SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Linkage", "Bind", value), 0U);
    std::string text = value->data;
    std::replace(text.begin(), text.end(), '\0', ' ');
    return text;
  };
  EXPECT_EQ(bindings(), " ");
  run_shell("ip addr add 10.8.0.9/16 dev a0");
  EXPECT_EQ(bindings(), "\\Device\\a0  ");
  run_shell("ip addr add 10.9.0.9/16 dev b0; ip addr add 10.9.0.8/32 dev lo");
  EXPECT_EQ(bindings(), "\\Device\\b0 \\Device\\a0  ");
  run_shell("ip addr flush dev b0");
  EXPECT_EQ(bindings(), "\\Device\\a0  ");
  run_shell("ip link set a0 down; ip link set a0 name cable0");
  EXPECT_EQ(bindings(), "\\Device\\cable0  ");
  EXPECT_EQ(host_.set_value("Software", "IPAddress", {}), 5U);
  EXPECT_EQ(host_.create_key("Software"), 5U);
  EXPECT_EQ(host_.create_key("SYSTEM\\CurrentControlSet"), 0U);
  // No more than what reads the list has room for.
  run_shell(
      "for i in $(seq 1 40); do echo link add interface_a$i type veth peer name interface_b$i;"
      "echo addr add 10.10.$i.1/24 dev interface_a$i; echo addr add 10.11.$i.1/24 dev "
      "interface_b$i; done | ip -batch -");
  EXPECT_LE(bindings().size(), 1024U);
  const Outcome outcome =
      run_program({.arguments = {"print"}, .environment = {"ZARVO_HOST=linux"}});
  EXPECT_THAT(outcome.errors, HasSubstr("Host Address     : 10.8.0.9\n"));
  EXPECT_THAT(outcome.errors, HasSubstr("Num adapters     : 32\n"));
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
  utsname kernel = {};
  uname(&kernel);
  const std::string release = kernel.release;
  const std::string version = release.substr(0, release.find_first_of(".-", release.find('.') + 1));
  for (const std::string& words :
       {std::string("address <10.10.0.1> was created by another application."),
        std::string("The parameter is incorrect."), std::string("Cannot find <no0> adapter."),
        "Operating system : Windows NT " + version + " Linux " + release + "\n"}) {
    EXPECT_THAT(outcome.errors, HasSubstr(words));
  }
  EXPECT_EQ(kernel_addresses(), "a0 10.10.0.2/16,");
  // An address that the loopback has too.
  run_shell("ip addr add 10.10.0.9/32 dev lo; ip addr add 10.10.0.9/16 dev a0");
  EXPECT_THAT(run_session("purge 10.10.0.9 a0\n").errors, HasSubstr("success."));
  EXPECT_EQ(kernel_addresses(), "a0 10.10.0.2/16,lo 10.10.0.9/32,");
  run_shell("ip addr del 10.10.0.9/32 dev lo");

  const Outcome denied =
      run_program({.program = "/usr/bin/setpriv",
                   .arguments = {"--bounding-set=-net_admin", KADRIX_PROGRAM},
                   .environment = {"ZARVO_HOST=linux"},
                   .input = "add 10.10.0.4 255.255.0.0 a0\npurge 10.10.0.2 a0\n"});
  EXPECT_THAT(denied.errors, HasSubstr("AddIPAddress Failed. Reason=Access is denied."));
  EXPECT_THAT(denied.errors, HasSubstr("DeleteIPAddress Failed. Reason=Access is denied."));
  EXPECT_EQ(kernel_addresses(), "a0 10.10.0.2/16,");
}

}  // namespace
