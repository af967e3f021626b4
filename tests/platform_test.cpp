#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>
#include <rpc.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <sstream>
#include <string_view>

#include "platform/host/adapter_keys.h"
#include "platform/host/calls.h"
#include "platform/host/ipv4.h"
#include "platform/linux/linux_host.h"
#include "platform/simulated/host_description.h"
#include "tests/support/folder.h"
#include "tests/support/hosts.h"
#include "tests/support/namespace.h"

namespace {

using testing::ElementsAre;

/// What is said of a description, "d", that is refused.
std::string refusal_of(const std::string& text) {
  try {
    static_cast<void>(parse_description(text, "d"));
  } catch (const DescriptionError& error) {
    return error.what();
  }
  return "taken";
}

// In each text "@" stands for the first three lines of an adapter and ";" for the end of a line.
constexpr char REFUSED[] = R"(os = 5 => 1: 'os' must be a table
os = {major = -1} => 1: 'major' must be from 0 to 4294967295
os = {user = 5} => 1: 'user' must be a string
;time = {sleep = 1} => 2: 'sleep' must be true or false
time = {slept = true} => 1: unknown key 'slept'; the keys here are sleep
[registry.SYSTEM.Key];v = 1 => 1: a registry path of several keys stands in quotes
registry = {Key = 5} => 1: a registry key must be a table of values
registry = {Key = {v = true}} => 1: a registry value is a string, an array of strings, an integer or false
registry = {'HKLM\Key' = {v = 1}} => 1: a registry path stands without 'HKLM\'
registry = {'hkey_local_machine\Key' = {v = 1}} => 1: a registry path stands without 'HKEY_LOCAL_MACHINE\'
registry = {Key = {v = [5]}} => 1: 'each string of a list' must be a string
libraries = {dhcpcsvc = 1} => 1: 'dhcpcsvc' must be true, false or an array of functions
libraries = {dhcpcsvc = ["Sleep"]} => 1: unknown function 'Sleep'
adapters = {} => 1: 'adapters' must be an array of tables
[[adapters]];index = 1 => 1: the adapter has no 'name'
[[adapters]];name = "A" => 1: the adapter has no 'index'
[[adapters]];name = "";index = 1 => 2: the adapter's 'name' is empty
[[adapters]];name = "A";index = 0 => 3: 'index' must be from 1 to 4294967295
@[[adapters]];name = "a";index = 2 => 5: 'a' is the name of another adapter too
@[[adapters]];name = "B";index = 1 => 6: 1 is the index of another adapter too
@addresses = ["10.0.0.1/8"];[[adapters]];name = "B";index = 2;addresses = ["10.0.0.0-10.0.0.9/8"] => 8: '10.0.0.1' is an address of another adapter already
@addresses = [;"10.0.0.1/8",;"10.0.0.256/8"] => 6: '10.0.0.256' is not an IPv4 address
@addresses = ["10.0.0.1"] => 4: '10.0.0.1' must be ADDRESS/MASK or FIRST-LAST/MASK, such as 10.0.0.1/255.255.0.0 or 10.0.0.1-10.0.0.9/16
@addresses = ["10.0.0.1/8", "10.0.0.1/0.0.0.0"] => 4: '10.0.0.1' is an address of this adapter already
@addresses = ["10.0.0.1-10.0.0.9/8", "10.0.0.9/8"] => 4: '10.0.0.9' is an address of this adapter already
@addresses = ["10.0.0.5/8", "10.0.0.1-10.0.0.9/8"] => 4: '10.0.0.5' is an address of this adapter already
@addresses = ["010.0.0.1/8"] => 4: '010.0.0.1' is not an IPv4 address
@addresses = ["10.0.0.1\u0000/8"] => 4: '10.0.0.1?' is not an IPv4 address
@addresses = ["10.0.0.1/33"] => 4: '33' is not a mask, such as 255.255.0.0 or 16
@addresses = ["10.0.0.1/8 "] => 4: '8 ' is not a mask, such as 255.255.0.0 or 16
@addresses = ["10.0.0.2-10.0.0.1/8"] => 4: '10.0.0.2-10.0.0.1/8' ends before it begins
@addresses = ["10.0.0.1-10.15.66.65/8"] => 4: more than 1000000 addresses
@addresses = [5] => 4: 'addresses' must be a string
@addresses = 5 => 4: 'addresses' must be an array of strings
@hardware_address = "00-0" => 4: '00-0' is not a hardware address of 0 to 8 bytes, such as 00-0C-29-3A-5B-7C
@hardware_address = "00-0G" => 4: '00-0G' is not a hardware address of 0 to 8 bytes, such as 00-0C-29-3A-5B-7C
@hardware_address = "00-01-" => 4: '00-01-' is not a hardware address of 0 to 8 bytes, such as 00-0C-29-3A-5B-7C
@hardware_address = "00-01:02" => 4: '00-01:02' is not a hardware address of 0 to 8 bytes, such as 00-0C-29-3A-5B-7C
@hardware_address = "00/01" => 4: '00/01' is not a hardware address of 0 to 8 bytes, such as 00-0C-29-3A-5B-7C
@hardware_address = "00-01-02-03-04-05-06-07-08" => 4: '00-01-02-03-04-05-06-07-08' is not a hardware address of 0 to 8 bytes, such as 00-0C-29-3A-5B-7C
@blank_slots = 10011 => 4: 'blank_slots' must be from 0 to 10010
@gateways = [""] => 4: '' is not an IPv4 address
@type = "\u007F" => 4: 'type' must be an integer
faults = [{code = 1}] => 1: the fault has no 'function'
faults = [{function = "Sleep"}] => 1: the fault has no 'code'
faults = [{function = "sleep\u007F", code = 5}] => 1: unknown function 'sleep?'
faults = [{function = "Sleep", code = 1, raise = true}] => 1: a call that is to 'raise' returns no 'code'
)";

TEST(Descriptions, AreRefusedWithLineAndReason) {
  std::istringstream cases(REFUSED);
  for (std::string line; std::getline(cases, line);) {
    const std::size_t arrow = line.find(" => ");
    std::string text;
    for (const char c : line.substr(0, arrow)) {
      text += c == '@'   ? "[[adapters]]\nname = \"A\"\nindex = 1\n"
              : c == ';' ? "\n"
                         : std::string(1, c);
    }
    EXPECT_EQ(refusal_of(text), "d:" + line.substr(arrow + 4));
  }
  EXPECT_EQ(refusal_of("os.service_pack = \"" + std::string(128, 'x') + "\""),
            "d:1: 'service_pack' is too long");
  for (const auto& [text, hint] : {std::pair{"[os]\nuser = quick", "; quote it, if it is a text"},
                                   {"\n[registry.SYSTEM\\Key]\nv = 1", " stands in quotes"}}) {
    EXPECT_THAT(refusal_of(text),
                testing::AllOf(testing::StartsWith("d:2: "), testing::EndsWith(hint)));
  }
}

TEST(Descriptions, TheDefaultIsEmbedded) {
  EXPECT_TRUE(default_description() == read_description(SOURCE_ROOT "/hosts/default.toml"));
}

// ---- What every host does ---------------------------------------------------------------------

constexpr DWORD WIDE = 0x0000FFFF;  // 255.255.0.0

/// The same machine in memory and on this machine's kernel: the loopback, "a0" with three addresses
/// and a gateway, and "b0" without an address.
class HostContract : public testing::TestWithParam<const char*> {
 protected:
  template <typename Table>
  [[nodiscard]] auto rows_of() const {
    const auto* table = reinterpret_cast<const Table*>(buffer_);
    return std::span(&table->table[0], table->dwNumEntries);
  }

  void SetUp() override {
    if (std::string_view(GetParam()) == "simulated") {
      before_ = install_host(std::make_unique<SimulatedHost>(parse_description(
          "time.sleep = false\n"
          "adapters = [{name = 'lo', index = 1, type = 24, addresses = ['127.0.0.1/8'], bound = "
          "false},"
          "{name = 'a0', index = 3, connection = 'a0', hardware_address = '02:00:00:00:0a:01',"
          "addresses = ['10.1.0.9/16', '9.200.0.1/24', '10.1.0.10-10.1.0.10/255.255.0.0'],"
          "gateways = ['10.1.0.254', '10.1.0.253']},"
          "{name = 'b0', index = 2, addresses = ['0.0.0.0/0'], bound = false}]",
          "here")));
    } else {
      namespace_.emplace();
      if (!namespace_->refusal().empty()) GTEST_SKIP() << namespace_->refusal();
      run_shell(
          "ip link set lo up; ip link add a0 type veth peer name b0;"
          "ip link set a0 address 02:00:00:00:0a:01 up; ip link set b0 up;"
          "ip addr add 10.1.0.9/16 dev a0; ip addr add 9.200.0.1/24 dev a0;"
          "ip addr add 10.1.0.10/16 dev a0; ip route add default via 10.1.0.254;"
          "ip route add default via 10.1.0.253 metric 7");
      before_ = install_host(std::make_unique<LinuxHost>());
    }
    installed_ = true;
    fetch(GetIfTable);
    for (const MIB_IFROW& row : rows_of<MIB_IFTABLE>()) {
      index_[std::string(row.bDescr, row.bDescr + row.dwDescrLen)] = row.dwIndex;
    }
  }

  void TearDown() override {
    if (installed_) install_host(std::move(before_));
  }

  /// Fetches a table into the buffer; the size that was given must be the size that is needed.
  template <typename Record>
  void fetch(DWORD (*function)(Record*, PULONG, BOOL)) {
    ULONG size = 0;
    EXPECT_EQ(function(nullptr, &size, TRUE), 122U);
    ULONG less = size - 1;
    EXPECT_EQ(function(reinterpret_cast<Record*>(buffer_), &less, TRUE), 122U);
    EXPECT_EQ(function(reinterpret_cast<Record*>(buffer_), &less, TRUE), 0U);
    EXPECT_EQ(less, size);
  }

  /// The rows of the address table, each as "INTERFACE ADDRESS/PREFIX, ".
  [[nodiscard]] std::string table() {
    fetch(GetIpAddrTable);
    std::string text;
    for (const MIB_IPADDRROW& row : rows_of<MIB_IPADDRTABLE>()) {
      EXPECT_EQ(std::pair(row.dwBCastAddr, row.dwReasmSize), std::pair(DWORD{1}, DWORD{65535}));
      const auto has_index = [&](const auto& it) { return it.second == row.dwIndex; };
      text += std::ranges::find_if(index_, has_index)->first + " " + dotted(row.dwAddr) + "/" +
              std::to_string(std::popcount(row.dwMask)) + ", ";
    }
    return text;
  }

  [[nodiscard]] const IP_ADAPTER_INFO* information() {
    ULONG size = 0;
    EXPECT_EQ(GetAdaptersInfo(nullptr, &size), 111U);
    std::fill(std::begin(buffer_), std::end(buffer_), std::byte{0xAA});
    auto* list = reinterpret_cast<IP_ADAPTER_INFO*>(buffer_);
    EXPECT_EQ(GetAdaptersInfo(list, &size), 0U);
    // Entries and nodes lie in the buffer and fill what was said to be needed.
    ULONG used = 0;
    const auto count = [&](const auto* node, ULONG bytes) {
      EXPECT_LT(reinterpret_cast<const std::byte*>(node) - buffer_, static_cast<int>(size));
      EXPECT_GE(reinterpret_cast<const std::byte*>(node), buffer_);
      used += bytes;
    };
    for (const IP_ADAPTER_INFO* it = list; it != nullptr; it = it->Next) {
      count(it, sizeof *it);
      for (const IP_ADDR_STRING* first : {&it->IpAddressList, &it->GatewayList}) {
        for (const auto* node = first->Next; node != nullptr; node = node->Next) {
          count(node, sizeof *node);
        }
      }
    }
    EXPECT_EQ(used, size);
    return list;
  }

  [[nodiscard]] static std::vector<std::string> texts_of(const IP_ADDR_STRING* list) {
    std::vector<std::string> texts;
    for (; list != nullptr; list = list->Next) texts.emplace_back(list->IpAddress.String);
    return texts;
  }

  [[nodiscard]] DWORD add(const char* address, DWORD mask, DWORD index) {
    ULONG instance = 0;
    return AddIPAddress(inet_addr(address), mask, index, &context_, &instance);
  }

  /// The bytes of a registry value.
  [[nodiscard]] static std::string value_of(const std::string& path, const char* name) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != 0) return "no key";
    DWORD size = 0;
    std::string data;
    if (RegQueryValueExA(key, name, nullptr, nullptr, nullptr, &size) == 0) {
      data.resize(size);
      EXPECT_EQ(RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()),
                                 &size),
                0);
    }
    RegCloseKey(key);
    return data;
  }

  std::optional<NetworkNamespace> namespace_;
  std::unique_ptr<Host> before_;
  bool installed_ = false;
  std::map<std::string, DWORD> index_;
  ULONG context_ = 0;
  alignas(IP_ADAPTER_INFO) std::byte buffer_[16384];
};

INSTANTIATE_TEST_SUITE_P(All, HostContract, testing::Values("simulated", "linux"),
                         [](const auto& host) { return host.param; });

TEST_P(HostContract, ShowsInterfacesByIndex) {
  EXPECT_EQ(index_.size(), 3U);
  EXPECT_TRUE(std::ranges::is_sorted(rows_of<MIB_IFTABLE>(), {}, &MIB_IFROW::dwIndex));
  MIB_IFROW row = {};
  row.dwIndex = index_["a0"];
  ASSERT_EQ(GetIfEntry(&row), 0U);
  EXPECT_EQ(row.dwType, 6U);
  EXPECT_EQ(row.dwMtu, 1500U);
  EXPECT_EQ(std::string(row.bPhysAddr, row.bPhysAddr + row.dwPhysAddrLen),
            std::string("\x02\0\0\0\x0a\x01", 6));
  row.dwAdminStatus = 2;
  EXPECT_EQ(SetIfEntry(&row), 0U);
  EXPECT_EQ(GetIfEntry(&row), 0U);
  EXPECT_EQ(row.dwAdminStatus, 2U);
  row.dwIndex = 4711;
  EXPECT_EQ(GetIfEntry(&row), 13U);
}

TEST_P(HostContract, ShowsAddressesInAscendingOrder) {
  const std::string first = "b0 0.0.0.0/0, a0 9.200.0.1/24, ";
  const std::string last = "a0 10.1.0.9/16, a0 10.1.0.10/16, lo 127.0.0.1/8, ";
  EXPECT_EQ(table(), first + last);
  EXPECT_EQ(add("9.255.0.1", WIDE, index_["a0"]), 0U);
  EXPECT_EQ(table(), first + "a0 9.255.0.1/16, " + last) << "at once";
}

TEST_P(HostContract, TellsOfAdaptersButTheLoopback) {
  std::map<std::string, const IP_ADAPTER_INFO*> by_name;
  for (const IP_ADAPTER_INFO* it = information(); it != nullptr; it = it->Next) {
    by_name[it->AdapterName] = it;
  }
  ASSERT_EQ(by_name.size(), 2U);
  const IP_ADAPTER_INFO& a0 = *by_name["a0"];
  EXPECT_EQ(a0.Index, index_["a0"]);
  EXPECT_STREQ(a0.Description, "a0");
  EXPECT_EQ(a0.AddressLength, 6U);
  EXPECT_EQ(a0.Address[5], 1U);
  EXPECT_EQ(a0.Type, 6U);
  EXPECT_THAT(texts_of(&a0.IpAddressList), ElementsAre("9.200.0.1", "10.1.0.9", "10.1.0.10"));
  EXPECT_STREQ(a0.IpAddressList.Next->IpMask.String, "255.255.0.0");
  EXPECT_THAT(texts_of(&a0.GatewayList), ElementsAre("10.1.0.254", "10.1.0.253"));
  const IP_ADAPTER_INFO& b0 = *by_name["b0"];
  EXPECT_THAT(texts_of(&b0.IpAddressList), ElementsAre("0.0.0.0"));
  EXPECT_STREQ(b0.IpAddressList.IpMask.String, "0.0.0.0");
  EXPECT_THAT(texts_of(&b0.GatewayList), ElementsAre("0.0.0.0"));
  EXPECT_EQ(DeleteIPAddress(a0.IpAddressList.Next->Context), 0U);
  EXPECT_THAT(texts_of(&information()->IpAddressList), testing::Not(testing::Contains("10.1.0.9")));
}

TEST_P(HostContract, RefusesWhatThePlatformRefuses) {
  const DWORD a0 = index_["a0"];
  for (const char* address :
       {"0.0.0.0", "0.0.255.255", "127.0.0.5", "224.0.0.1", "240.0.0.1", "255.255.255.255"}) {
    EXPECT_EQ(add(address, WIDE, a0), 87U) << address;
  }
  EXPECT_EQ(add("10.0.0.2", inet_addr("255.0.255.0"), a0), 87U) << "a mask with holes";
  EXPECT_EQ(add("10.0.0.2", WIDE, 4711), 55U) << "no such interface";
  EXPECT_EQ(add("10.1.0.9", WIDE, a0), 5010U);
  EXPECT_EQ(add("10.1.0.9", 0xFF, index_["b0"]), 5010U) << "another interface has it";
  EXPECT_THAT(table(), testing::Not(testing::HasSubstr("10.0.0.2")));
  EXPECT_EQ(add("10.0.0.2", 0xFFFFFFFF, a0), 0U);
  // Subnet addresses are none to the platform.
  EXPECT_EQ(add("10.1.0.0", WIDE, a0), 0U);
  EXPECT_EQ(add("10.1.255.255", WIDE, a0), 0U);
}

TEST_P(HostContract, GivesFreshContexts) {
  const DWORD b0 = index_["b0"];
  EXPECT_EQ(add("10.2.0.1", WIDE, b0), 0U);
  const ULONG first = context_;
  EXPECT_EQ(DeleteIPAddress(first), 0U);
  EXPECT_EQ(DeleteIPAddress(first), 1168U);
  EXPECT_EQ(add("10.2.0.1", WIDE, b0), 0U);
  EXPECT_NE(context_, first);
  EXPECT_EQ(DeleteIPAddress(context_), 0U);
  EXPECT_EQ(DeleteIPAddress(0), 1168U) << "that of a row without an address";
}

TEST_P(HostContract, FillsTheTableWhoseSizeItGave) {
  ULONG size = 0;
  ULONG list_size = 0;
  EXPECT_EQ(GetIpAddrTable(nullptr, &size, TRUE), 122U);
  EXPECT_EQ(GetAdaptersInfo(nullptr, &list_size), 111U);
  EXPECT_EQ(add("10.2.0.1", WIDE, index_["a0"]), 0U);
  auto* table = reinterpret_cast<MIB_IPADDRTABLE*>(buffer_);
  EXPECT_EQ(GetIpAddrTable(table, &size, TRUE), 0U);
  EXPECT_EQ(table->dwNumEntries, 5U);
  EXPECT_EQ(GetAdaptersInfo(reinterpret_cast<IP_ADAPTER_INFO*>(buffer_), &list_size), 0U);
  EXPECT_EQ(GetIpAddrTable(table, &size, TRUE), 122U);
  EXPECT_EQ(GetIpAddrTable(table, &size, TRUE), 0U);
  EXPECT_EQ(table->dwNumEntries, 6U);
}

TEST_P(HostContract, ShowsARegistryOfTheSameFacts) {
  using std::string_literals::operator""s;
  const std::string a0 = "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\A0";
  EXPECT_EQ(value_of("SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Linkage", "Bind"),
            "\\Device\\a0\0\0"s);
  // In the order in which they came to stand.
  EXPECT_EQ(value_of(a0, "ipaddress"), "10.1.0.9\0009.200.0.1\00010.1.0.10\0\0"s);
  EXPECT_EQ(value_of(a0, "SubnetMask"), "255.255.0.0\000255.255.255.0\000255.255.0.0\0\0"s);
  EXPECT_EQ(value_of(a0, "DefaultGateway"), "10.1.0.254\00010.1.0.253\0\0"s);
  EXPECT_EQ(value_of(interface_key("b0"), "IPAddress"), "0.0.0.0\0\0"s);
  EXPECT_EQ(value_of(interface_key("b0"), "DefaultGateway"), "\0"s);
  EXPECT_EQ(value_of("SYSTEM\\CurrentControlSet\\Control\\Network\\"
                     "{4D36E972-E325-11CE-BFC1-08002BE10318}\\a0\\Connection",
                     "Name"),
            "a0\0"s);
  EXPECT_EQ(value_of(interface_key("c0"), "IPAddress"), "no key");
  EXPECT_EQ(value_of(interface_key("a0"), "Other"), "");
}

// ---- The simulated host -----------------------------------------------------------------------

TEST(SimulatedHost, TellsOfAdaptersAsFarAsTheFieldsGo) {
  const TestHost none("[[adapters]]\nname = \"lo\"\nindex = 1\ntype = 24\n");
  ULONG size = 0;
  EXPECT_EQ(GetAdaptersInfo(nullptr, &size), 232U);
  EXPECT_EQ(size, 0U);
  const TestHost host("[[adapters]]\nindex = 1\nname = \"" + std::string(300, 'n') + "\"");
  IP_ADAPTER_INFO information;
  size = sizeof information;
  EXPECT_EQ(GetAdaptersInfo(&information, &size), 0U);
  EXPECT_EQ(std::string(information.AdapterName), std::string(259, 'n'));
  EXPECT_EQ(std::string(information.Description), std::string(131, 'n'));
}

TEST(SimulatedHost, TheServiceKeepsListsAndTableInStep) {
  const TestHost host(one_adapter("10.0.0.1/8 0.0.0.0/0", 1));
  const auto change = [&](const char* adapter, DWORD slot, const char* address) {
    return host->change_listed_address(adapter, slot, inet_addr(address), 0xFF);
  };
  const auto table = [&] {
    HostTable<HostAddress> addresses;
    EXPECT_EQ(host->read_addresses(addresses), 0U);
    std::vector<std::string> texts;
    for (const HostAddress& address : *addresses.rows) texts.push_back(dotted(address.address));
    return texts;
  };
  EXPECT_EQ(change("none", 0, "10.0.0.2"), 2U);
  EXPECT_EQ(change("E100B1", 3, "10.0.0.2"), 87U);
  EXPECT_EQ(change("e100b1", 1, "10.0.0.2"), 0U);
  EXPECT_THAT(table(), ElementsAre("0.0.0.0", "10.0.0.1", "10.0.0.2"));
  EXPECT_EQ(change("E100B1", 0, "10.0.0.3"), 0U);
  EXPECT_EQ(change("E100B1", 1, "0.0.0.0"), 0U);
  EXPECT_THAT(table(), ElementsAre("0.0.0.0", "10.0.0.3"));
  // Older hosts have the lists under the service's key.
  const TestHost older(one_adapter("") +
                       "[registry.\"SYSTEM\\\\CurrentControlSet\\\\Services\\\\Tcpip\\\\Parameters"
                       "\\\\Interfaces\\\\E100B1\"]\nIPAddress = false\n"
                       "[registry.\"SYSTEM\\\\CurrentControlSet\\\\Services\\\\E100B1\\\\Parameters"
                       "\\\\Tcpip\"]\nIPAddress = [\"0.0.0.0\"]\n");
  EXPECT_EQ(older->change_listed_address("E100B1", 0, 9, 0xFF), 2U) << "no masks";
  EXPECT_EQ(older->set_value("SYSTEM\\CurrentControlSet\\Services\\E100B1\\Parameters\\Tcpip",
                             "SubnetMask", list_value(std::vector<std::string>{"0.0.0.0"})),
            0U);
  EXPECT_EQ(older->change_listed_address("E100B1", 0, 9, 0xFF), 0U);
}

TEST(SimulatedHost, FaultsCountEveryCall) {
  const TestHost host(
      "faults = [{function = 'GetIfTable', code = 5, times = 2},"
      "{function = 'GetIfTable', code = 6, skip = 1, times = 2}]");
  std::vector<DWORD> codes;
  for (int i = 0; i < 4; ++i) {
    ULONG size = 0;
    codes.push_back(GetIfTable(nullptr, &size, TRUE));
  }
  EXPECT_THAT(codes, ElementsAre(5U, 5U, 6U, 122U));
}

TEST(Registry, AnswersAsThePlatformDoes) {
  const TestHost host("[registry.\"Software\\\\Key\"]\nnumber = 7\nempty = []\n");
  HKEY software = nullptr;
  HKEY key = nullptr;
  HKEY blind = nullptr;
  EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Soft", 0, KEY_READ, &software), 2);
  ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, &software), 0);
  ASSERT_EQ(RegOpenKeyExA(software, "key", 0, KEY_QUERY_VALUE, &key), 0);
  DWORD type = 0;
  BYTE bytes[8] = {};
  DWORD size = 1;
  EXPECT_EQ(RegQueryValueExA(key, "number", nullptr, &type, bytes, &size), 234);
  EXPECT_EQ(RegQueryValueExA(key, "NUMBER", nullptr, &type, bytes, &size), 0);
  EXPECT_THAT(std::vector<DWORD>({type, size, bytes[0]}), ElementsAre(4U, 4U, 7U));
  EXPECT_EQ(RegQueryValueExA(key, "empty", nullptr, &type, nullptr, &size), 0);
  EXPECT_THAT(std::vector<DWORD>({type, size}), ElementsAre(7U, 1U));
  EXPECT_EQ(RegQueryValueExA(key, "none", nullptr, nullptr, nullptr, nullptr), 2);
  EXPECT_EQ(RegQueryValueExA(key, "number", nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(RegQueryValueExA(key, "number", nullptr, nullptr, bytes, nullptr), 87);
  EXPECT_EQ(RegSetValueExA(key, "number", 0, REG_SZ, nullptr, 0), 5);
  host->keep_diary();
  ASSERT_EQ(
      RegCreateKeyExA(software, "New", 0, nullptr, 0, KEY_SET_VALUE, nullptr, &blind, nullptr), 0);
  EXPECT_EQ(RegSetValueExA(blind, "text", 0, REG_SZ, bytes, 2), 0);
  EXPECT_EQ(RegQueryValueExA(blind, "text", nullptr, nullptr, nullptr, &size), 5);
  EXPECT_THAT(host->diary(), ElementsAre("create SOFTWARE\\New", "set SOFTWARE\\New\\text"));
  // The value whose size was given is fetched, whatever others write meanwhile; once.
  EXPECT_EQ(RegQueryValueExA(key, "number", nullptr, nullptr, nullptr, &size), 0);
  EXPECT_EQ(host->set_value("Software\\Key", "Number", {REG_SZ, "longer"}), 0U);
  EXPECT_EQ(RegQueryValueExA(key, "number", nullptr, &type, bytes, &size), 0);
  EXPECT_EQ(type, 4U);
  EXPECT_EQ(RegQueryValueExA(key, "number", nullptr, &type, bytes, &size), 234);
  EXPECT_THAT(std::vector<DWORD>({type, size}), ElementsAre(1U, 6U));
  for (const HKEY opened : {blind, key, software, HKEY_LOCAL_MACHINE}) {
    EXPECT_EQ(RegCloseKey(opened), 0);
  }
}

/// Whether a call fails with a last error of this code.
template <typename Result>
void expect_refusal(Result result, DWORD code, Result failure = {}) {
  EXPECT_EQ(result, failure);
  EXPECT_EQ(GetLastError(), code);
  SetLastError(0);
}

TEST(Platform, FindsLibrariesAndFunctions) {
  const TestHost host("libraries = {dhcpcsvc = false, kernel32 = [\"GetLongPathNameA\"]}");
  expect_refusal(LoadLibraryA("none"), 126);
  expect_refusal(LoadLibraryA("dhcpcsvc.dll"), 126);
  expect_refusal(GetProcAddress(nullptr, "GetIfTable"), 6);
  const HMODULE library = LoadLibraryA("C:\\WINDOWS\\IPHLPAPI.DLL");
  ASSERT_NE(library, nullptr);
  expect_refusal(GetProcAddress(library, "Sleep"), 127);
  expect_refusal(GetProcAddress(library, "getaddrinfo"), 127);
  EXPECT_NE(GetProcAddress(library, "GetIfTable"), nullptr);
  EXPECT_NE(GetProcAddress(LoadLibraryA("kernel32"), "GetLongPathNameA"), nullptr);
  EXPECT_NE(GetProcAddress(LoadLibraryA("wship6"), "getaddrinfo"), nullptr);
  EXPECT_NE(FreeLibrary(library), FALSE);
}

TEST(Platform, TellsOfItself) {
  const TestHost host("os = {service_pack = \"" + std::string(127, 's') +
                      "\", user = \"operator\"}");
  errno = 99;
  char text[128];
  EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text, 20, nullptr), 19U);
  EXPECT_STREQ(text, "Access is denied.\r\n");
  expect_refusal(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text, 19, nullptr), 122);
  expect_refusal(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 4711, 0, text, 99, nullptr),
                 317);
  expect_refusal(FormatMessageA(0, nullptr, 5, 0, text, 99, nullptr), 317);
  EXPECT_EQ(GetSystemDirectoryA(text, 20), 19U);
  EXPECT_STREQ(text, "C:\\WINDOWS\\system32");
  EXPECT_EQ(GetSystemDirectoryA(text, 19), 20U);
  OSVERSIONINFOA version = {};
  expect_refusal(GetVersionExA(&version), 122);
  version.dwOSVersionInfoSize = sizeof version;
  EXPECT_NE(GetVersionExA(&version), FALSE);
  EXPECT_EQ(std::string(version.szCSDVersion), std::string(127, 's'));
  DWORD size = 8;
  expect_refusal(GetUserNameA(text, &size), 122);
  EXPECT_EQ(size, 9U);
  EXPECT_NE(GetUserNameA(text, &size), FALSE);
  EXPECT_STREQ(text, "operator");
  WCHAR wide[3];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "h\xE9", -1, wide, 3), 3);
  EXPECT_EQ(wide[1], 0xE9);
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "longer", 2, wide, 0), 2);
  expect_refusal(MultiByteToWideChar(CP_ACP, 0, "long", 4, wide, 3), 122);
  UUID uuid = {0x00A0C91E, 0x6BF6, 0x11D0, {0x8A, 1, 2, 3, 4, 5, 6, 0xFF}};
  RPC_CSTR uuid_text = nullptr;
  EXPECT_EQ(UuidToStringA(&uuid, &uuid_text), RPC_S_OK);
  EXPECT_STREQ(reinterpret_cast<char*>(uuid_text), "00a0c91e-6bf6-11d0-8a01-0203040506ff");
  RpcStringFreeA(&uuid_text);
  EXPECT_EQ(UuidCreate(&uuid), RPC_S_OK);
  EXPECT_EQ(uuid.Data3 >> 12, 4);
  EXPECT_EQ(uuid.Data4[0] >> 6, 2);
  EXPECT_EQ(errno, 99);
  errno = 0;
}

TEST(Platform, TakesPathsWithAndWithoutDrives) {
  const TestHost host("");
  const TestFolder folder;
  const std::string file = folder.write("sub/file", "");
  std::string with_drive = "c:" + file;
  std::replace(with_drive.begin(), with_drive.end(), '/', '\\');
  char text[512];
  for (const std::string& path : {file, with_drive, "Z:" + file}) {
    EXPECT_EQ(GetLongPathNameA(path.c_str(), text, sizeof text), file.size());
    EXPECT_EQ(text, file);
  }
  EXPECT_EQ(GetFullPathNameA("1:\\none", sizeof text, text, nullptr), 7U);
  EXPECT_STREQ(text, "1:/none");
  expect_refusal(GetLongPathNameA((file + "x").c_str(), text, sizeof text), 2);
  EXPECT_EQ(GetCurrentDirectoryA(1, text), std::filesystem::current_path().string().size() + 1);
  WIN32_FIND_DATAA entry;
  const std::string parent = with_drive.substr(0, with_drive.size() - 4);
  expect_refusal(FindFirstFileA(parent.c_str(), &entry), 50, INVALID_HANDLE_VALUE);
  expect_refusal(FindFirstFileA("/none/*.*", &entry), 3, INVALID_HANDLE_VALUE);
  const HANDLE find = FindFirstFileA((parent + "*.*").c_str(), &entry);
  std::set<std::string> names;
  do {
    names.insert(entry.cFileName);
  } while (FindNextFileA(find, &entry) != FALSE);
  EXPECT_EQ(GetLastError(), 18U);
  EXPECT_NE(FindClose(find), FALSE);
  EXPECT_THAT(names, ElementsAre(".", "..", "file"));
}

}  // namespace
