#include "simulator/camera/journal.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "simulator/tools/text.h"

namespace camera {
namespace {

// The texts of a ResponseStatus document's codes.
constexpr std::array<const char*, 8> kStatusWords = {"",
                                                     "OK",
                                                     "Device Busy",
                                                     "Device Error",
                                                     "Invalid Operation",
                                                     "Invalid XML Format",
                                                     "Invalid XML Content",
                                                     "Reboot Required"};

constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::size_t kMaxEntries = 1000;
constexpr std::size_t kMaxPrinted = 1U << 18U;

std::string time_of_day() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 16> text{};
  return std::string(text.data(), std::strftime(text.data(), text.size(), "%H:%M:%S", &local));
}

const char* status_words(int code) {
  return code > 0 && code < static_cast<int>(kStatusWords.size())
             ? kStatusWords[static_cast<std::size_t>(code)]
             : "?";
}

// The service prints passwords in plain text; the journal does not show them.
std::string without_passwords(std::string text) {
  const std::string_view open = "<password>";
  for (std::size_t at = 0; (at = text.find(open, at)) != std::string::npos;) {
    at += open.size();
    const std::size_t end = text.find('<', at);
    if (end == std::string::npos) break;
    if (end > at) text.replace(at, end - at, "***");
  }
  return text;
}

// The header lines joined into one, then the document's lines.
std::vector<std::string> printed_lines(const std::string& text) {
  std::vector<std::string> lines;
  const std::size_t start = text.find("\r\n\r\n");
  if (start == std::string::npos) return indent_xml(text);
  std::string header;
  for (const std::string& line : split_lines(text.substr(0, start)))
    header += (header.empty() ? "" : ", ") + line;
  lines.push_back(header);
  for (std::string& line : indent_xml(std::string_view(text).substr(start + 4)))
    lines.push_back(std::move(line));
  return lines;
}

}  // namespace

std::string basic_credentials(const std::string& authorization) {
  if (strncasecmp(authorization.c_str(), "Basic ", 6) != 0) return "";
  std::string credentials;
  unsigned int bits = 0;
  int count = 0;
  for (const char character : authorization.substr(6)) {
    const std::size_t value = kBase64Alphabet.find(character);
    if (value == std::string_view::npos) break;
    bits = (bits << 6U | static_cast<unsigned int>(value)) & 0xfffU;
    count += 6;
    if (count >= 8) {
      count -= 8;
      credentials += static_cast<char>(static_cast<unsigned char>(bits >> static_cast<unsigned int>(count)));
    }
  }
  return credentials;
}

void Journal::show(const std::string& start, const std::string& text) const {
  std::printf("%s%s  %s\n", prefix_.c_str(), start.c_str(), harmless(text).c_str());
}

Journal::Entry Journal::entry_of(const Exchange& exchange) {
  Entry entry;
  entry.is_request = true;
  entry.exchange = exchange;
  const std::string credentials = basic_credentials(exchange.authorization);
  entry.user = exchange.authorization.empty() ? "-" : credentials.substr(0, credentials.find(':'));
  return entry;
}

void Journal::begin_request(const Exchange& exchange) {
  open_ = entry_of(exchange);
  in_request_ = true;
}

void Journal::refuse_request(const Exchange& exchange, const std::string& reason) {
  Entry entry = entry_of(exchange);
  entry.messages.push_back(reason);
  finish(std::move(entry));
}

void Journal::end_request(const Exchange& exchange, const std::vector<std::string>& changes) {
  in_request_ = false;
  open_.exchange = exchange;
  open_.changes = changes;
  if (!printed_.empty()) open_.printed = printed_lines(without_passwords(printed_));
  printed_.clear();
  finish(std::exchange(open_, {}));
}

void Journal::message(const std::string& words) {
  if (!in_request_) return event(words);
  open_.messages.push_back(words);
}

void Journal::event(const std::string& words, const std::vector<std::string>& details) {
  Entry entry;
  entry.text = words;
  entry.changes = details;
  finish(std::move(entry));
}

void Journal::printed(const std::string& text) {
  if (in_request_) {
    if (printed_.size() < kMaxPrinted) printed_ += text;
    return;
  }
  Entry entry;
  entry.text = "the service printed";
  entry.printed = printed_lines(without_passwords(text));
  finish(std::move(entry));
}

std::string Journal::title(const Entry& entry) {
  if (!entry.is_request) return entry.text;
  const Exchange& exchange = entry.exchange;
  std::string text =
      entry.user + "  " + exchange.method + " " + exchange.url + "  " + std::to_string(exchange.http_status);
  if (exchange.status_code != 0) {
    text += ", status " + std::to_string(exchange.status_code) + " " + status_words(exchange.status_code);
  }
  return text + ", " + std::to_string(exchange.milliseconds) + " ms";
}

bool Journal::holds(const Entry& entry, const std::string& part) {
  const auto in = [&part](const std::string& text) { return text.find(part) != std::string::npos; };
  return in(title(entry)) || std::any_of(entry.changes.begin(), entry.changes.end(), in) ||
         std::any_of(entry.messages.begin(), entry.messages.end(), in) ||
         std::any_of(entry.printed.begin(), entry.printed.end(), in);
}

void Journal::finish(Entry entry) {
  entry.id = ++last_;
  entry.time = time_of_day();
  show(entry.time, title(entry));
  const std::string margin(8, ' ');
  for (const std::string& line : entry.changes)
    show(margin, "  " + line);
  for (const std::string& line : entry.messages)
    show(margin, "  " + line);
  if (!entry.printed.empty() && entry.is_request) {
    show(margin, "  printed on the service's standard output, not sent to the client:");
  }
  for (const std::string& line : entry.printed)
    show(margin, "    " + line);
  std::fflush(stdout);
  entries_.push_back(std::move(entry));
  if (entries_.size() > kMaxEntries) entries_.pop_front();
}

std::string Journal::json(std::uint64_t since, const std::string& part) const {
  std::string list;
  for (const Entry& entry : entries_) {
    if (entry.id <= since || !holds(entry, part)) continue;
    list += (list.empty() ? "{" : ",{") + std::string("\"id\":") + std::to_string(entry.id) +
            ",\"time\":" + json_text(entry.time);
    if (entry.is_request) {
      list += ",\"user\":" + json_text(entry.user) + ",\"method\":" + json_text(entry.exchange.method) +
              ",\"url\":" + json_text(entry.exchange.url) +
              ",\"http\":" + std::to_string(entry.exchange.http_status) +
              ",\"status\":" + std::to_string(entry.exchange.status_code) +
              ",\"words\":" + json_text(status_words(entry.exchange.status_code)) +
              ",\"milliseconds\":" + std::to_string(entry.exchange.milliseconds);
    } else {
      list += ",\"text\":" + json_text(entry.text);
    }
    list += ",\"changes\":" + json_list(entry.changes) + ",\"messages\":" + json_list(entry.messages) +
            ",\"printed\":" + json_list(entry.printed) + "}";
  }
  return "[" + list + "]";
}

}  // namespace camera
