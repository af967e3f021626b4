#pragma once

#include <algorithm>
#include <functional>

/// The first item of a range that matches; null when none does.
template <typename Range, typename Match>
[[nodiscard]] constexpr auto* find_where(Range& range, Match match) {
  const auto found = std::ranges::find_if(range, match);
  return found != std::ranges::end(range) ? &*found : nullptr;
}

/// The first item whose member is this; null when there is none.
template <typename Range, typename Value, typename Member>
[[nodiscard]] constexpr auto* find_with(Range& range, const Value& value, Member member) {
  return find_where(range, [&](const auto& it) { return std::invoke(member, it) == value; });
}
