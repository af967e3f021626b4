// The block configuration format: settings as key-value lines in named, nestable blocks.
//
//   version = 2
//   exclude = {
//       name = Local Area Connection
//   }
//
// Failures of reading are reported in the message log (begun, not flushed). When memory runs out,
// and at an index out of range, the process ends with an assertion report.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/not_copied.h"
#include "shared/include/text_block.h"

/// A key and its value.
class ConfigPair {
 public:
  ConfigPair(const char* key, const char* value) : key_(key), value_(value) {}

  [[nodiscard]] const char* key() const { return key_.c_str(); }
  [[nodiscard]] const char* value() const { return value_.c_str(); }

  /// Adds a line feed and a further value.
  void join(const char* value) { value_.append("\n").append(value); }

 private:
  std::string key_;
  std::string value_;
};

/// Positions of pairs by their keys in small letters.
using PairIndex = std::unordered_map<std::string, std::size_t>;

/// A named block: its pairs in the order in which each key first appeared, and its nested blocks.
/// Keys are unique without regard to the case of ASCII letters.
class ConfigBlock : NotCopied {
 public:
  explicit ConfigBlock(const char* name);
  ~ConfigBlock();

  [[nodiscard]] const char* name() const { return name_.get(); }

  /// Adds copies of key and value, which must not be the block's own, as a new pair, or joins the
  /// value to the pair that has the key.
  void add_pair(const char* key, const char* value);

  /// The value of a key, or null.
  [[nodiscard]] const char* find_value(const char* key) const;

  [[nodiscard]] std::uint32_t pair_count() const {
    return static_cast<std::uint32_t>(pairs_.size());
  }
  [[nodiscard]] const ConfigPair& pair(std::uint32_t index) const;

  [[nodiscard]] std::uint32_t child_count() const {
    return static_cast<std::uint32_t>(children_.size());
  }
  [[nodiscard]] ConfigBlock& child(std::uint32_t index) const;

  /// Takes a nested block, as the last one, and gives it back.
  ConfigBlock& add_child(std::unique_ptr<ConfigBlock> child);

 private:
  [[nodiscard]] std::size_t find_pair(const char* key) const;

  TextBlock name_;
  std::vector<ConfigPair> pairs_;
  std::vector<std::unique_ptr<ConfigBlock>> children_;
  std::unique_ptr<PairIndex> index_;  ///< null while the pairs are few
};

class ConfigFile : NotCopied {
 public:
  ~ConfigFile() { clear(); }

  /// Reads a stream opened in text mode, in place of what the object holds. 0, or -1 at the first
  /// line in error; the blocks completed before it stay.
  int read(std::FILE* stream);

  /// Writes the canonical layout: the version, then each block with its pairs before its children,
  /// a tab for each level. Always 0.
  int write(std::FILE* stream) const;

  /// Releases version and blocks.
  void clear();

  /// The version, or null when there is none.
  [[nodiscard]] const char* version() const { return version_.get(); }
  void set_version(const char* version);

  [[nodiscard]] std::uint32_t block_count() const {
    return static_cast<std::uint32_t>(blocks_.size());
  }
  [[nodiscard]] ConfigBlock& block(std::uint32_t index) const;
  [[nodiscard]] const char* block_name(std::uint32_t index) const { return block(index).name(); }
  [[nodiscard]] std::uint32_t pair_count(std::uint32_t index) const {
    return block(index).pair_count();
  }
  [[nodiscard]] const char* value(std::uint32_t index, const char* key) const {
    return block(index).find_value(key);
  }

  /// Takes a block, as the last one, and gives it back.
  ConfigBlock& add_block(std::unique_ptr<ConfigBlock> block);

 private:
  TextBlock version_;
  std::vector<std::unique_ptr<ConfigBlock>> blocks_;
};
