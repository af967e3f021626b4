// A registry held in memory, below HKEY_LOCAL_MACHINE. Names of keys and values ignore the case of
// ASCII letters.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/host/host.h"

class Registry {
 public:
  /// The values of one key. A key has a handful, which are looked through one by one.
  class Key {
   public:
    [[nodiscard]] const RegistryValue* find(std::string_view name) const;
    void set(std::string_view name, RegistryValue value);
    void erase(std::string_view name);

   private:
    std::vector<std::pair<std::string, RegistryValue>> values_;
  };

  /// A key that was created, and every key above one, is found; what is not is answered with 2
  /// (ERROR_FILE_NOT_FOUND).
  [[nodiscard]] DWORD find_key(std::string_view path) const;
  [[nodiscard]] DWORD find_value(std::string_view path, std::string_view name,
                                 const RegistryValue*& value) const;

  /// The key of a path, created when it does not exist. Stands as long as the registry.
  Key& key(std::string_view path) { return keys_[lower_cased(path)]; }

 private:
  std::map<std::string, Key> keys_;  ///< by path, in lower case
};

/// A REG_SZ value.
[[nodiscard]] RegistryValue text_value(std::string_view text);

/// A REG_MULTI_SZ value in the making. A string that is empty ends the list for its readers.
class StringListValue {
 public:
  /// Makes room for strings of so many bytes, their NULs included.
  void reserve(std::size_t size) { value_.data.reserve(size + 1); }
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
