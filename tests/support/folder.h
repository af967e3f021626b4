// A folder of the test's own below the system's temporary one, gone with the object. Its path is in
// small letters, as the search path makes every path.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "base/not_copied.h"

class TestFolder : NotCopied {
 public:
  TestFolder();
  ~TestFolder();

  [[nodiscard]] std::string path() const { return path_.string(); }

  /// Writes a file, with the folders on its way, and gives its path.
  [[nodiscard]] std::string write(const std::string& name, std::string_view text) const;

 private:
  std::filesystem::path path_;
};
