// The program at a terminal: a pseudo-terminal whose other end types and reads.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "tests/support/folder.h"

namespace {

using testing::HasSubstr;

constexpr int PATIENCE = 20000;  // milliseconds

class Terminal {
 public:
  explicit Terminal(const char* description = nullptr) {
    const winsize size = {40, 120, 0, 0};
    child_ = forkpty(&descriptor_, nullptr, nullptr, &size);
    if (child_ != 0) return;
    setenv("TERM", "xterm", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    if (description != nullptr) setenv("ZARVO_HOST", description, 1);
    execl(KADRIX_PROGRAM, KADRIX_PROGRAM, nullptr);
    _exit(127);
  }
  ~Terminal() {
    hang_up();
    if (child_ > 0) waitpid(child_, nullptr, 0);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Types a text at the prompt and gives what is shown up to `awaited`.
  std::string type(const std::string& text, const std::string& awaited) {
    read_to("$\r$");  // as the program writes it, and again as it is edited
    for (int i = 0; i < PATIENCE && is_canonical(); ++i) usleep(1000);
    return send(text, awaited);
  }

  std::string send(const std::string& text, const std::string& awaited) {
    EXPECT_EQ(write(descriptor_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    return read_to(awaited);
  }

  /// What is shown up to a text, and since the last one that was read to.
  std::string read_to(const std::string& awaited) {
    pollfd ready = {descriptor_, POLLIN, 0};
    while (shown_.find(awaited) == std::string::npos && descriptor_ >= 0 &&
           poll(&ready, 1, PATIENCE) == 1) {
      char piece[4096];
      const ssize_t length = read(descriptor_, piece, sizeof piece);
      if (length <= 0) break;
      shown_.append(piece, static_cast<std::size_t>(length));
    }
    const std::size_t at = shown_.find(awaited);
    EXPECT_NE(at, std::string::npos) << awaited << " in " << shown_;
    if (at == std::string::npos) hang_up();  // nothing more is to be waited for
    const std::size_t end = at != std::string::npos ? at + awaited.size() : shown_.size();
    std::string seen = shown_.substr(0, end);
    shown_.erase(0, end);
    return seen;
  }

  /// Whether the terminal takes lines as a shell left it, not as they are edited.
  [[nodiscard]] bool is_canonical() const {
    termios modes = {};
    return tcgetattr(descriptor_, &modes) == 0 && (modes.c_lflag & ICANON) != 0;
  }

  void hang_up() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
  }

  /// How the program ended (the status of wait).
  int end() {
    int status = -1;
    waitpid(child_, &status, 0);
    child_ = -1;
    return status;
  }

 private:
  int descriptor_ = -1;
  pid_t child_ = -1;
  std::string shown_;
};

class Console : public testing::Test {
 protected:
  void SetUp() override {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (terminal < 0) GTEST_SKIP() << "this machine has no pseudo-terminals";
    close(terminal);
  }
};

const std::string BAD = "bad command ";
const std::string UP = "\x1B[A";
const std::string HOME = "\x1B[H";
const std::string LEFT = "\x1B[D";

TEST_F(Console, EditsAndRecallsLines) {
  Terminal terminal;
  terminal.type("first line\r", BAD + "first\r\n");
  terminal.type("second" + LEFT + LEFT + "\x7F" + "X" + HOME + "Y\r", BAD + "YsecXnd\r\n");
  terminal.type(UP + UP + HOME + "un\r", BAD + "unfirst\r\n");
  terminal.type("one two three\x17\x17" + std::string("four") + HOME + "\x0B" + "five\r",
                BAD + "five\r\n");
  terminal.type("\x12YsecX\r\r", BAD + "YsecXnd\r\n");
  for (const char* to_begin : {"\x1BOH", "\x1B[1~", "\x1B[1;5D\x1B[1;5D"}) {
    terminal.type(std::string("a b") + to_begin + "X\r", BAD + "Xa\r\n");
  }
  for (const char* to_end : {"\x1B[F", "\x1BOF", "\x1B[4~", "\x1B[1;5C"}) {
    terminal.type("ab" + HOME + to_end + "X\r", BAD + "abX\r\n");
  }
  terminal.type("ab" + HOME + "\x1B[3~\r", BAD + "b\r\n");
  terminal.type("h\xC3\xA9!\r", BAD + "h\xC3\xA9!\r\n");
  terminal.type("add 10.1.1.9 255.255.0.0 fast\r", "success.\r\n");
  terminal.type("print\r", "[0] - 10.1.1.9,255.255.0.0\r\n");
  terminal.type(std::string(1100, 'x') + "\r", "error reading user input. try again.\r\n");
  terminal.type("del 10.1.1.9 fast\r", "success.\r\n");
  EXPECT_THAT(terminal.type("\x04", "done.\r\n"), HasSubstr("\r\nERROR "));
  EXPECT_EQ(terminal.end(), 0);
}

TEST_F(Console, TellsWhatWouldLeadTheTerminalAstray) {
  // The name is cut to 256 bytes, in the middle of a character.
  std::string name = R"(\u001b[2J\u007f\r\t\r\n\u0085\u20ac\U0001F600)";
  for (int i = 0; i < 150; ++i) name += "\xC3\xA9";
  const TestFolder folder;
  const std::string host = folder.write(
      "host.toml", "[[adapters]]\nname = \"A\"\nindex = 1\ndescription = \"" + name + "\"\n");
  Terminal terminal(host.c_str());
  const std::string shown = terminal.type("print\r", "Name        :");
  EXPECT_THAT(shown,
              HasSubstr("^[[2J^?^M\t\r\r\n\\xC2\\x85\xE2\x82\xAC\xF0\x9F\x98\x80\xC3\xA9\xC3"));
  EXPECT_THAT(shown, HasSubstr("\xC3\xA9\\xC3 \r\n"));
}

TEST_F(Console, TellsHowFarAStressTestIs) {
  Terminal terminal;
  const std::string run =
      terminal.type("stress 2 1001 10.1.1.1 255.255.0.0 fast\r", "Iteration 1...\r\n");
  EXPECT_TRUE(std::regex_search(
      run, std::regex("\x1B\\[22;2t\x1B\\]2;stress 1 of 2: adding [0-9,]+ of 1,001\x07")));
  EXPECT_TRUE(std::regex_search(
      run, std::regex("\x1B\\]2;stress 1 of 2: deleting ([0-9]+|1,[0-9]{3}) of 1,001\x07")));
  std::size_t updates = 0;
  for (std::size_t at = 0; (at = run.find("\x1B]2;", at)) != std::string::npos; ++at) ++updates;
  EXPECT_LE(updates, 100U) << "at most ten a second";
  // A signal puts it back, and so does a failure.
  terminal.send("\x03", "\x1B[23;2t");
  const int status = terminal.end();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  Terminal failing;
  failing.type("stress 1 300 223.255.255.1 255.255.0.0 fast\r", "\x1B[23;2t");
  failing.type("half a line", "half a line");
  EXPECT_FALSE(failing.is_canonical());
  failing.send("\x03", "");
  EXPECT_TRUE(WIFSIGNALED(failing.end()));
  EXPECT_TRUE(failing.is_canonical());
}

TEST_F(Console, EndsWithATerminalThatGoesAway) {
  for (const char* typed : {"print", "stress 99 9999 10.1.1.1 255.255.0.0 fast\r"}) {
    Terminal terminal;
    terminal.type(typed, std::string(typed, 5));
    terminal.hang_up();
    const int status = terminal.end();
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGHUP : status == 0) << status;
  }
}

}  // namespace
