#include "simulator/camera/daemons.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "simulator/device/clock.h"
#include "simulator/device/device.h"
#include "simulator/tools/numbers.h"

namespace camera {
namespace {

constexpr std::array kCommands = {kPicture,      kEncoder, kAudio,      kClock,       kTimeZone, kReboot,
                                  kFactoryReset, kExport,  kAddressing, kNameServers, kRtspPort};

constexpr std::array<std::pair<std::string_view, AnswerKind>, 5> kAnswerWords = {
    {{"ok", AnswerKind::kOk},
     {"busy", AnswerKind::kBusy},
     {"failed", AnswerKind::kFailed},
     {"late", AnswerKind::kLate},
     {"never", AnswerKind::kNever}}};

std::string export_settings() {
  std::error_code fault;
  std::filesystem::copy_file(kDatabase, std::string(kExchangeDirectory) + "/" + kExportName,
                             std::filesystem::copy_options::overwrite_existing, fault);
  return fault ? "Cannot export the settings: " + fault.message() : "";
}

std::string change_name_servers(const std::string& pair) {
  const std::size_t hyphen = pair.find('-');
  if (hyphen == std::string::npos) return "No hyphen between the name servers";
  return write_resolver(pair.substr(0, hyphen), pair.substr(hyphen + 1));
}

std::string set_time(const Message& message, const std::string& zone) {
  const std::int32_t mode = integer_at(message, kTimeMode);
  std::string fault = execute("update Network set DateTimeSync=" + std::to_string(mode));
  if (!fault.empty()) return fault;
  if (mode == kTimeByNtp) return follow_machine_clock();
  const auto field = [&message](std::size_t index) { return integer_at(message, kYear + 4 * index); };
  std::tm local{};
  local.tm_year = field(0) - 1900;
  local.tm_mon = field(1) - 1;
  local.tm_mday = field(2);
  local.tm_hour = field(3);
  local.tm_min = field(4);
  local.tm_sec = field(5);
  return set_camera_clock(moment_of(local, zone));
}

std::string restore_factory_state() {
  std::string fault = restore_factory_rows();
  return fault.empty() ? write_resolver(kPrimaryDns, kSecondaryDns) : fault;
}

std::string carry_out(const Message& message, const std::string& zone) {
  switch (command_of(message)) {
    case kClock:
      return set_time(message, zone);
    case kFactoryReset:
      return restore_factory_state();
    case kExport:
      return export_settings();
    case kAddressing:
      return apply_addressing();
    case kNameServers:
      return change_name_servers(text_at(message, kPayload));
    default:
      return "";
  }
}

// Which part of a message is not simulated; empty when all of it is.
const char* not_simulated(const Message& message) {
  switch (command_of(message)) {
    case kPicture:
      return "there is no sensor; the page draws the picture";
    case kEncoder:
      return "there is no encoder; no stream changes";
    case kAudio:
      return "there is no microphone; no sound changes";
    case kClock:
      if (find_clock_library().empty()) return "libfaketime is missing; the clock stays the machine's";
      return integer_at(message, kTimeMode) == kTimeByNtp
                 ? "no NTP server is asked; the clock is the machine's"
                 : "";
    case kAddressing:
      return query("select 1 from Network where ConnectionType=1").empty()
                 ? ""
                 : "no DHCP server is asked; the lease is "
                   "always the same";
    case kTimeZone:
      return "takes effect with the next boot";
    case kRtspPort:
      return "there is no RTSP server";
    default:
      return "";
  }
}

}  // namespace

Deed act_on(const Message& message, const std::string& zone) {
  const std::string fault = carry_out(message, zone);
  if (!fault.empty()) return {reply_to(message, kResultFailed), fault};
  Deed deed{reply_to(message, kResultDone), not_simulated(message)};
  if (command_of(message) == kExport) put_text(deed.reply, kPayload, kExportName);
  return deed;
}

Message perform(const Message& message) {
  return act_on(message).reply;
}

std::optional<AnswerRule> parse_answer_rule(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  const auto command = whole_number<std::int32_t>(text.substr(0, equals), 0, 0x7fffffff);
  if (!command || std::find(kCommands.begin(), kCommands.end(), *command) == kCommands.end()) {
    return std::nullopt;
  }

  const std::string_view answer = text.substr(equals + 1);
  const std::string_view word = answer.substr(0, answer.find(':'));
  for (const auto& [name, kind] : kAnswerWords) {
    if (word != name) continue;
    AnswerRule rule{*command, kind, std::chrono::seconds(kind == AnswerKind::kLate ? 6 : 0)};
    if (word.size() == answer.size()) return rule;
    const auto seconds = whole_number<int>(answer.substr(word.size() + 1), 0, 24 * 60 * 60);
    if (kind != AnswerKind::kLate || !seconds) return std::nullopt;
    rule.delay = std::chrono::seconds(*seconds);
    return rule;
  }
  return std::nullopt;
}

std::string to_text(const AnswerRule& rule) {
  std::string text = std::to_string(rule.command) + "=";
  for (const auto& [name, kind] : kAnswerWords) {
    if (kind == rule.kind) text += name;
  }
  return rule.kind == AnswerKind::kLate ? text + ":" + std::to_string(rule.delay.count()) : text;
}

}  // namespace camera
