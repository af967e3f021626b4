// The exclusion list: the network adapters that the tool must leave alone, each named by its name
// or by its hardware address.
#pragma once

#include <cstdint>
#include <list>
#include <memory>

enum ExclusionKind : std::uint32_t { EXCLUDED_ADDRESS = 0, EXCLUDED_NAME = 1 };

struct ExclusionEntry {
  std::uint32_t kind;
  std::int32_t length;  ///< the meaningful bytes of `value`
  char value[256];      ///< the name, or the address's bytes, followed by a NUL
};

/// Keeps the order in which entries came.
class ExclusionList {
 public:
  /// 1 when an entry equals the name, begins it or is begun by it, letter case included; else 0.
  [[nodiscard]] int excludes_name(const char* name) const;

  /// 1 when the address begins with an entry's bytes (up to six of them), else 0.
  [[nodiscard]] int excludes_address(const std::uint8_t (&hardware_address)[6]) const;

  /// Appends an entry, which must not be null. Without memory for its node the process ends with an
  /// assertion report.
  void append(std::unique_ptr<ExclusionEntry> entry);

  /// Appends an entry for each usable "exclude" block of a block configuration file. Returns 0 when
  /// the file was read; blocks that cannot be used are reported, written and skipped. Returns -1,
  /// reported and not flushed, when the file cannot be opened or read; the list is then as it was.
  [[nodiscard]] int load(const char* path);

  /// Releases every entry. Always returns 0.
  int clear();

  [[nodiscard]] std::int32_t count() const { return static_cast<std::int32_t>(entries_.size()); }

 private:
  void load_block(const char* path, const class ConfigFile& file, std::uint32_t index);

  template <typename Match>
  [[nodiscard]] int any(Match match) const;

  std::list<std::unique_ptr<ExclusionEntry>> entries_;
};

/// The one list of the program, through which selection and listing ask (static_state.cpp).
extern ExclusionList* excluded_adapters;
