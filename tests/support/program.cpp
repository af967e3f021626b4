#include "tests/support/program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/support/folder.h"

namespace {

[[noreturn]] void become_program(const Run& run, const std::string& folder) {
  const auto redirect = [&](int descriptor, const char* file, int flags) {
    dup2(open((folder + file).c_str(), flags | O_CLOEXEC, 0600), descriptor);
  };
  redirect(STDIN_FILENO, "/input", O_RDONLY);
  redirect(STDOUT_FILENO, "/output", O_WRONLY | O_CREAT);
  redirect(STDERR_FILENO, "/errors", O_WRONLY | O_CREAT);
  for (const char* name :
       {"ZARVO_HOST", "ZARVO_IPMGMT_MECHANISM", "ZARVO_ALLOW_WIRELESS", "ZARVO_PRIV_DIR"}) {
    unsetenv(name);
  }
  for (const std::string& setting : run.environment) {
    const std::size_t equals = setting.find('=');
    setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
  }
  std::string program = run.program;
  std::vector<std::string> arguments = run.arguments;
  std::vector<char*> pointers = {program.data()};
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  execv(program.c_str(), pointers.data());
  std::perror(program.c_str());
  _exit(127);
}

}  // namespace

Outcome run_program(const Run& run) {
  const TestFolder folder;
  static_cast<void>(folder.write("input", run.input));
  const pid_t child = fork();
  if (child == 0) become_program(run, folder.path());
  int status = 0;
  waitpid(child, &status, 0);
  return {read_file(folder.path() + "/output"), read_file(folder.path() + "/errors"),
          WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

std::string normalised(std::string text) {
  struct Replacement {
    std::regex pattern;
    const char* text;
  };
  static const Replacement REPLACEMENTS[] = {
      {std::regex("[0-9][0-9]/[0-9][0-9]\\.[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"), "@"},
      {std::regex("(@ [a-z_]+):[0-9]+ - "), "$1:# - "},
      {std::regex(":[0-9]+: assertion"), ":#: assertion"},
      {std::regex(
           "((?:pIfTable|pIpAddrTable|pdwSize|pAdapterInfo|pOutBufLen|NTEContext|NTEInstance)"
           "=)0x(?!00000000)[0-9A-F]{8}"),
       "$1P"},
      {std::regex("\r"), "\\r"},
  };
  for (const auto& [pattern, replacement] : REPLACEMENTS) {
    text = std::regex_replace(text, pattern, replacement);
  }
  return text;
}

std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) throw std::runtime_error(path + ": cannot be read");
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}
