"""The camera's event daemon: when the sensor's contact closes and the trigger is armed, it switches the
linked relay, uploads a picture, or sends it by mail."""

import time
from datetime import datetime

from simulator import settings
from simulator.outside import Outside, tell
from simulator.settings import Row, Tables, number

LINKS = {"SensorRelay": "RelayID", "FTPServer": "FTPServerID", "SMTPServer": "SMTPServerID"}


def why_disarmed(trigger: Row, now: datetime) -> str:
    """Empty when the schedule has the trigger armed at the camera's local time."""
    start, end = number(trigger["StartTime"]), number(trigger["EndTime"])
    since, until = (f"{value // 100:02d}:{value % 100:02d}" for value in (start, end))
    if start >= end:
        return f"the schedule ends at {until}, before it starts at {since}"
    if not number(trigger["Week"]) >> now.isoweekday() % 7 & 1:
        return f"the schedule has no {now:%A}"
    if not start <= now.hour * 100 + now.minute < end:
        return f"it is {now:%H:%M}, and the schedule is from {since} to {until}"
    return ""


class Alarms:
    def __init__(self, outside: Outside) -> None:
        self.outside = outside
        self.forget()

    def forget(self) -> None:
        """A boot opens the relays."""
        self.last = float("-inf")  # monotonic time of the last event
        self.relays: dict[str, float] = {}  # by alias, the monotonic time at which each opens again

    def closed_relays(self) -> list[str]:
        return [alias for alias, until in self.relays.items() if until > time.monotonic()]

    def sensor_closes(self, now: datetime) -> str:
        """What follows, in words."""
        tables = settings.current()
        trigger = tables["Event"].get("0")
        if not trigger or not any(number(row["Sensor"]) for row in tables["Spec"].values()):
            return "nothing follows: the camera has no sensor input"
        passed, interval = time.monotonic() - self.last, number(trigger["IgnoreInterval"])
        reason = why_disarmed(trigger, now)
        if not reason and passed < interval:
            reason = f"the last event was {passed:.1f} s ago, and the interval is {interval} s"
        if reason:
            return f"nothing follows: {reason}"
        self.last = time.monotonic()
        return ", ".join(self.follow(trigger, tables, now)) or "nothing follows: the trigger has no link"

    def follow(self, trigger: Row, tables: Tables, now: datetime) -> list[str]:
        words = []
        camera = next((str(row["DDNSHostname"]) for row in tables["Network"].values()), "")
        for table, column in LINKS.items():
            linked = tables[table].get(str(trigger[column]))
            if number(trigger[column]) >= 0 and not linked:
                words.append(f"there is no {table} {trigger[column]}")
            elif linked and table == "SensorRelay":
                self.relays[linked["Alias"]] = time.monotonic() + number(linked["Interval"])
                words.append(f"{linked['Alias']} closes for {number(linked['Interval'])} s")
            elif linked:
                file = f"{camera}-{now:%Y%m%d-%H%M%S}.jpg"
                alarm = {"kind": table, "server": linked, "camera": camera, "file": file}
                tell(self.outside.pipe, alarm=alarm)
                words.append(f"{linked['Alias']} is to receive {file}")
        return words
