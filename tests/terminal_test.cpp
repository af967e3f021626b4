// The program at a terminal: a pseudo-terminal whose other end types and reads.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <regex>
#include <string>
#include <utility>

#include "base/not_copied.h"
#include "tests/support/folder.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int PATIENCE = 20000;  // milliseconds

/// What the program is started with, besides the terminal.
struct Start {
  const char* host = nullptr;
  const char* terminal = "xterm";  ///< null: TERM is not set
  const char* locale = "C.UTF-8";
  const char* argument = nullptr;
  int closed = -1;  ///< a standard stream that is closed
  /// A standard stream that reads from or writes to nowhere.
  int nowhere = -1;
};

class PseudoTerminal : NotCopied {
 public:
  explicit PseudoTerminal(const Start& start = {}) {
    const winsize size = {40, 120, 0, 0};
    child_ = forkpty(&descriptor_, nullptr, nullptr, &size);
    if (child_ == 0) become_program(start);
  }
  ~PseudoTerminal() {
    hang_up();
    if (child_ > 0) end();
  }

  /// Types a text at the prompt and gives what is shown up to `awaited`.
  std::string type(const std::string& text, const std::string& awaited) {
    read_to("\r$");  // the prompt once more, as the line is edited
    for (int i = 0; i < PATIENCE && is_canonical(); ++i) usleep(1000);
    return send(text, awaited);
  }

  std::string send(const std::string& text, const std::string& awaited) {
    EXPECT_EQ(write(descriptor_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    return read_to(awaited);
  }

  /// What is shown up to a text, and since the last one that was read to.
  std::string read_to(const std::string& awaited) {
    while (shown_.find(awaited) == std::string::npos && read_more()) {
    }
    const std::size_t at = shown_.find(awaited);
    EXPECT_NE(at, std::string::npos) << awaited << " in " << shown_;
    if (at == std::string::npos) hang_up();  // nothing more is to be waited for
    const std::size_t end = at != std::string::npos ? at + awaited.size() : shown_.size();
    std::string seen = shown_.substr(0, end);
    shown_.erase(0, end);
    return seen;
  }

  /// All that is shown until the program ends.
  std::string read_to_end() {
    while (read_more()) {
    }
    return std::exchange(shown_, {});
  }

  /// Whether the terminal takes lines as a shell left it, not as they are edited.
  [[nodiscard]] bool is_canonical() const {
    termios modes = {};
    return tcgetattr(descriptor_, &modes) == 0 && (modes.c_lflag & ICANON) != 0;
  }

  void signal(int number) const { kill(child_, number); }

  void hang_up() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
  }

  /// How the program ended (the status of wait).
  int end() {
    int status = -1;
    for (int i = 0; i < PATIENCE && waitpid(child_, &status, WNOHANG) == 0; ++i) usleep(1000);
    if (status == -1) {
      ADD_FAILURE() << "the program does not end";
      kill(child_, SIGKILL);
      waitpid(child_, &status, 0);
    }
    child_ = -1;
    return status;
  }

 private:
  [[noreturn]] static void become_program(const Start& start) {
    // A suite that runs in the background of a script ignores them, and children inherit that.
    for (const int number : {SIGINT, SIGQUIT}) std::signal(number, SIG_DFL);
    for (const auto& [name, value] : {std::pair{"TERM", start.terminal},
                                      {"LC_ALL", start.locale},
                                      {"ZARVO_HOST", start.host}}) {
      if (value != nullptr) {
        setenv(name, value, 1);
      } else {
        unsetenv(name);
      }
    }
    if (start.closed >= 0) close(start.closed);
    if (start.nowhere >= 0) dup2(open("/dev/null", O_RDWR), start.nowhere);
    execl(KADRIX_PROGRAM, KADRIX_PROGRAM, start.argument, nullptr);
    _exit(127);
  }

  bool read_more() {
    pollfd ready = {descriptor_, POLLIN, 0};
    if (descriptor_ < 0 || poll(&ready, 1, PATIENCE) != 1) return false;
    char piece[4096];
    const ssize_t length = read(descriptor_, piece, sizeof piece);
    if (length <= 0) return false;
    shown_.append(piece, static_cast<std::size_t>(length));
    return true;
  }

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
const std::string KEEP = "\x1B[22;2t";
const std::string RESTORE = "\x1B[23;2t";

TEST_F(Console, TakesWhatIsTyped) {
  PseudoTerminal terminal;
  for (const auto& [typed, shown] : std::initializer_list<std::pair<std::string, std::string>>{
           {"first line", BAD + "first\r\n"},
           {"second" + LEFT + LEFT + "\x7F" + "X" + HOME + "Y", BAD + "YsecXnd\r\n"},
           {UP + UP + HOME + "un", BAD + "unfirst\r\n"},
           {"one two three\x17\x17" + std::string("four") + HOME + "\x0B" + "five",
            BAD + "five\r\n"},
           {"\x12YsecX\r", BAD + "YsecXnd\r\n"},
           {"a b\x1BOHX", BAD + "Xa\r\n"},
           {"a b\x1B[1~X", BAD + "Xa\r\n"},
           {"a b\x1B[1;5D\x1B[1;5DX", BAD + "Xa\r\n"},
           {"ab" + HOME + "\x1B[FX", BAD + "abX\r\n"},
           {"ab" + HOME + "\x1B[4~X", BAD + "abX\r\n"},
           {"ab" + HOME + "\x1B[1;5CX", BAD + "abX\r\n"},
           {"ab" + HOME + "\x1B[3~", BAD + "b\r\n"},
           {"bd\x1BODc\x1B[7~a\x1BOFe\x1B[8~f", BAD + "abcdef\r\n"},
           {"ac" + HOME + "\x1B[Cb" + HOME + "\x1BOC\x1BOC\x1BOCd", BAD + "abcd\r\n"},
           {"\x1BOA\x1BOA\x1B[BX", BAD + "abcdX\r\n"},
           {"\x1BOA\x1BOA\x1BOBY", BAD + "abcdXY\r\n"},
           // Keys without a meaning here type nothing.
           {"a\x1B[15~b\x1B[5~c\x1B[1;2Dd\x1BOPe\x1B[[Af", BAD + "abcdef\r\n"},
           // A tab ends a word like a blank.
           {"purge 192.168.1.1\t0", "Address <192.168.1.1> not found on 0 adapter.\r\n"},
           {"h\xC3\xA9!", BAD + "h\xC3\xA9!\r\n"},
           // What is no character is seen to be one.
           {"a\xFF" + std::string("b"), BAD + "a\xEF\xBF\xBD" + "b\r\n"},
           {"add 10.1.1.9 255.255.0.0 fast", "success.\r\n"},
           {"print", "[0] - 10.1.1.9,255.255.0.0\r\n"},
           {std::string(1100, 'x'), "error reading user input. try again.\r\n"},
           {"del 10.1.1.9 fast", "success.\r\n"}}) {
    terminal.type(typed + "\r", shown);
  }
  // A stop that nobody can undo stops nothing, and the line goes on, however often.
  terminal.type("hlf", "hlf");
  terminal.send("\x02\x02", "\b\b");
  terminal.send("\x1A", "$hlf");
  EXPECT_FALSE(terminal.is_canonical()) << "what is typed now is the line's";
  terminal.send("a", "a");
  terminal.send("\x1A", "$half");
  terminal.send("\x05line\r", BAD + "halfline\r\n");
  terminal.type("\x04", "done.\r\n");
  EXPECT_EQ(terminal.end(), 0);
  PseudoTerminal plain({.locale = "C"});
  plain.type("B\xC3\xBCro\r", BAD + "B\xC3\xBCro\r\n");
}

TEST_F(Console, TellsWhatWouldLeadTheTerminalAstray) {
  // The name is cut to 256 bytes, in the middle of a character.
  std::string name = R"(\u001b[2J\u007f\r\t\r\n\u0085\u202e\u200b\u20ac\U0001F600)";
  for (int i = 0; i < 150; ++i) name += "\xC3\xA9";
  const TestFolder folder;
  const std::string host = folder.write(
      "host.toml", "[[adapters]]\nname = \"A\"\nindex = 1\ndescription = \"" + name + "\"\n");
  // Whatever the other streams are.
  for (const int nowhere : {-1, STDIN_FILENO, STDOUT_FILENO}) {
    PseudoTerminal terminal({.host = host.c_str(), .argument = "print", .nowhere = nowhere});
    const std::string shown = terminal.read_to_end();
    EXPECT_THAT(shown, HasSubstr("^[[2J^?^M\t\r\r\n\\xC2\\x85\\xE2\\x80\\xAE\\xE2\\x80\\x8B"
                                 "\xE2\x82\xAC\xF0\x9F\x98\x80\xC3\xA9\xC3"));
    EXPECT_THAT(shown, HasSubstr("\xC3\xA9\\xC3 \r\n"));
    EXPECT_THAT(shown, Not(HasSubstr(KEEP))) << "a title is for the prompt";
  }
}

TEST_F(Console, HasATitleWhereTheTerminalHasOne) {
  for (const auto& [name, has_title] : {std::pair{"xterm-256color", true},
                                        {"vt220", false},
                                        {"linux", false},
                                        {"dumb", false},
                                        {static_cast<const char*>(nullptr), false}}) {
    PseudoTerminal terminal({.terminal = name});
    terminal.type("quit\r", "done.\r\n");
    const std::string shown = terminal.read_to_end();
    EXPECT_EQ(shown.find(RESTORE) != std::string::npos, has_title) << shown;
  }
  PseudoTerminal live({.host = "linux"});
  live.read_to(KEEP + "\x1B]2;kadrix: this machine\x07");
}

TEST_F(Console, InterruptsAStressTest) {
  const std::string own_title = "\x1B]2;kadrix: simulated host\x07";
  const std::string stress = "stress 1 2000 10.1.1.1 255.255.0.0 fast\r";
  PseudoTerminal terminal;
  terminal.type(stress, "adding 1 of 2000\x07");
  terminal.send("\x03", "stress test interrupted.\r\n");
  terminal.read_to(own_title);
  // What was added is the tool's own, and the same command cleans up.
  terminal.type("stress 1 20 10.1.1.1 255.255.0.0 fast\r", "------\r\n");
  terminal.type("del 10.1.1.1 fast\r", "Address <10.1.1.1> not found on fast adapter.\r\n");
  // At the prompt, and whatever else ends the program, the title goes first.
  terminal.type("half a line", "half a line");
  EXPECT_FALSE(terminal.is_canonical());
  terminal.send("\x03", RESTORE);
  EXPECT_TRUE(terminal.is_canonical());
  const int status = terminal.end();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  for (const int number : {SIGQUIT, SIGTERM}) {
    PseudoTerminal ended;
    ended.type(stress, "adding 1 of 2000\x07");
    ended.signal(number);
    ended.read_to(RESTORE);
    EXPECT_TRUE(WIFSIGNALED(ended.end()));
  }
  // What is typed matters, not where the prompt goes.
  PseudoTerminal silent({.nowhere = STDOUT_FILENO});
  silent.send("stress 1 2000 10.1.1.1 255.255.0.0 fast\n", "adding addresses\r\n");
  silent.send("\x03", "stress test interrupted.\r\n");
  PseudoTerminal failing;
  failing.type("stress 1 300 223.255.255.1 255.255.0.0 fast\r", "error adding");
  failing.read_to(own_title);
}

TEST_F(Console, TellsHowFarAStressTestIs) {
  PseudoTerminal terminal;
  const std::string run =
      terminal.type("stress 2 1001 10.1.1.1 255.255.0.0 fast\r", "Iteration 1...\r\n");
  for (const char* work : {"adding", "deleting"}) {
    EXPECT_TRUE(std::regex_search(
        run, std::regex("\x1B\\]2;stress 1 of 2: " + std::string(work) + " [0-9]+ of 1001\x07")));
  }
}

TEST_F(Console, EndsWithATerminalThatGoesAway) {
  for (const char* typed : {"print", "stress 99 9999 10.1.1.1 255.255.0.0 fast\r"}) {
    PseudoTerminal terminal;
    terminal.type(typed, std::string(typed, 5));
    terminal.hang_up();
    const int status = terminal.end();
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGHUP : status == 0) << status;
  }
}

// What is opened first must not get the number of a stream that is closed: reports would go into
// it, and what comes out of it would be commands.
TEST_F(Console, DoesWithoutAStream) {
  for (const int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    PseudoTerminal terminal({.host = "linux", .argument = "print", .closed = closed});
    EXPECT_EQ(terminal.read_to_end().empty(), closed == STDERR_FILENO);
    EXPECT_EQ(terminal.end(), 0);
  }
}

}  // namespace
