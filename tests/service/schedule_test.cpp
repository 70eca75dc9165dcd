// The event schedule: which days and hours a document stores, and what reading shows of them.
#include "tests/support/event_test.h"

namespace psia_tests {
namespace {

constexpr const char* kUri = "/PSIA/Custom/Event/schedule";

// A body's pieces.
std::string day(const std::string& number) {
  return element("dayOfWeek", number);
}
std::string bits(const std::string& text) {
  return element("bitString", text);
}
std::string range(const std::string& begin, const std::string& end) {
  return element("TimeRange", element("beginTime", begin) + element("endTime", end));
}

class ScheduleTest : public EventTest {};

TEST_F(ScheduleTest, ReadsShowEachStoredDayWithTheOneRange) {
  for (const auto& [sql, days, shown_range] :
       Triples{{"", "12345", range("08:00:00", "17:30:00")},
               {"update Event set Week=-1", "7123456", range("08:00:00", "17:30:00")},
               {"update Event set Week=1, StartTime=5, EndTime=907", "7", range("00:05:00", "09:07:00")},
               {"update Event set StartTime=12345, EndTime=-130", "7", range("123:45:00", "-1:-30:00")},
               {"update Event set \"Trigger\"=1", "", ""}}) {
    run_sql(sql);
    std::string blocks;
    for (const char number : days)
      blocks += element("TimeBlock", day(std::string(1, number)) + shown_range);
    expect_read(kUri, shown("EventSchedule", shown("TimeBlockList", blocks)));
  }
}

TEST_F(ScheduleTest, WritesStoreTheLastDayTheFirstHourAndTheLastMinutes) {
  const std::string ones(24, '1');
  const std::string zeros(24, '0');
  for (const auto& [block, stored] : Pairs{
           {"", "0|2400|0"},
           {day("1") + day("2"), "4|2400|0"},
           {day("0") + range("3", "000005"), "1|300|500"},
           {day("7") + range("09:00:00", "18:00:00"), "1|900|0"},
           // A number that is no day leaves the day as it was; its bit is stored all the same.
           {day("8") + range("9", "00:10"), "256|2400|0"},
           {day("31"), "-2147483648|2400|0"},
           {day("1") + day("32") + range("9", "00:10"), "0|900|1000"},
           {day("6") + day("-1") + range("9", "00:10"), "0|900|1000"},
           // What comes before the first day is ignored.
           {range("5", "00:20") + bits(ones) + day("3") + range("7", "00:09"), "8|700|900"},
           // The begin is the hours, the end what stands from the fourth character on.
           {day("1") + range("08:30:00", "18:30:00"), "2|800|3000"},
           {day("1") + range("08:30:00", "18:"), "2|800|0"},
           {day("1") + range("", "18:1"), "2|0|100"},
           {day("1") + "<TimeRange><endTime>17:45:00</endTime></TimeRange>", "2|2400|4500"},
           {day("7") + range("30", "000-5"), "1|2400|0"},
           {day("1") + range("-3", "000-1"), "2|-300|0"},
           {day("1") + range("-1", "1"), "2|2400|0"},                         // as if none were given
           {day("1") + range("-99999999999", "00:99999999999"), "2|0|-100"},  // the product wraps
           // The smallest begin and the largest end of all days.
           {day("7") + range("9", "00:17") + day("4") + range("7", "00:12") + day("2") + range("8", "00:20"),
            "4|700|2000"},
           {day("6") + range("9", "00:17") + day("7") + range("12", "00:13"), "1|900|1700"},
           // Bit strings: from the last armed hour to behind the first, whatever the range says.
           {day("1") + bits("000000001111111110000000") + range("3", "00:04"), "2|1600|900"},
           {day("6") + bits(ones), "64|2300|100"},
           {day("1") + bits(zeros + "1") + range("3", "00:04"), "2|300|400"},
           {day("1") + bits("00000000"), "2|2300|900"},
           {day("1") + bits("") + range("3", "00:04"), "2|300|400"},
           {day("7") + bits(ones) + range("3", "00:04"), "1|300|400"},  // a Sunday's is not kept
           // Behind a shorter string the rest of an earlier one still counts, but of the same day only.
           {day("1") + bits(zeros) + bits("0"), "2|100|200"},
           {day("1") + bits(zeros) + day("2") + bits("0"), "4|2300|200"}}) {
    run_sql("update Event set Week=99, StartTime=98, EndTime=97");
    const std::string body = element("EventSchedule", element("TimeBlockList", element("TimeBlock", block)));
    EXPECT_EQ(changes("PUT", kUri, body), "Event|0|5|-1|1|-1|" + stored) << block;
  }
}

TEST_F(ScheduleTest, TheDayIsKeptOverBlocksAndListsAndOtherElementsAreSkipped) {
  const std::string block = element("TimeBlock", day("6"));
  EXPECT_EQ(
      changes("PUT", kUri,
              "<eventSCHEDULE><TIMEBLOCKLIST><TIMEBLOCK><DAYOFWEEK>2</DAYOFWEEK></TIMEBLOCK>"
              "</TIMEBLOCKLIST><TimeBlockList><TimeBlock><TIMERANGE><BEGINTIME>8</BEGINTIME><x>1</x>"
              "<ENDTIME>00:18</ENDTIME></TIMERANGE><beginTime>1</beginTime></TimeBlock>" +
                  element("x", day("6")) + "</TimeBlockList>" + element("x", block) + "</eventSCHEDULE>"),
      "Event|0|5|-1|1|-1|4|800|1800");
}

TEST_F(ScheduleTest, FailuresChangeNothing) {
  for (const char* body : {"no XML", "<TimeBlockList/>"})
    EXPECT_EQ(changes("PUT", kUri, body, 3), "");
  run_sql("update Event set \"Trigger\"=1");
  EXPECT_EQ(changes("PUT", kUri, "<EventSchedule/>"), "");  // changing no row is success
  run_sql("drop table Event");
  EXPECT_EQ(changes("PUT", kUri, "<EventSchedule/>", 3), "");
}

}  // namespace
}  // namespace psia_tests
