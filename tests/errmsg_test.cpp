#include "shared/include/vmk_errmsg.h"

#include <windows.h>

#include <cerrno>
#include <cstdlib>

#include "tests/support/hosts.h"
#include "tests/support/memory.h"
#include "tests/support/program.h"

namespace {

using testing::ElementsAre;

const ReportSite SITE = {".\\some\\module", 12};

// ---- Memory that fails -------------------------------------------------------------------------

class LogMemoryTest : public testing::Test {
 protected:
  LogMemoryTest() { memory = {}; }
};

TEST_F(LogMemoryTest, ReserveMakesTheRetryWorkAndTheNoticeFollows) {
  MessageLog log(COUNTED_MEMORY);
  memory.refuse_until_reserve = true;
  errno = 0;
  const std::string cause = "WARN  " + std::string(300, 'c');
  EXPECT_EQ(log.push(cause.c_str()), 0);
  EXPECT_EQ(memory.reserve, nullptr);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.push("ERROR outcome"), 0);
  EXPECT_EQ(log.compose(),
            "ERROR outcome\n      " + std::string(300, 'c') + "\n" + OUT_OF_MEMORY_NOTICE);
  log.begin();
  log.push("INFO  later");
  EXPECT_STREQ(log.compose(), (std::string("INFO  later\n") + OUT_OF_MEMORY_NOTICE).c_str());
}

TEST_F(LogMemoryTest, WithoutReserveReportsAreDroppedAndMessagesShortened) {
  MessageLog log(COUNTED_MEMORY);
  const std::string text(300, 'x');
  memory.refusals = 2;
  EXPECT_EQ(log.push(text.c_str()), -1);
  EXPECT_EQ(log.push("short one"), 0);
  EXPECT_EQ(log.push(text.c_str()), 0);
  memory.refusals = 1;
  EXPECT_STREQ(log.compose(), OUT_OF_MEMORY_NOTICE);
  // What is composed stands, and where the notice finds no room it is owed.
  log.begin();
  log.push(std::string(120, 'y').c_str());
  memory.refusals = 1;
  EXPECT_EQ(log.compose(), std::string(120, 'y') + "\n");
  EXPECT_TRUE(log.owes_notice());
}

TEST_F(LogMemoryTest, ASteadyStreamAllocatesNothing) {
  MessageLog log(COUNTED_MEMORY);
  const std::string text = "INFO  " + std::string(2000, 'z');
  for (int round = 0; round < 3; ++round) {
    const int before = memory.allocations;
    log.begin();
    for (int i = 0; i < MAX_MESSAGE_PIECES; ++i) log.push(text.c_str());
    log.compose();
    log.compose_last();
    if (round == 0) continue;
    EXPECT_EQ(memory.allocations, before) << round;
  }
}

TEST_F(LogMemoryTest, EndsWithoutTheReserve) {
  memory.refusals = 1;
  expect_stop(
      [] { MessageLog log(COUNTED_MEMORY); },
      "^ERROR \\.\\\\vmk_errmsg:[0-9]+: assertion failed - not enough memory for diagnostics\n$");
}

// ---- Composition -------------------------------------------------------------------------------

TEST(Log, ComposesNewestFirstAndBlanksTheCauses) {
  MessageLog log(STANDARD_MEMORY);
  EXPECT_EQ(log.push("WARN  cause"), 0);
  log.push("ERROR error at line 3\n");
  log.push("no~thing\nto blank");
  log.push("DEBUG outcome");
  EXPECT_STREQ(log.compose(),
               "DEBUG outcome\n        \nto blank\n      error at line 3\n      cause\n");
  log.begin();
  EXPECT_STREQ(log.compose(), "");
}

TEST(Log, HoldsSixtyFourPieces) {
  MessageLog log(STANDARD_MEMORY);
  for (int i = 0; i < MAX_MESSAGE_PIECES; ++i) EXPECT_EQ(log.push(std::to_string(i).c_str()), 0);
  EXPECT_EQ(log.push("one too many"), -1);
  EXPECT_TRUE(std::string(log.compose()).starts_with("63\n"));
}

// ---- Reports -----------------------------------------------------------------------------------

TEST(Reports, HaveTheHeaderOfTheirLevel) {
  errmsg_begin();
  errmsg_set_location("C:\\src\\system.cpp", 449);
  errmsg_info("%s %d", "info", 1);
  errmsg_warn("warn");
  errmsg_error("error");
  const char* nothing = std::getenv("no such variable");
  errmsg_debug("debug %s", nothing);
  EXPECT_THAT(held_lines(),
              ElementsAre("DEBUG @ system.cpp:449 - debug (null)", "      @ system.cpp:449 - error",
                          "      @ system.cpp:449 - warn", "      @ - info 1"));
  errmsg_begin();
  const std::string base(200, 'f');
  errmsg_set_location(base.c_str(), -1);
  errmsg_warn("cut");
  EXPECT_THAT(held_lines(), ElementsAre("WARN  @ " + base.substr(0, 127) + ":-1 - cut"));
}

TEST(Reports, AreCutAtTheEndOfTheirBuffer) {
  errmsg_begin();
  errmsg_info("%20000x", 1U);
  EXPECT_EQ(std::string(errmsg_compose()).size(), REPORT_BUFFER_SIZE - 1 + 1U);
  errmsg_begin();
  errmsg_push_format("%s", std::string(20000, 'x').c_str());
  EXPECT_EQ(std::string(errmsg_compose()).size(), REPORT_BUFFER_SIZE - 1 + 1U);
}

TEST(Reports, BeginAddAndWriteAsTheirKindSays) {
  EXPECT_EQ(written_by([] {
              report(BEGIN_ERROR, SITE, "cause");
              report(ADD_WARN, SITE, "more");
            }),
            "");
  EXPECT_EQ(written_by([] { report(CLOSE_ERROR, SITE, "outcome"); }),
            "ERROR @ module:# - outcome\n      @ module:# - more\n      @ module:# - cause\n");
  // A flush clears nothing: without a begin the earlier reports come again.
  EXPECT_EQ(written_by([] { report(CLOSE_WARN, SITE, "again"); }),
            "WARN  @ module:# - again\n      @ module:# - outcome\n      @ module:# - more\n"
            "      @ module:# - cause\n");
  EXPECT_EQ(written_by([] { report(WRITE_DEBUG, SITE, "alone"); }), "DEBUG @ module:# - alone\n");
  EXPECT_EQ(written_by([] { write_info("line"); }), "INFO  @ - line\n");
  EXPECT_STREQ(errmsg_compose(), "");
}

TEST(Reports, AreSilentWhileSuspended) {
  errmsg_begin();
  errmsg_suspend();
  errmsg_suspend();
  errmsg_resume();
  EXPECT_FALSE(errmsg_enabled());
  EXPECT_EQ(written_by([] {
              write_info("unheard");
              errmsg_push("unheard");
              errmsg_flush();
            }),
            "");
  errmsg_resume();
  EXPECT_EQ(written_by([] { write_info("heard"); }), "INFO  @ - heard\n");
  EXPECT_TRUE(errmsg_enabled());
}

TEST(Reports, GiveTheSystemsReason) {
  using Case = std::tuple<int, DWORD, const char*>;
  for (const auto& [error_number, code, reason] :
       {Case{ENOENT, 5, "No such file or directory"}, Case{0, 5, "Access is denied."},
        Case{0, 0xFFFFFFFE, "GetLastError -2"}, Case{0, 12345, "GetLastError 12345"}}) {
    errmsg_begin();
    SetLastError(code);
    EXPECT_EQ(errmsg_save_last_error(), code);
    SetLastError(0);
    errmsg_set_location("x", 1);
    errno = error_number;
    errmsg_error_system("fopen");
    EXPECT_EQ(errno, error_number);
    errno = 0;
    EXPECT_THAT(held_lines(), ElementsAre(std::string("ERROR @ x:# - fopen: ") + reason));
  }
  errmsg_begin();
  errno = EACCES;
  errmsg_push_errno();
  errno = 0;
  EXPECT_THAT(held_lines(), ElementsAre("Permission denied"));
}

TEST(Reports, LastMessageIsWhatTheLastFlushWrote) {
  char time[32];
  std::time_t now = 0;
  do {
    now = std::time(nullptr);
    std::strftime(time, sizeof time, "ERROR %m/%d.%H:%M:%S ", std::localtime(&now));
    written_by([] { report(WRITE_ERROR, SITE, "seen"); });
  } while (std::time(nullptr) != now);
  EXPECT_THAT(errmsg_last_message(), testing::StartsWith(time));
  report(BEGIN_ERROR, SITE, "%s", std::string(1000, 'x').c_str());
  errmsg_compose();
  EXPECT_EQ(normalised(errmsg_last_message()), "ERROR @ module:# - seen\n");
}

}  // namespace
