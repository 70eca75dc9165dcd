// The schedule, which tells when the trigger is armed: days, and one range of hours for all of them.
#include "tests/plain/camera_test.h"

namespace service_tests {
namespace {

const std::string kUri = "/PSIA/Custom/Event/schedule";

using ScheduleTest = ServiceTest;

TEST_F(ScheduleTest, EachStoredDayIsShownWithTheOneRange) {
  execute("update Event set Week=65, StartTime=12305, EndTime=-130");
  expect_effects({"GET", kUri}, {printed(R"(
      <EventSchedule version="1.0" xmlns="urn:psialliance-org">
        <TimeBlockList version="1.0" xmlns="urn:psialliance-org">
          <TimeBlock>
            <dayOfWeek>7</dayOfWeek>
            <TimeRange><beginTime>123:05:00</beginTime><endTime>-1:-30:00</endTime></TimeRange>
          </TimeBlock>
          <TimeBlock>
            <dayOfWeek>6</dayOfWeek>
            <TimeRange><beginTime>123:05:00</beginTime><endTime>-1:-30:00</endTime></TimeRange>
          </TimeBlock>
        </TimeBlockList>
      </EventSchedule>)")});
}

TEST_F(ScheduleTest, TheBeginIsTheHoursAndTheEndTheMinutes) {
  const auto expect_stored = [this](const std::string& begin_time, const std::string& end_time,
                                    const std::string& start, const std::string& end, Place place = here()) {
    reset();
    expect_effects({"PUT", kUri,
                    R"(<EventSchedule><TimeBlockList><TimeBlock>
                         <dayOfWeek>1</dayOfWeek>
                         <TimeRange><beginTime>)" +
                        begin_time + "</beginTime><endTime>" + end_time + R"(</endTime></TimeRange>
                       </TimeBlock></TimeBlockList></EventSchedule>)"},
                   {"Event.Week = 2", "Event.StartTime = " + start, "Event.EndTime = " + end, "status 1"},
                   place);
  };
  expect_stored("05:30:00", "18:06:00", "500", "600");
  expect_stored("", "18:1", "0", "100");
  expect_stored("30", "000-5", "2400", "0");  // 24 h and 0 h are the bounds
  expect_stored("-3", "000-1", "-300", "0");
  expect_stored("-1", "1", "2400",
                "0");  // -1 is as if none were given, and so is an end below four characters
  expect_stored("-99999999999", "00:99999999999", "0", "-100");  // the product wraps
}

TEST_F(ScheduleTest, TheLastDayIsArmedOverTheLongestRangeOfAllDays) {
  expect_effects({"PUT", kUri, R"(
      <EventSchedule><TimeBlockList>
        <TimeBlock>
          <dayOfWeek>7</dayOfWeek>
          <TimeRange><beginTime>09:00:00</beginTime><endTime>00:17:00</endTime></TimeRange>
        </TimeBlock>
        <TimeBlock>
          <dayOfWeek>4</dayOfWeek>
          <TimeRange><beginTime>07:00:00</beginTime><endTime>00:22:00</endTime></TimeRange>
        </TimeBlock>
        <TimeBlock>
          <dayOfWeek>2</dayOfWeek>
          <TimeRange><beginTime>08:00:00</beginTime><endTime>00:20:00</endTime></TimeRange>
        </TimeBlock>
      </TimeBlockList></EventSchedule>)"},
                 {"Event.Week = 4", "Event.StartTime = 700", "Event.EndTime = 2200", "status 1"});
}

TEST_F(ScheduleTest, ABitStringReplacesTheRange) {
  const auto expect_stored = [this](const std::string& day, const std::string& bits, const std::string& week,
                                    const std::string& start, const std::string& end, Place place = here()) {
    reset();
    expect_effects(
        {"PUT", kUri,
         "<EventSchedule><TimeBlockList><TimeBlock><dayOfWeek>" + day + "</dayOfWeek><bitString>" + bits +
             R"(</bitString>
                         <TimeRange><beginTime>03:00:00</beginTime><endTime>00:04:00</endTime></TimeRange>
                       </TimeBlock></TimeBlockList></EventSchedule>)"},
        {"Event.Week = " + week, "Event.StartTime = " + start, "Event.EndTime = " + end, "status 1"}, place);
  };
  expect_stored("1", "000000001111111110000000", "2", "1600",
                "900");  // from the last armed hour behind the first
  expect_stored("1", "0000000000000000000000001", "2", "300",
                "400");                                  // none of 24 is armed: the range counts
  expect_stored("6", "100000000", "64", "2300", "100");  // what is behind the end counts as armed
  expect_stored("7", "111111111111111111111111", "1", "300", "400");  // a Sunday's is not kept
}

}  // namespace
}  // namespace service_tests
