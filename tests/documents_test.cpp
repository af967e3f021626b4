// The documents say what is there.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/program.h"

namespace {

const std::filesystem::path ROOT = SOURCE_ROOT;

TEST(Documents, LinksLeadToFiles) {
  static const std::regex LINK("\\]\\(([^)#:]+)\\)");
  std::vector<std::filesystem::path> pages = {ROOT / "README.md"};
  std::set<std::filesystem::path> linked;
  for (std::size_t i = 0; i < pages.size(); ++i) {
    const std::string text = read_file(pages[i].string());
    for (std::sregex_iterator it(text.begin(), text.end(), LINK), end; it != end; ++it) {
      const std::filesystem::path target = pages[i].parent_path() / (*it)[1].str();
      EXPECT_TRUE(std::filesystem::exists(target)) << pages[i] << " " << target;
      if (linked.insert(target).second && target.extension() == ".md") pages.push_back(target);
    }
  }
  for (const auto& entry : std::filesystem::directory_iterator(ROOT / "docs")) {
    EXPECT_TRUE(linked.contains(entry.path()) || entry.path().extension() != ".md") << entry;
  }
}

TEST(Documents, ShowTheProgramAtWork) {
  const std::string readme = read_file((ROOT / "README.md").string());
  const std::size_t begin = readme.find("```\n$") + 4;
  std::istringstream screen(readme.substr(begin, readme.find("$\n```", begin) - begin));
  std::string typed;
  std::string expected;
  for (std::string line; std::getline(screen, line);) {
    (line[0] == '$' ? typed : expected) += line.substr(line[0] == '$' ? 1 : 0) + "\n";
  }
  const Outcome outcome = run_program({.input = typed + "quit\n"});
  EXPECT_EQ(normalised(outcome.errors), normalised(expected) + "INFO  @ - done.\n");
}

}  // namespace
