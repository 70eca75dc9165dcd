// What the camera's daemons do about each control message, and the ways a person can make them misbehave.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/device/message.h"

namespace camera {

constexpr const char* kExportName = "settings.db";      ///< within the exchange directory
constexpr const char* kUploadName = "psia_config.dat";  ///< likewise, where the service stores an upload

/// The reply to a message and, in words, what there is to say about it: why it failed, or what of it is not
/// simulated.
struct Deed {
  Message reply;
  std::string said;
};

/// Does what the message asks for, as far as it can be seen from outside, and gives the reply:
/// 6 stores the time mode and sets the camera's clock, 10 restores the factory rows and the resolver file, 11
/// exports the settings into the exchange directory and names the file at offset 12, 31 addresses eth0, 33
/// rewrites the resolver file. The others need nothing here; that a reboot follows 8 and 10 is the caller's
/// part. Gives kResultFailed as the result when it cannot be done. A time set by hand is local time in
/// `zone`, a TZ text, empty for the camera's own.
[[nodiscard]] Deed act_on(const Message& message, const std::string& zone = "");

/// The reply alone.
[[nodiscard]] Message perform(const Message& message);

enum class AnswerKind { kOk, kBusy, kFailed, kLate, kNever };

/// How one command is to be answered.
struct AnswerRule {
  std::int32_t command = 0;
  AnswerKind kind = AnswerKind::kOk;
  std::chrono::seconds delay{0};  ///< of a late answer
};

/// Reads "COMMAND=ok|busy|failed|late|never", where late may be followed by ":SECONDS" up to a day; by itself
/// it is 6 seconds, a little more than the service waits for most commands.
[[nodiscard]] std::optional<AnswerRule> parse_answer_rule(std::string_view text);

}  // namespace camera
