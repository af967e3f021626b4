// A folder of the test's own below the system's temporary one, gone with the object. Its path is in
// small letters, as the search path makes every path.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  [[nodiscard]] std::string path() const { return path_.string(); }

  /// Writes a file, with the folders on its way, and gives its path.
  [[nodiscard]] std::string write(const std::string& name, std::string_view text) const;

 private:
  std::filesystem::path path_;
};
