// Whole numbers on the command line.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace camera {

/// The number that is the whole text, when it is one and within the bounds.
template <typename Number>
[[nodiscard]] std::optional<Number> whole_number(std::string_view text, Number least, Number most) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, fault] = std::from_chars(text.data(), end, number);
  if (fault != std::errc() || rest != end || number < least || number > most) return std::nullopt;
  return number;
}

}  // namespace camera
