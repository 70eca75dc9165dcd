// The present time in an answer, which no test can know beforehand.
#pragma once

#include <ctime>
#include <string>

namespace psia_tests {

/// Stands in expected answers where the present time is shown; as long as a time text.
constexpr const char* kNow = "YYYY-MM-DDThh:mm:ss";

/// `answer` with its first time text from `since` to now, `offset` seconds east of Greenwich, replaced by
/// kNow.
[[nodiscard]] inline std::string with_now(std::string answer, std::time_t since, int offset = 0) {
  for (std::time_t time = since + offset; time <= std::time(nullptr) + offset; ++time) {
    char text[20];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", std::gmtime(&time));
    if (const auto at = answer.find(text); at != std::string::npos) return answer.replace(at, 19, kNow);
  }
  return answer;
}

}  // namespace psia_tests
