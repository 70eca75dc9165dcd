// Whole numbers in texts: options and parameters of URLs.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace camera {

/// The text as a number; null when it is not one, or out of bounds.
template <typename Number>
[[nodiscard]] std::optional<Number> whole_number(std::string_view text, Number least, Number most) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, fault] = std::from_chars(text.data(), end, number);
  if (fault != std::errc() || rest != end || number < least || number > most) return std::nullopt;
  return number;
}

}  // namespace camera
