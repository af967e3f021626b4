#include "platform/host/registry.h"

#include <algorithm>

#include "base/text.h"

bool LessIgnoringCase::operator()(std::string_view a, std::string_view b) const {
  return std::lexicographical_compare(
      a.begin(), a.end(), b.begin(), b.end(),
      [](char x, char y) { return lower_case(x) < lower_case(y); });
}

DWORD Registry::find_key(std::string_view path) const {
  if (path.empty() || keys_.contains(path)) return NO_ERROR;
  const bool above = std::any_of(keys_.begin(), keys_.end(), [=](const auto& key) {
    const std::string_view below = key.first;
    return below.size() > path.size() && below[path.size()] == '\\' &&
           begins_ignoring_case(below, path);
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
    if (equals_ignoring_case(held, name)) return &value;
  }
  return nullptr;
}

void Registry::Key::set(std::string_view name, RegistryValue value) {
  for (auto& [held, old] : values_) {
    if (!equals_ignoring_case(held, name)) continue;
    old = std::move(value);
    return;
  }
  if (values_.empty()) values_.reserve(4);
  values_.emplace_back(name, std::move(value));
}

void Registry::Key::erase(std::string_view name) {
  std::erase_if(values_, [=](const auto& it) { return equals_ignoring_case(it.first, name); });
}

RegistryValue text_value(std::string_view text) {
  RegistryValue value{REG_SZ, std::string(text)};
  value.data.push_back('\0');
  return value;
}
