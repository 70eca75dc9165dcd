#include "simulator/daemons.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "simulator/device.h"

namespace camera {
namespace {

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

std::string carry_out(const Message& message) {
  switch (command_of(message)) {
    case 6:
      return execute("update Network set DateTimeSync=" + std::to_string(integer_at(message, 12)));
    case 10:
      return restore_factory_rows();
    case 11:
      return export_settings();
    case 31:
      return apply_addressing();
    case 33:
      return change_name_servers(text_at(message, 12));
    default:
      return "";
  }
}

template <typename Number>
std::optional<Number> whole_number(std::string_view text, Number least, Number most) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, fault] = std::from_chars(text.data(), end, number);
  if (fault != std::errc() || rest != end || number < least || number > most) return std::nullopt;
  return number;
}

}  // namespace

Message perform(const Message& message) {
  const std::string fault = carry_out(message);
  if (!fault.empty()) std::fprintf(stderr, "daemons: %s\n", fault.c_str());
  Message reply = reply_to(message, fault.empty() ? kResultDone : kResultFailed);
  if (fault.empty() && command_of(message) == 11) put_text(reply, 12, kExportName);
  return reply;
}

std::optional<AnswerRule> parse_answer_rule(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  const auto command = whole_number<std::int32_t>(text.substr(0, equals), 0, 0x7fffffff);
  if (!command) return std::nullopt;

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

}  // namespace camera
