"""The schedule, which tells when the trigger is armed: days, and one range of hours for all of them."""
import pytest

URI = "/PSIA/Custom/Event/schedule"


def test_each_stored_day_is_shown_with_the_one_range(camera):
    camera.execute("update Event set Week=65, StartTime=12305, EndTime=-130")
    assert camera.shown(URI, "dayOfWeek") == ["7", "6"]
    assert camera.shown(URI, "beginTime") == ["123:05:00", "123:05:00"]
    assert camera.shown(URI, "endTime") == ["-1:-30:00", "-1:-30:00"]


@pytest.mark.parametrize("begin_time, end_time, start, end", [
    ("05:30:00", "18:06:00", 500, 600),  # of the begin the hours count, of the end the minutes, as hours
    ("30", "000-5", 2400, 0),            # 24 h and 0 h are the bounds
    ("-1", "1", 2400, 0),                # -1 is as if none were given, and so is an end below four characters
    ("-99999999999", "00:99999999999", 0, -100),  # the product wraps
])
def test_the_begin_is_the_hours_and_the_end_the_minutes(camera, begin_time, end_time, start, end):
    assert camera.effects("PUT", URI, f"""
        <EventSchedule><TimeBlockList><TimeBlock>
          <dayOfWeek>1</dayOfWeek>
          <TimeRange><beginTime>{begin_time}</beginTime><endTime>{end_time}</endTime></TimeRange>
        </TimeBlock></TimeBlockList></EventSchedule>
        """) == ["Event.Week = 2", f"Event.StartTime = {start}", f"Event.EndTime = {end}", "status 1"]


def test_the_last_day_is_armed_over_the_longest_range_of_all_days(camera):
    assert camera.effects("PUT", URI, """
        <EventSchedule>
          <TimeBlockList><TimeBlock>
            <TimeRange><beginTime>05:00:00</beginTime><endTime>00:23:00</endTime></TimeRange>
            <dayOfWeek>7</dayOfWeek>
            <TimeRange><beginTime>07:00:00</beginTime><endTime>00:17:00</endTime></TimeRange>
          </TimeBlock></TimeBlockList>
          <TimeBlockList><TimeBlock>
            <dayOfWeek>2</dayOfWeek>
            <TimeRange><beginTime>08:00:00</beginTime><endTime>00:20:00</endTime></TimeRange>
          </TimeBlock></TimeBlockList>
        </EventSchedule>
        """) == ["Event.Week = 4",  # the range that stands before the first day is ignored
                 "Event.StartTime = 700", "Event.EndTime = 2000", "status 1"]


@pytest.mark.parametrize("number, week", [("0", 1), ("31", -2147483648), ("32", 0), ("-1", 0)])
def test_the_hours_of_a_number_that_is_no_day_go_to_the_day_before(camera, number, week):
    assert camera.effects("PUT", URI, f"""
        <EventSchedule><TimeBlockList><TimeBlock>
          <dayOfWeek>6</dayOfWeek>
          <dayOfWeek>{number}</dayOfWeek>
          <TimeRange><beginTime>09:00:00</beginTime><endTime>00:10:00</endTime></TimeRange>
        </TimeBlock></TimeBlockList></EventSchedule>
        """) == [f"Event.Week = {week}", "Event.StartTime = 900", "Event.EndTime = 1000", "status 1"]


@pytest.mark.parametrize("day, bits, week, start, end", [
    (1, "000000001111111110000000", 2, 1600, 900),  # from the last armed hour to the end of the first
    (1, "0000000000000000000000001", 2, 300, 400),  # none of the 24 is armed: the range counts
    (6, "100000000", 64, 2300, 100),                # places behind the end of the text count as armed
    (7, "111111111111111111111111", 1, 300, 400),   # a Sunday's is not kept
])
def test_a_bit_string_replaces_the_range(camera, day, bits, week, start, end):
    assert camera.effects("PUT", URI, f"""
        <EventSchedule><TimeBlockList><TimeBlock>
          <dayOfWeek>{day}</dayOfWeek>
          <bitString>{bits}</bitString>
          <TimeRange><beginTime>03:00:00</beginTime><endTime>00:04:00</endTime></TimeRange>
        </TimeBlock></TimeBlockList></EventSchedule>
        """) == [f"Event.Week = {week}", f"Event.StartTime = {start}", f"Event.EndTime = {end}", "status 1"]
