#include "platform/host/registry.h"

#include <algorithm>

#include "base/text.h"

DWORD Registry::find_key(std::string_view path) const {
  std::string name = lower_cased(path);
  if (name.empty() || keys_.contains(name)) return NO_ERROR;
  // A key above one that was created.
  name += '\\';
  const auto below = keys_.lower_bound(name);
  return below != keys_.end() && below->first.starts_with(name) ? NO_ERROR : ERROR_FILE_NOT_FOUND;
}

DWORD Registry::find_value(std::string_view path, std::string_view name,
                           const RegistryValue*& value) const {
  const auto key = keys_.find(lower_cased(path));
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
