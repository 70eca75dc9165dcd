// What the camera's daemons do about each control message, and the ways in which they can be made to
// misbehave.
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

/// The reply to a message, and a remark: why it failed, or which part of it is not simulated.
struct Deed {
  Message reply;
  std::string said;
};

/// Does what the message asks for, as far as it can be seen from outside, and gives the reply:
/// kClock stores the time mode and sets the camera's clock, kFactoryReset restores the factory rows and the
/// resolver file, kExport writes the settings into the exchange directory and names the file in the payload,
/// kAddressing addresses eth0, kNameServers rewrites the resolver file. The others change nothing here. The
/// caller performs the reboot that follows kReboot and kFactoryReset. The result is kResultFailed when the
/// message cannot be carried out. A time set by hand is local time in `zone`, a TZ text, empty for the
/// camera's own.
[[nodiscard]] Deed act_on(const Message& message, const std::string& zone = "");

/// As act_on, without the remark.
[[nodiscard]] Message perform(const Message& message);

enum class AnswerKind { kOk, kBusy, kFailed, kLate, kNever };

/// How the daemons answer one command.
struct AnswerRule {
  std::int32_t command = 0;
  AnswerKind kind = AnswerKind::kOk;
  std::chrono::seconds delay{0};  ///< of a late answer
};

constexpr const char* kAnswerRuleForm =
    "COMMAND=ok|busy|failed|never|late[:SECONDS], for example 3=busy, with a COMMAND of 1, 2, 3, 6, 7, 8, "
    "10, 11, 31, 33 or 37";

/// Reads a text of kAnswerRuleForm. SECONDS are at most a day; without them they are 6, a little more than
/// the service waits for most commands. Null when the text is none or the command unknown.
[[nodiscard]] std::optional<AnswerRule> parse_answer_rule(std::string_view text);

/// The rule as a text that parse_answer_rule reads.
[[nodiscard]] std::string to_text(const AnswerRule& rule);

}  // namespace camera
