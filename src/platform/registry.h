// A registry held in memory, below HKEY_LOCAL_MACHINE. Names of keys and values ignore the case of
// ASCII letters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/host.h"

/// Equality and hash of names, for containers keyed by them.
struct EqualIgnoringCase {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};
struct HashIgnoringCase {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const;
};

class Registry {
 public:
  /// True for a key that was created, and for every key above one.
  [[nodiscard]] bool has_key(std::string_view path) const;
  [[nodiscard]] const RegistryValue* find_value(std::string_view path, std::string_view name) const;

  void create_key(std::string_view path);

  /// Create the key when it does not exist.
  void set_value(std::string_view path, std::string_view name, RegistryValue value);
  void set_text(std::string_view path, std::string_view name, std::string_view text);

  void erase_value(std::string_view path, std::string_view name);

 private:
  template <typename Mapped>
  using ByName = std::unordered_map<std::string, Mapped, HashIgnoringCase, EqualIgnoringCase>;
  using Values = ByName<RegistryValue>;

  Values& values_of(std::string_view path);

  ByName<Values> keys_;
};

/// A REG_SZ value.
[[nodiscard]] RegistryValue text_value(std::string_view text);

/// A REG_MULTI_SZ value in the making. A string that is empty ends the list for its readers.
class StringListValue {
 public:
  void add(std::string_view string) { value_.data.append(string).push_back('\0'); }

  [[nodiscard]] RegistryValue take() {
    value_.data.push_back('\0');
    return std::move(value_);
  }

 private:
  RegistryValue value_{REG_MULTI_SZ, {}};
};

template <typename Strings>
[[nodiscard]] RegistryValue list_value(const Strings& strings) {
  StringListValue value;
  for (const auto& string : strings) value.add(string);
  return value.take();
}
