#include "tests/support/program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "shared/include/utils.h"

namespace {

File temporary_file() {
  File file(std::tmpfile(), std::fclose);
  if (file == nullptr) throw std::runtime_error("no temporary file");
  return file;
}

std::string contents(const File& file) {
  std::rewind(file.get());
  std::string text;
  char piece[65536];
  std::size_t length = 0;
  while ((length = std::fread(piece, 1, sizeof piece, file.get())) > 0) text.append(piece, length);
  return text;
}

[[noreturn]] void become_program(const Run& run, int input, int output, int errors) {
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
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
  const File input = temporary_file();
  const File output = temporary_file();
  const File errors = temporary_file();
  std::fwrite(run.input.data(), 1, run.input.size(), input.get());
  std::rewind(input.get());
  const pid_t child = fork();
  if (child == 0)
    become_program(run, fileno(input.get()), fileno(output.get()), fileno(errors.get()));
  int status = 0;
  waitpid(child, &status, 0);
  return {contents(output), contents(errors), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
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
