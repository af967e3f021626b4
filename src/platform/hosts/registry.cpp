#include "platform/hosts/registry.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool EqualIgnoringCase::operator()(std::string_view a, std::string_view b) const {
  // Most names are written alike.
  return a == b || std::equal(a.begin(), a.end(), b.begin(), b.end(),
                              [](char x, char y) { return lower(x) == lower(y); });
}

std::size_t HashIgnoringCase::operator()(std::string_view name) const {
  // Eight characters at a time: paths are long. The letters' case bit is set everywhere; names that
  // differ in nothing else but punctuation may share a hash, which equality then tells apart.
  constexpr std::uint64_t CASE_BITS = 0x2020202020202020;
  constexpr std::uint64_t SPREAD = 0x9E3779B97F4A7C15;
  std::uint64_t hash = name.size();
  std::size_t at = 0;
  const auto mix = [&](std::size_t count) {
    std::uint64_t part = 0;
    std::memcpy(&part, name.data() + at, count);
    hash = (hash ^ (part | CASE_BITS)) * SPREAD;
    hash ^= hash >> 32;
  };
  for (; name.size() - at >= sizeof CASE_BITS; at += sizeof CASE_BITS) mix(sizeof CASE_BITS);
  mix(name.size() - at);
  return hash;
}

DWORD Registry::find_key(std::string_view path) const {
  if (path.empty() || keys_.contains(path)) return NO_ERROR;
  const bool above = std::any_of(keys_.begin(), keys_.end(), [=](const auto& key) {
    const std::string_view below = key.first;
    return below.size() > path.size() && below[path.size()] == '\\' &&
           EqualIgnoringCase{}(below.substr(0, path.size()), path);
  });
  return above ? NO_ERROR : ERROR_FILE_NOT_FOUND;
}

DWORD Registry::find_value(std::string_view path, std::string_view name,
                           const RegistryValue*& value) const {
  const auto key = keys_.find(path);
  value = key != keys_.end() ? key->second.find(name) : nullptr;
  return value != nullptr ? NO_ERROR : ERROR_FILE_NOT_FOUND;
}

const RegistryValue* Registry::Key::find(std::string_view name) const {
  for (const auto& [held, value] : values_) {
    if (EqualIgnoringCase{}(held, name)) return &value;
  }
  return nullptr;
}

void Registry::Key::set(std::string_view name, RegistryValue value) {
  for (auto& [held, old] : values_) {
    if (!EqualIgnoringCase{}(held, name)) continue;
    old = std::move(value);
    return;
  }
  if (values_.empty()) values_.reserve(4);
  values_.emplace_back(name, std::move(value));
}

void Registry::Key::erase(std::string_view name) {
  std::erase_if(values_, [=](const auto& it) { return EqualIgnoringCase{}(it.first, name); });
}

RegistryValue text_value(std::string_view text) {
  RegistryValue value{REG_SZ, std::string(text)};
  value.data.push_back('\0');
  return value;
}
