#include "platform/registry.h"

#include <algorithm>

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool EqualIgnoringCase::operator()(std::string_view a, std::string_view b) const {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return x == y || lower(x) == lower(y);
         });
}

std::size_t HashIgnoringCase::operator()(std::string_view name) const {
  // The letters' case bit is left out; names that differ in nothing else but punctuation may share
  // a hash, which equality then tells apart.
  std::size_t hash = name.size();
  for (const char c : name) hash = hash * 31 + (static_cast<unsigned char>(c) | 0x20U);
  return hash;
}

bool Registry::has_key(std::string_view path) const {
  if (path.empty() || keys_.contains(path)) return true;
  return std::any_of(keys_.begin(), keys_.end(), [=](const auto& key) {
    const std::string_view below = key.first;
    return below.size() > path.size() && below[path.size()] == '\\' &&
           EqualIgnoringCase{}(below.substr(0, path.size()), path);
  });
}

const RegistryValue* Registry::find_value(std::string_view path, std::string_view name) const {
  const auto key = keys_.find(path);
  if (key == keys_.end()) return nullptr;
  const auto value = key->second.find(name);
  return value != key->second.end() ? &value->second : nullptr;
}

Registry::Values& Registry::values_of(std::string_view path) {
  const auto key = keys_.find(path);
  return key != keys_.end() ? key->second : keys_[std::string(path)];
}

void Registry::create_key(std::string_view path) { values_of(path); }

void Registry::set_value(std::string_view path, std::string_view name, RegistryValue value) {
  Values& values = values_of(path);
  const auto found = values.find(name);
  if (found != values.end()) {
    found->second = std::move(value);
  } else {
    values.emplace(name, std::move(value));
  }
}

void Registry::set_text(std::string_view path, std::string_view name, std::string_view text) {
  set_value(path, name, text_value(text));
}

void Registry::erase_value(std::string_view path, std::string_view name) {
  Values& values = values_of(path);
  const auto found = values.find(name);
  if (found != values.end()) values.erase(found);
}

RegistryValue text_value(std::string_view text) {
  RegistryValue value{REG_SZ, std::string(text)};
  value.data.push_back('\0');
  return value;
}
