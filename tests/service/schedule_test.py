"""The schedule, which tells when the trigger is armed: days, and one range of hours for all of them. Stored
days are bits, Sunday's the lowest one. docs/reference/events.md shows what requests store."""

SCHEDULE = "/PSIA/Custom/Event/schedule"
SUNDAY, SATURDAY = 1 << 0, 1 << 6


def test_each_stored_day_is_shown_with_the_one_range(camera):
    camera.execute(f"update Event set Week={SUNDAY + SATURDAY}, StartTime=12305, EndTime=-130")
    assert camera.shown(SCHEDULE, "dayOfWeek") == ["7", "6"]
    assert camera.shown(SCHEDULE, "beginTime") == ["123:05:00", "123:05:00"]
    assert camera.shown(SCHEDULE, "endTime") == ["-1:-30:00", "-1:-30:00"]
