"""The camera's daemons: what they do about each control message, and the rules by which they misbehave."""
import math
import os
import re
import shutil
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from typing import NamedTuple

from simulator import Fault, attempt, clock, device, messages, settings
from simulator.messages import REPLIES, REQUESTS, Message, reply

EXPORT_NAME = "settings.db"  # within the exchange directory
LATE = 6  # seconds, a little more than the service waits for most commands
MAX_LATE = 24 * 60 * 60
*MOST, LAST = messages.COMMANDS
RULE_FORM = "COMMAND=ok|busy|failed|never|late[:SECONDS], for example 3=busy, with a COMMAND of "
RULE_FORM += f"{', '.join(map(str, MOST))} or {LAST}"
NOT_SIMULATED = {
    messages.PICTURE: "there is no sensor; the page draws the picture",
    messages.ENCODER: "there is no encoder; no stream changes",
    messages.AUDIO: "there is no microphone; no sound changes",
    messages.TIME_ZONE: "takes effect with the next boot",
    messages.RTSP_PORT: "there is no RTSP server",
}


class Rule(NamedTuple):
    command: int
    kind: str  # ok, busy, failed, late or never
    delay: int = 0  # seconds until a late answer

    def __str__(self) -> str:
        return f"{self.command}={self.kind}" + (f":{self.delay}" if self.kind == "late" else "")


def parse_rule(text: str) -> Rule:
    """Reads a text of RULE_FORM; raises ValueError when it is none."""
    found = re.fullmatch("([0-9]{1,9})=(?:(ok|busy|failed|never)|late(?::([0-9]{1,9}))?)", text)
    if not found or int(found[1]) not in messages.COMMANDS or int(found[3] or 0) > MAX_LATE:
        raise ValueError(text)
    return Rule(int(found[1]), found[2]) if found[2] else Rule(int(found[1]), "late", int(found[3] or LATE))


def act_on(message: Message, zone: str = "") -> str:
    """Does what a message asks for, as far as that is seen from outside, except for a reboot. Gives a remark,
    which may be empty. `zone`: of a time that is set by hand, a TZ text; empty for the camera's own."""
    match message.command:
        case messages.CLOCK:
            return set_time(message, zone)
        case messages.FACTORY_RESET:
            settings.take_rows()
            device.write_resolver(*device.NAME_SERVERS)
        case messages.EXPORT:
            export()
        case messages.ADDRESSING:
            device.apply_addressing()
            if settings.query("select 1 from Network where ConnectionType = 1"):
                return "no DHCP server is asked; the lease is always the same"
        case messages.NAME_SERVERS:
            primary, hyphen, secondary = message.fields["servers"].partition("-")
            if not hyphen:
                raise Fault("No hyphen between the name servers")
            device.write_resolver(primary, secondary)
    return NOT_SIMULATED.get(message.command, "")


def set_time(message: Message, zone: str) -> str:
    mode, _, _, year, month, day, hour, minute, second = message.fields.values()
    settings.execute(f"update Network set DateTimeSync={mode}")
    if mode == messages.BY_NTP:
        clock.set_ahead(0)
    else:
        clock.set_to((year, month, day, hour, minute, second), zone)
    if not clock.faketime_library():
        return "libfaketime is missing; the clock stays the machine's"
    return "no NTP server is asked; the clock is the machine's" if mode == messages.BY_NTP else ""


def export() -> None:
    with attempt("export the settings"):
        shutil.copyfile(settings.DATABASE, device.EXCHANGE / EXPORT_NAME)


def sender_has_ended(message: Message) -> bool:
    return not os.path.exists(f"/proc/{message.type}")


@dataclass
class Daemons:
    """Answers the messages of the service. `tell` is given what each was in words and how it was answered."""

    act: Callable[[Message], str]  # does what a message asks for, and gives a remark; Fault: it cannot
    rules: list[Rule] = field(default_factory=list)
    tell: Callable[[str, str], None] = lambda words, how: None
    refuses: bool = False  # everything: the service stops, and must not wait
    waiting: list[tuple[float, Message]] = field(default_factory=list)  # until when, infinity for never
    unsent: list[tuple[Message, bytes]] = field(default_factory=list)  # while the reply queue is full

    def forget(self) -> None:
        """Nobody waits for an answer any more."""
        self.waiting, self.unsent = [], []

    def step(self) -> None:
        """Answers what can be answered without waiting."""
        for message, record in self.unsent[:]:
            gone = sender_has_ended(message)
            if not gone and not REPLIES.send(record):
                break
            what = "who asked has ended, the answer is dropped" if gone else "the waiting answer is sent"
            self.tell(f"command {message.command}: {what}", "")
            self.unsent.pop(0)
        while received := REQUESTS.receive():
            self.serve(received)
        for due, message in self.waiting[:]:
            if due <= time.monotonic():
                self.waiting.remove((due, message))
                self.tell(f"command {message.command}, the late answer: {self.act_and_answer(message)}", "")

    def serve(self, message: Message) -> None:
        usual = Rule(message.command, "ok")
        rule = {rule.command: rule for rule in self.rules}.get(message.command, usual)
        kind = "failed" if self.refuses else rule.kind
        if kind == "ok":
            how = self.act_and_answer(message)
        elif kind in messages.RESULTS:
            how = self.answer(message, kind)
        else:
            how = f"follows in {rule.delay} s" if kind == "late" else "never"
            delay = rule.delay if kind == "late" else math.inf
            self.waiting.append((time.monotonic() + delay, message))
        self.tell(message.describe(), how)

    def act_and_answer(self, message: Message) -> str:
        try:
            remark, result = self.act(message), "done"
        except Fault as fault:
            remark, result = str(fault), "failed"
        return self.answer(message, result) + (f" ({remark})" if remark else "")

    def answer(self, message: Message, how: str) -> str:
        exported = message.command == messages.EXPORT and how == "done"
        record = reply(message, messages.RESULTS[how], EXPORT_NAME.encode() if exported else b"")
        if not self.unsent and REPLIES.send(record):
            return how
        self.unsent.append((message, record))
        return how + "; the reply queue is full, the answer waits"

    def answer_all_waiting(self) -> None:
        """Refuses what a rule has left without an answer, so that the service can stop at once."""
        for _, message in self.waiting:
            if not sender_has_ended(message):
                how = self.answer(message, "failed")
                self.tell(f"command {message.command}, before the service stops", how)
        self.waiting = []
