#include "tests/support/folder.h"

#include <fstream>
#include <random>

#include "base/text.h"

namespace {

std::filesystem::path temporary_folder() {
  const std::filesystem::path usual = std::filesystem::temp_directory_path();
  return lower_cased(usual.string()) == usual ? usual : "/tmp";
}

}  // namespace

TestFolder::TestFolder() {
  std::random_device random;
  do {
    path_ = temporary_folder() / ("kadrix-test-" + std::to_string(random()));
  } while (!std::filesystem::create_directory(path_));
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
}

TestFolder::~TestFolder() { std::filesystem::remove_all(path_); }

std::string TestFolder::write(const std::string& name, std::string_view text) const {
  const std::filesystem::path path = path_ / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
  return path.string();
}
