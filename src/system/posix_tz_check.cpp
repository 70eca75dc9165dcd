#include "system/posix_tz_check.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <optional>

namespace psia {
namespace {

constexpr std::size_t kShortestName = 3;
constexpr std::size_t kLongestComponent = 31;

/// The components of a rule in the order of the text. A bad character in a component gives the code
/// -(state + 1).
enum State : std::size_t {
  kStandardName,
  kStandardOffset,
  kDaylightName,
  kDaylightOffset,
  kStartRule,
  kStartTime,
  kEndRule,
  kEndTime,
  kStateCount
};

bool is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

/// Whether a separator may follow `component`: after a digit, at most twice (three fields).
bool may_separate(std::string_view component, char separator) {
  return !component.empty() && is_digit(component.back()) &&
         std::count(component.begin(), component.end(), separator) < 2;
}

bool continues_time(std::string_view component, char c, char next) {
  return is_digit(c) || (c == ':' && is_digit(next) && may_separate(component, ':'));
}

bool continues_offset(std::string_view component, char c, char next) {
  if (component.empty() && (c == '+' || c == '-')) return true;
  return continues_time(component, c, next);
}

bool continues_rule(std::string_view component, char c) {
  if (component.empty() && (c == 'J' || c == 'M')) return true;
  return is_digit(c) || (c == '.' && component.starts_with('M') && may_separate(component, '.'));
}

/// Whether `c`, which `next` follows, belongs to the component that has been read so far.
bool continues(State state, std::string_view component, char c, char next) {
  switch (state) {
    case kStandardName:
    case kDaylightName:
      return is_letter(c);
    case kStandardOffset:
    case kDaylightOffset:
      return continues_offset(component, c, next);
    case kStartTime:
    case kEndTime:
      return continues_time(component, c, next);
    case kStartRule:
    case kEndRule:
      return continues_rule(component, c);
    case kStateCount:
      break;
  }
  return false;
}

/// The state that follows `state` when `c` ends its component. None when the component is not complete or `c`
/// cannot follow it.
std::optional<State> state_after(State state, std::string_view component, char c) {
  switch (state) {
    case kStandardName:
      if (component.size() >= kShortestName) return kStandardOffset;
      break;
    case kStandardOffset:
      if (c != ':') return kDaylightName;
      break;
    case kDaylightName:
      if (component.size() < kShortestName) break;
      if (c == '+' || c == '-' || is_digit(c)) return kDaylightOffset;
      if (c == ',') return kStartRule;
      break;
    case kDaylightOffset:
      if (c == ',') return kStartRule;
      break;
    case kStartRule:
      if (c == '/') return kStartTime;
      if (c == ',') return kEndRule;
      break;
    case kStartTime:
      if (c == ',') return kEndRule;
      break;
    case kEndRule:
      if (c == '/') return kEndTime;
      break;
    case kEndTime:
    case kStateCount:
      break;
  }
  return std::nullopt;
}

/// Up to three numbers separated by `separator`. Missing ones are 0; those too large for an int become its
/// maximum.
std::array<int, 3> fields(std::string_view text, char separator) {
  std::array<int, 3> numbers{};
  for (int& number : numbers) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) number = std::numeric_limits<int>::max();
    const std::size_t separator_place = text.find(separator);
    if (separator_place == std::string_view::npos) break;
    text.remove_prefix(separator_place + 1);
  }
  return numbers;
}

bool time_in_range(std::string_view time) {
  if (time.starts_with('+') || time.starts_with('-')) time.remove_prefix(1);
  const auto [hours, minutes, seconds] = fields(time, ':');
  return hours <= 23 && minutes <= 59 && seconds <= 59;
}

bool rule_in_range(std::string_view rule) {
  const auto within = [](int value, int first, int last) { return value >= first && value <= last; };
  const char form = rule.empty() ? '\0' : rule.front();
  if (form == 'J' || form == 'M') rule.remove_prefix(1);
  const auto [first, second, third] = fields(rule, '.');
  if (form == 'M') return within(first, 1, 12) && within(second, 1, 5) && within(third, 0, 6);
  return within(first, form == 'J' ? 1 : 0, 365);
}

}  // namespace

int posix_tz_check(std::string_view text) {
  std::array<std::string_view, kStateCount> components{};
  State state = kStandardName;
  int code = 0;
  std::size_t place = 0;
  while (place < text.size()) {
    std::string_view& component = components[state];
    const char c = text[place];
    const char next_character = place + 1 < text.size() ? text[place + 1] : '\0';
    const bool belongs = continues(state, component, c, next_character);
    if (belongs && component.size() < kLongestComponent) {
      component = {&text[place] - component.size(), component.size() + 1};
      ++place;
      continue;
    }
    const auto next_state = belongs ? std::nullopt : state_after(state, component, c);
    if (!next_state) {
      code = -static_cast<int>(state) - 1;
      break;
    }
    // "," and "/" only separate; any other character is the first of the next component.
    if (*next_state >= kStartRule) ++place;
    state = *next_state;
  }

  // An absent component is empty, and an empty one is in range. The last failing check gives the code.
  if (!time_in_range(components[kStandardOffset])) code = -9;
  if (!time_in_range(components[kDaylightOffset])) code = -9;
  if (!rule_in_range(components[kStartRule])) code = -10;
  if (!time_in_range(components[kStartTime])) code = -11;
  if (!rule_in_range(components[kEndRule])) code = -10;
  if (!time_in_range(components[kEndTime])) code = -11;
  return code;
}

}  // namespace psia
