#include "system/time.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <string_view>

#include "context.h"
#include "core/body.h"
#include "core/file.h"
#include "core/memory.h"
#include "core/numbers.h"
#include "core/response.h"
#include "core/xml.h"
#include "system/local_time.h"
#include "system/posix_tz_check.h"
#include "system/time_zone_table.h"

namespace psia {

namespace {

/// Bytes; more than any zone file has. The largest have a few kilobytes.
constexpr int kMaxZoneFile = 1 << 20;

/// Values of the DateTimeSync column and of the time message. Any other stored value is shown as manual, too.
enum TimeMode : std::int32_t { kManual = 0, kNtp = 2 };

// The fields of a time message: their offsets in the record.
constexpr std::size_t kModeOffset = 12;
constexpr std::size_t kNtpServerOffset = 16;
constexpr std::size_t kNtpServerSize = 128;  // with the terminating zero
constexpr std::size_t kNtpIntervalOffset = 144;
constexpr std::size_t kYearOffset = 148;
constexpr std::size_t kMonthOffset = 152;
constexpr std::size_t kDayOffset = 156;
constexpr std::size_t kHourOffset = 160;
constexpr std::size_t kMinuteOffset = 164;
constexpr std::size_t kSecondOffset = 168;

/// Bytes of the zone's name in a time-zone message, with its terminating zero.
constexpr std::size_t kZoneNameSize = 256;

OwnedText last_line_of(const char* path) {
  const File file = open_file(path, "r");
  if (!file) return nullptr;
  const int size = file_size(file);
  if (size <= 0 || size > kMaxZoneFile) return nullptr;
  const auto length = static_cast<std::size_t>(size);
  OwnedText text = allocate_text(length);
  if (!text || std::fread(text.get(), length, 1, file.get()) != 1) return nullptr;

  std::string_view line(text.get(), length - 1);  // the last byte is taken to be the line feed
  line.remove_prefix(line.rfind('\n') + 1);       // nothing where there is no other line
  std::memmove(text.get(), line.data(), line.size());
  text[line.size()] = '\0';
  return text;
}

/// The POSIX TZ rule of the stored zone: the last line of its file below /usr/share/zoneinfo, which in a
/// compiled zone file of version 2 and later is the rule (RFC 8536, section 3.3). The zone is GMT when none
/// can be read. Its name is truncated to 127 characters. The stored name "CST-0" is a rule itself. Null when
/// the file cannot be read, is empty or larger than 1 MiB, or memory is short.
OwnedText current_posix_tz(Database& database) {
  const Rows stored = database.query("select TimeZone from Network");
  const char* const zone = stored.found() ? stored.text(0, 0) : "GMT";
  if (std::strcmp(zone, "CST-0") == 0) return OwnedText(strdup(zone));
  std::array<char, sizeof("/usr/share/zoneinfo/") + 127> path{};
  std::snprintf(path.data(), path.size(), "/usr/share/zoneinfo/%s", zone);
  return last_line_of(path.data());
}

FixedText<128> shown_time_zone(Context& context) {
  const char* const current = context.environment.current_tz();
  if (*current != '\0') return FixedText<128>(current);
  const OwnedText stored = current_posix_tz(context.database);
  return FixedText<128>(stored ? stored.get() : "GMT0");
}

/// Reads a time text, whose fields have fixed positions. Fields out of range are normalised: 30 February is a
/// day in March. A field past the end of the text is 0. Nothing when the time cannot be represented.
std::optional<std::tm> parse_time(const char* text) {
  const auto number_at = [text, length = std::strlen(text)](std::size_t position) {
    return position < length ? to_int32(text + position) : 0;
  };
  std::tm time{};
  time.tm_year = wrapping_add(number_at(0), -1900);
  time.tm_mon = wrapping_add(number_at(5), -1);
  time.tm_mday = number_at(8);
  time.tm_hour = number_at(11);
  time.tm_min = number_at(14);
  time.tm_sec = number_at(17);
  time.tm_isdst = -1;  // the zone's rule tells
  time.tm_wday = -1;   // unchanged afterwards if mktime failed; its result -1 is also a valid time
  (void)std::mktime(&time);
  return time.tm_wday == -1 ? std::nullopt : std::optional(time);
}

struct RequestedTime {
  TimeMode mode = kNtp;
  FixedText<128> local_time;
  FixedText<128> time_zone;
};

std::optional<RequestedTime> parse_requested_time(const Request& request) {
  const XmlDocument document = receive_document(request, "Time");
  if (!document) return std::nullopt;
  RequestedTime requested;
  for (const XmlElement child : document.root()) {
    if (child.is("timeMode")) requested.mode = child.text_is("NTP") ? kNtp : kManual;
    if (child.is("localTime")) child.copy_text(requested.local_time);
    if (child.is("timeZone")) child.copy_text(requested.time_zone);
  }
  return requested;
}

/// The message that asks the daemons to start NTP, or to set the clock to the time text `manual_time`.
/// Nothing when the time cannot be represented, or when the NTP settings, which it carries in both modes,
/// cannot be read.
std::optional<ControlMessage> time_message(Database& database, TimeMode mode, const char* manual_time) {
  const Rows ntp = database.query("select NTPServer, NTPInterval from Network");
  if (!ntp.found()) return std::nullopt;
  const std::optional<std::tm> time = mode == kNtp ? local_time_now() : parse_time(manual_time);
  if (!time) return std::nullopt;
  ControlMessage message(Command::kTime);
  message.put_int(kModeOffset, mode);
  message.put_text(kNtpServerOffset, kNtpServerSize, ntp.text(0, 0));
  message.put_int(kNtpIntervalOffset, ntp.number(0, 1));
  message.put_int(kYearOffset, wrapping_add(time->tm_year, 1900));
  message.put_int(kMonthOffset, time->tm_mon + 1);
  message.put_int(kDayOffset, time->tm_mday);
  message.put_int(kHourOffset, time->tm_hour);
  message.put_int(kMinuteOffset, time->tm_min);
  message.put_int(kSecondOffset, time->tm_sec);
  return message;
}

/// Asks the daemons to set the clock, and answers.
void set_clock(Context& context, const Request& request, TimeMode mode, const char* manual_time) {
  std::optional<ControlMessage> message = time_message(context.database, mode, manual_time);
  if (!message) return answer_status(request, Status::kDeviceError);
  send_and_answer(context.queues, request, *message);
}

}  // namespace

void read_time(Context& context, const Request& request) {
  const bool ntp = context.database.query("select DateTimeSync from Network").number(0, 0) == kNtp;
  tzset();
  const std::tm now = local_time_now();
  answer_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<Time version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    document.append("<timeMode>", ntp ? "NTP" : "manual", "</timeMode>");
    document.append("<localTime>");
    append_time(document, now);
    document.append("</localTime>");
    document.append("<timeZone>", shown_time_zone(context).c_str(), "</timeZone>");
    document.append("</Time>");
  });
}

void write_time(Context& context, const Request& request) {
  const std::optional<RequestedTime> requested = parse_requested_time(request);
  if (!requested || posix_tz_check(requested->time_zone.c_str()) < 0) {
    return answer_status(request, Status::kDeviceError);
  }
  // Clients see this: a request without a time zone sets an empty one, and the times of this process are UTC
  // from then on.
  context.environment.set_tz(requested->time_zone.c_str());
  set_clock(context, request, requested->mode, requested->local_time.c_str());
}

void read_local_time(Context& /*context*/, const Request& request) {
  // The answer is a bare text although its type is XML; clients rely on it.
  answer_xml(request, [](TextBuffer& document) { append_time(document, local_time_now()); });
}

void write_local_time(Context& context, const Request& request) {
  const Rows mode = context.database.query("select DateTimeSync from Network");
  if (!mode.found()) return answer_status(request, Status::kDeviceError);
  const Body body = Body::read(request);
  if (!body) return answer_status(request, Status::kDeviceError);
  if (mode.number(0, 0) != kManual) return answer_status(request, Status::kOk);
  set_clock(context, request, kManual, body.text());
}

void read_time_zone(Context& context, const Request& request) {
  // The stored zone, even if PUT time has set another one for this process.
  const OwnedText rule = current_posix_tz(context.database);
  answer_document(request, kTextContent,
                  [&](TextBuffer& document) { document.append(rule ? rule.get() : "GMT0"); });
}

void write_time_zone(Context& context, const Request& request) {
  const Body body = Body::read(request);
  const char* const zone = body ? tz_find_zone(context.time_zones, body.text()) : nullptr;
  if (zone == nullptr || !context.database.execute("update Network set TimeZone='%s'", zone)) {
    return answer_status(request, Status::kDeviceError);
  }
  ControlMessage message(Command::kTimeZone);
  message.put_text(kPayloadOffset, kZoneNameSize, zone);
  send_and_answer(context.queues, request, message);
}

}  // namespace psia
