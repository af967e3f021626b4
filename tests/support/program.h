// Runs the program as an operator would, and takes down everything it says.
#pragma once

#include <string>
#include <vector>

struct Run {
  std::string program = KADRIX_PROGRAM;
  std::vector<std::string> arguments = {};
  std::vector<std::string> environment =
      {};  ///< NAME=VALUE; the program sees no other ZARVO_ variable
  std::string input = {};
};

struct Outcome {
  std::string output;  ///< standard output
  std::string errors;  ///< standard error
  int status = -1;     ///< exit status; -1 when a signal ended the program
};

Outcome run_program(const Run& run);

/// A text of the program with what differs from run to run replaced: "@" for the time, "#" for line
/// numbers, "P" for pointers, "\r" for a carriage return.
std::string normalised(std::string text);

std::string read_file(const std::string& path);

std::vector<std::string> lines_of(const std::string& text);
