// The operations that no command reaches: IPv6 addresses through netsh, and the host's hardware
// identity. The netsh here is a script, started as a real process.

#include <dirent.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "brenlo/src/brenlocfg.h"
#include "brenlo/src/netsh.h"
#include "brenlo/src/system.h"
#include "tests/support/folder.h"
#include "tests/support/hosts.h"
#include "tests/support/program.h"

namespace {

using testing::ElementsAre;

TEST(Ipv6Groups, AreReadInTheOrderOfTheText) {
  struct Case {
    std::string text;
    std::uint16_t groups[8];
  };
  for (const Case& it : {Case{"2001:db8:0:0:0:0:0:5", {0x2001, 0xDB8, 0, 0, 0, 0, 0, 5}},
                         Case{"2001:db8::5", {0x2001, 0xDB8, 5}},
                         Case{"1:2:3:4:5:6:7:8:9", {1, 2, 3, 4, 5, 6, 7, 8}},
                         Case{"0x1F:12345:fg:-1:", {0x1F, 0x2345, 0xF, 0}}, Case{"", {}},
                         Case{std::string(255, ':') + "7", {}}}) {
    std::uint16_t groups[8];
    EXPECT_EQ(parse_ipv6_groups(it.text.c_str(), groups), 0);
    EXPECT_TRUE(std::equal(std::begin(groups), std::end(groups), it.groups)) << it.text;
  }
}

std::ptrdiff_t open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// A host with one adapter, and a netsh that writes down what it was asked and runs `script`.
class NetshTest : public testing::Test {
 protected:
  NetshTest()
      : host_(one_adapter("10.0.0.1/8") +
              "connection = \"Local Area \\\"1\\\" 100%\"\n"
              "[registry.\"SYSTEM\\\\CurrentControlSet\\\\Services\\\\Tcpip6\\\\Parameters\\\\"
              "Interfaces\\\\E100B1\\\\Addresses\\\\2001:db8::7\"]\n") {
    netsh_does("echo Ok.");
    setenv("windir", folder_.path().c_str(), 1);
    EXPECT_EQ(system_.find_first_active_adapter(), 0);
  }
  ~NetshTest() override { unsetenv("windir"); }

  void netsh_does(const std::string& script) const {
    const std::string path =
        folder_.write("system32/netsh.exe", "#!/bin/sh\nprintf '<%s>' \"$@\" >>" + folder_.path() +
                                                "/asked\n" + script + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  std::string asked() const {
    const std::string path = folder_.path() + "/asked";
    if (!std::filesystem::exists(path)) return "";
    std::string text = read_file(path);
    std::filesystem::remove(path);
    return text;
  }

  [[nodiscard]] Adapter& adapter() const { return *system_.adapter(0); }

  TestFolder folder_;
  TestHost host_;
  System system_;
};

TEST_F(NetshTest, RecordsWhatItAddedAndDeletesOnlyThat) {
  EXPECT_EQ(system_.add_ipv6_address(nullptr, "2001:db8::5"), 1);
  EXPECT_EQ(asked(), "<interface><ipv6><add><address><Local Area 1 100%><address=2001:db8::5>");
  EXPECT_EQ(system_.add_ipv6_address("Ether", "2001:db8::7"), 1);
  EXPECT_EQ(system_.add_ipv6_address(nullptr, "2001:db8::6"), 1);
  asked();
  EXPECT_EQ(system_.delete_ipv6_address(nullptr, "2001:db8::7"), 1);
  EXPECT_EQ(system_.delete_ipv6_address(nullptr, "2001:db8:0:0:0:0:0:5"), 1);
  EXPECT_EQ(asked(), "");
  EXPECT_EQ(system_.delete_ipv6_address(nullptr, "2001:db8::5"), 1);
  EXPECT_EQ(asked(), "<interface><ipv6><del><address><Local Area 1 100%><address=2001:db8::5>");
  host_->keep_diary();
  EXPECT_EQ(system_.delete_ipv6_address(nullptr, "2001:db8::6"), 1);
  EXPECT_THAT(host_->diary(), ElementsAre("sleep 1"));
  EXPECT_EQ(adapter().ipv6_count(), 0);
  EXPECT_EQ(system_.add_ipv6_address("none", "2001:db8::5"), -1);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ system:# - Cannot find <none> adapter."));
}

TEST_F(NetshTest, TriesThreeTimesWithTheConnectionsCurrentName) {
  netsh_does("test -e " + folder_.path() + "/tried && echo Ok.; touch " + folder_.path() +
             "/tried");
  ASSERT_EQ(host_->set_value("SYSTEM\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-"
                             "BFC1-08002BE10318}\\E100B1\\Connection",
                             "Name", text_value("Renamed")),
            0U);
  EXPECT_EQ(system_.add_ipv6_address(nullptr, "fe80::1"), 1);
  EXPECT_STREQ(adapter().connection_name(), "Renamed");
  EXPECT_THAT(asked(), testing::EndsWith("<Renamed><address=fe80::1>"));
  netsh_does("echo The parameter is incorrect.");
  EXPECT_EQ(system_.add_ipv6_address(nullptr, "fe80::2"), 0);
  EXPECT_EQ(adapter().ipv6_count(), 1);
  // A delete that fails drops the entry all the same, and the second attempt finds nothing to do.
  EXPECT_EQ(adapter().delete_ipv6_address("fe80::1"), -1);
  EXPECT_EQ(adapter().delete_ipv6_address("fe80::1"), 0);
}

TEST_F(NetshTest, ReadsWhateverTheChildPrints) {
  const std::ptrdiff_t descriptors = open_descriptors();
  for (const auto& [script, result] : {std::pair{"head -c 10000000 /dev/zero; echo Ok.", 0},
                                       {"echo an error, not Ok. at all", 0},
                                       {"printf Ok", -1},
                                       {"echo ok.", -1},
                                       {"printf O; sleep 0.1; printf k.", 0},
                                       {"exit 3", -1},
                                       {"kill -9 $$", -1},
                                       {"exec >&-; sleep 0.1; echo Ok.", -1},
                                       {"[ $(ls /proc/self/fd | wc -l) = 4 ] && echo Ok.", 0}}) {
    netsh_does(script);
    EXPECT_EQ(adapter().add_ipv6_address("2001:db8::9"), result) << script;
  }
  EXPECT_EQ(adapter().delete_ipv6_address("2001:db8::9"), 0);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  errno = 0;
}

TEST_F(NetshTest, NothingIsStartedWithoutAProgram) {
  ASSERT_EQ(adapter().add_ipv6_address("2001:db8::5"), 0);
  setenv("windir", "/nowhere at all", 1);
  EXPECT_EQ(adapter().add_ipv6_address("2001:db8::6"), -1);
  unsetenv("windir");
  EXPECT_EQ(adapter().delete_ipv6_address("2001:db8::5"), -1);
  EXPECT_EQ(adapter().ipv6_count(), 1);
}

// ---- Hardware identity -------------------------------------------------------------------------

TEST(HardwareIdentity, ComesFromTheAdaptersOrAUuid) {
  const std::string adapters =
      "[[adapters]]\nname = \"A\"\nindex = 2\nhardware_address = \"00-0C-29-00-00-01\"\n"
      "[[adapters]]\nname = \"Spare\"\nindex = 3\n[[adapters]]\nname = \"C\"\nindex = 4\n";
  const std::uint8_t first[6] = {0x00, 0x0C, 0x29, 0, 0, 1};
  auto entry = std::make_unique<ExclusionEntry>();
  *entry = {EXCLUDED_NAME, 5, "Spare"};
  excluded_adapters->append(std::move(entry));
  // From both adapters that are not left out, or one from a UUID.
  const auto expect = [&](int platform, int major, int minor, const char* pack, int count) {
    DynStore os;
    os.set_format("os = {platform_id = %d, major = %d, minor = %d, service_pack = '%s'}\n",
                  platform, major, minor, pack);
    const TestHost host(os.str() + adapters);
    const System system;
    const std::uint8_t* addresses[MAX_ADAPTERS] = {};
    const std::string said = written_by(
        [&] { EXPECT_EQ(system.get_system_hardware_addresses(addresses), count) << os.str(); });
    EXPECT_EQ(said, count < 0 ? "ERROR @ system:# - unsupported windows platform NT 6.2 - must be "
                                "9x, Me, NT4, 2000, XP, 2003, Vista, 7\n"
                              : "");
    EXPECT_TRUE(count != 2 || std::equal(first, first + 6, addresses[0])) << os.str();
  };
  for (const int minor : {0, 10}) expect(1, 4, minor, "", 1);
  expect(1, 4, 90, "", 2);
  for (const char* pack : {"", "Service Pack 3", " Service Pack 6", "Service Pack-6"}) {
    expect(2, 4, 0, pack, 1);
  }
  for (const char* pack : {"Service Pack 4", "ServicePack\t4a"}) expect(2, 4, 0, pack, 2);
  for (const int minor : {0, 1, 2}) expect(2, 5, minor, "", 2);
  for (const int minor : {0, 1}) expect(2, 6, minor, "", 2);
  expect(2, 6, 2, "", -1);
  EXPECT_EQ(excluded_adapters->clear(), 0);
}

TEST(HardwareIdentity, AUuidThatFailsIsTold) {
  for (const auto& [fault, said] :
       {std::pair{"function = \"UuidCreate\"\ncode = 1739", "UuidCreate failed."},
        {"function = \"UuidToStringA\"\ncode = 14", "UuidToString failed."}}) {
    const TestHost host(std::string("os = {platform_id = 1, major = 4, minor = 0}\n[[faults]]\n") +
                        fault);
    const System system;
    const std::uint8_t* addresses[MAX_ADAPTERS] = {};
    EXPECT_EQ(system.get_system_hardware_addresses(addresses), -1);
    EXPECT_THAT(held_lines(),
                ElementsAre("WARN  @ system:# - cannot determine the hardware address for system.",
                            "      @ system:# - " + std::string(said)));
  }
  const TestHost host("[[faults]]\nfunction = \"UuidCreate\"\ncode = 1824");
  const std::uint8_t* one = nullptr;
  const std::uint8_t* two = nullptr;
  EXPECT_EQ(make_uuid_hardware_address(one), 0);
  const TestHost another("");
  std::uint8_t bits[6] = {};
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(make_uuid_hardware_address(two), 0);
    for (std::uint8_t& byte : bits) byte |= *two++;
    two -= 6;
  }
  EXPECT_EQ(one, two);
  EXPECT_THAT(bits, testing::Each(0xFF)) << "bits that are never set";
}

}  // namespace
