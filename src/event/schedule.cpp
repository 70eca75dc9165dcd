#include "event/schedule.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "context.h"
#include "core/numbers.h"
#include "core/response.h"
#include "core/xml.h"

namespace psia {

namespace {

constexpr std::int32_t kDays = 7;  // index 0 is Sunday, which clients call 7; index 1 is Monday
constexpr std::int32_t kHours = 24;
constexpr std::int32_t kNotGiven = -1;
constexpr std::size_t kMinutes = 3;  // the position of the minutes in "18:30:00"

struct Day {
  std::int32_t begin_hour = kNotGiven;
  std::int32_t end_hour = kNotGiven;
  FixedText<32> hours;  // one character per hour, "0" for not armed
};

/// The part of a body that has been read so far.
struct RequestedSchedule {
  std::int32_t week = 0;  // bit n: the day of index n
  std::int32_t day = -1;  // index of the last dayOfWeek; everything before the first one is ignored
  std::array<Day, kDays> days;
};

/// Kept for compatibility: each dayOfWeek replaces the mask, so only the last day of a request is armed. A
/// number outside 0 to 7 leaves the day unchanged but still replaces the mask. The new mask is the bit of
/// that number, or 0 (no day is armed) when a mask has no such bit.
void take_day(std::int32_t number, RequestedSchedule& schedule) {
  const std::int32_t index = number == 7 ? 0 : number;
  schedule.week =
      index >= 0 && index < 32 ? static_cast<std::int32_t>(1U << static_cast<unsigned>(index)) : 0;
  if (index >= 0 && index < kDays) schedule.day = index;
}

/// Kept for compatibility, and clients see it in the next read: the end hour is the number that begins at the
/// fourth character, the minutes. It is 30 for "18:30:00", and 0 for a shorter text.
std::int32_t parse_end_hour(const char* time) {
  return std::strlen(time) > kMinutes ? to_int32(time + kMinutes) : 0;
}

void take_time_range(XmlElement range, Day& day) {
  for (const XmlElement child : range) {
    if (child.is("beginTime")) day.begin_hour = child.number();
    if (child.is("endTime")) day.end_hour = parse_end_hour(child.text());
  }
}

void take_time_block(XmlElement block, RequestedSchedule& schedule) {
  for (const XmlElement child : block) {
    if (child.is("dayOfWeek")) take_day(child.number(), schedule);
    if (schedule.day < 0) continue;
    Day& day = schedule.days[static_cast<std::size_t>(schedule.day)];
    if (child.is("bitString") && schedule.day > 0) child.copy_text(day.hours);  // that of a Sunday is ignored
    if (child.is("TimeRange")) take_time_range(child, day);
  }
}

/// The hours of a bit string replace those of the time range. Kept for compatibility: the range begins at the
/// last hour that is not '0' and ends one hour after the first. All 24 positions are read, even past the end
/// of a shorter text, where zero bytes or the rest of an earlier, longer text stand.
void apply_bit_string(Day& day) {
  if (day.hours.empty()) return;
  const auto armed = [&day](std::int32_t hour) {
    return day.hours.bytes()[static_cast<std::size_t>(hour)] != '0';
  };
  for (std::int32_t hour = 0; hour < kHours; ++hour) {
    if (armed(hour)) day.begin_hour = hour;
  }
  for (std::int32_t hour = kHours - 1; hour >= 0; --hour) {
    if (armed(hour)) day.end_hour = hour + 1;
  }
}

std::optional<RequestedSchedule> parse_requested_schedule(const Request& request) {
  const XmlDocument document = receive_document(request, "EventSchedule");
  if (!document) return std::nullopt;
  RequestedSchedule schedule;
  for (const XmlElement list : document.root()) {
    if (!list.is("TimeBlockList")) continue;
    for (const XmlElement block : list) {
      if (block.is("TimeBlock")) take_time_block(block, schedule);
    }
  }
  return schedule;
}

}  // namespace

void read_schedule(Context& context, const Request& request) {
  const Rows event = context.database.query("select Week, StartTime, EndTime from Event where Trigger=0");
  const auto week = static_cast<std::uint32_t>(event.number(0, 0));
  const std::int32_t begin = event.number(0, 1);  // hours times 100 plus minutes
  const std::int32_t end = event.number(0, 2);
  print_xml(request, [=](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    document.append("<EventSchedule version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    document.append("<TimeBlockList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    for (int day = 0; day < kDays; ++day) {
      if ((week >> static_cast<unsigned>(day) & 1U) == 0) continue;
      document.append("<TimeBlock>");
      document.append("<dayOfWeek>", day == 0 ? 7 : day, "</dayOfWeek>");
      document.append("<TimeRange>");
      document.append("<beginTime>", two_digits(begin / 100), ":", two_digits(begin % 100),
                      ":00</beginTime>");
      document.append("<endTime>", two_digits(end / 100), ":", two_digits(end % 100), ":00</endTime>");
      document.append("</TimeRange>");
      document.append("</TimeBlock>");
    }
    document.append("</TimeBlockList>");
    document.append("</EventSchedule>");
  });
}

void write_schedule(Context& context, const Request& request) {
  std::optional<RequestedSchedule> schedule = parse_requested_schedule(request);
  if (!schedule) return answer_status(request, Status::kDeviceError);
  std::int32_t start = kHours;  // the smallest hour at which a day begins
  std::int32_t end = 0;         // the largest hour at which a day ends
  for (Day& day : schedule->days) {
    apply_bit_string(day);
    if (day.begin_hour != kNotGiven) start = std::min(start, day.begin_hour);
    if (day.end_hour != kNotGiven) end = std::max(end, day.end_hour);
  }
  const bool stored =
      context.database.execute("update Event set Week=%d, StartTime=%d, EndTime=%d where Trigger=0",
                               schedule->week, wrapping_multiply(start, 100), wrapping_multiply(end, 100));
  answer_done(request, stored);
}

}  // namespace psia
