#include "tests/support/folder.h"

#include <unistd.h>

#include <fstream>

TestFolder::TestFolder() {
  static int number = 0;
  path_ = std::filesystem::temp_directory_path() /
          ("kadrix-test-" + std::to_string(getpid()) + "-" + std::to_string(++number));
  std::filesystem::create_directories(path_);
}

TestFolder::~TestFolder() { std::filesystem::remove_all(path_); }

std::string TestFolder::write(const std::string& name, std::string_view text) const {
  const std::filesystem::path path = path_ / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
  return path.string();
}
