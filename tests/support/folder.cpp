#include "tests/support/folder.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <set>

namespace {

bool has_capitals(const std::string& path) {
  return std::any_of(path.begin(), path.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

std::filesystem::path temporary_folder() {
  const std::filesystem::path usual = std::filesystem::temp_directory_path();
  return has_capitals(usual.string()) ? "/tmp" : usual;
}

/// The folders of this process that still stand, for a process that ends without their owners.
struct Standing {
  ~Standing() {
    if (getpid() != owner) return;
    for (const auto& path : paths) std::filesystem::remove_all(path);
  }

  pid_t owner = getpid();
  std::set<std::filesystem::path> paths;
};

Standing& standing() {
  static Standing standing;
  // A child of this process has none of its parent's.
  if (standing.owner != getpid()) standing = {};
  return standing;
}

}  // namespace

TestFolder::TestFolder() {
  std::random_device random;
  do {
    path_ = temporary_folder() / ("kadrix-test-" + std::to_string(random()));
  } while (!std::filesystem::create_directory(path_));
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
  standing().paths.insert(path_);
}

TestFolder::~TestFolder() {
  if (standing().paths.erase(path_) != 0) std::filesystem::remove_all(path_);
}

std::string TestFolder::write(const std::string& name, std::string_view text) const {
  const std::filesystem::path path = path_ / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
  return path.string();
}
