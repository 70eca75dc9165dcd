"""The schedule, which tells when the trigger is armed: days, and one range of hours for all of them. In a
request day 1 is Monday and 7 Sunday; stored days are bits, Sunday's the lowest one."""
import pytest

from answers import OK

SCHEDULE = "/PSIA/Custom/Event/schedule"
SUNDAY, MONDAY, TUESDAY, SATURDAY = 1 << 0, 1 << 1, 1 << 2, 1 << 6
NO_BEGIN, NO_END = 2400, 0  # what is stored for a range without a begin or an end


def stored(week, start, end):
    return [f"Event.Week = {week}", f"Event.StartTime = {start}", f"Event.EndTime = {end}", OK]


def test_each_stored_day_is_shown_with_the_one_range(camera):
    camera.execute(f"update Event set Week={SUNDAY + SATURDAY}, StartTime=12305, EndTime=-130")
    assert camera.shown(SCHEDULE, "dayOfWeek") == ["7", "6"]
    assert camera.shown(SCHEDULE, "beginTime") == ["123:05:00", "123:05:00"]
    assert camera.shown(SCHEDULE, "endTime") == ["-1:-30:00", "-1:-30:00"]


@pytest.mark.parametrize("begin_time, end_time, start, end", [
    pytest.param("30", "000-5", 2400, 0, id="between 24 h and 0 h"),
    pytest.param("-1", "1", NO_BEGIN, NO_END, id="a begin of -1 and an end without minutes are not given"),
    pytest.param("-99999999999", "00:99999999999", 0, -100,
                 id="numbers saturate, and a hundred times such a number wraps"),
])
def test_a_range_begins_at_its_hours_and_ends_at_its_minutes(camera, begin_time, end_time, start, end):
    assert camera.effects("PUT", SCHEDULE, f"""
        <EventSchedule><TimeBlockList><TimeBlock>
          <dayOfWeek>1</dayOfWeek>
          <TimeRange><beginTime>{begin_time}</beginTime><endTime>{end_time}</endTime></TimeRange>
        </TimeBlock></TimeBlockList></EventSchedule>""") == stored(MONDAY, start, end)


def test_the_last_day_gets_the_earliest_begin_and_the_latest_end_of_all_days(camera):
    assert camera.effects("PUT", SCHEDULE, """
        <EventSchedule>
          <TimeBlockList><TimeBlock>
            <!-- no day comes before it, so it is ignored -->
            <TimeRange><beginTime>05:00:00</beginTime><endTime>00:23:00</endTime></TimeRange>
            <dayOfWeek>7</dayOfWeek>
            <TimeRange><beginTime>07:00:00</beginTime><endTime>00:17:00</endTime></TimeRange>
          </TimeBlock></TimeBlockList>
          <TimeBlockList><TimeBlock>
            <dayOfWeek>2</dayOfWeek>
            <TimeRange><beginTime>08:00:00</beginTime><endTime>00:20:00</endTime></TimeRange>
          </TimeBlock></TimeBlockList>
        </EventSchedule>""") == stored(TUESDAY, 700, 2000)


@pytest.mark.parametrize("number, week", [
    pytest.param("31", -(1 << 31), id="the highest bit"),
    pytest.param("32", 0, id="beyond the highest bit"),
])
def test_hours_of_a_number_that_is_no_day_belong_to_the_day_before(camera, number, week):
    assert camera.effects("PUT", SCHEDULE, f"""
        <EventSchedule><TimeBlockList><TimeBlock>
          <dayOfWeek>6</dayOfWeek>
          <dayOfWeek>{number}</dayOfWeek>
          <TimeRange><beginTime>09:00:00</beginTime><endTime>00:10:00</endTime></TimeRange>
        </TimeBlock></TimeBlockList></EventSchedule>""") == stored(week, 900, 1000)


# A bit string has a character an hour; "0" is not armed. The range of the same block is 3 h to 4 h.
@pytest.mark.parametrize("day, bits, expected", [
    pytest.param(1, 24 * "0" + "1", stored(MONDAY, 300, 400),
                 id="none of 24 hours is armed, so the range counts"),
    pytest.param(6, "100000000", stored(SATURDAY, 2300, 100), id="missing hours count as armed"),
])
def test_a_bit_string_replaces_the_range(camera, day, bits, expected):
    assert camera.effects("PUT", SCHEDULE, f"""
        <EventSchedule><TimeBlockList><TimeBlock>
          <dayOfWeek>{day}</dayOfWeek>
          <bitString>{bits}</bitString>
          <TimeRange><beginTime>03:00:00</beginTime><endTime>00:04:00</endTime></TimeRange>
        </TimeBlock></TimeBlockList></EventSchedule>""") == expected
